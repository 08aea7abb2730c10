// Watching and ending synchronous transfers: how far one has come, what arrives before it is complete, and a
// flag that ends it from another thread. Extensions: a session works without them, and one that sets neither
// pays nothing for them.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/types.h>

#include <cstdint>
#include <functional>
#include <memory>

namespace kro::tessel::http {

class cancel_state;

/// Ends transfers from outside. Copies are the same flag; it may be given to several sessions, and it lives
/// as long as anybody has it. Every function may be called from any thread.
class TESSEL_API cancel_flag {
public:
    cancel_flag();  ///< a new one, not cancelled
    cancel_flag(const cancel_flag&) = default;
    cancel_flag& operator=(const cancel_flag&) = default;
    ~cancel_flag() = default;

    /// Ends the transfers that are under way with this flag, also while they wait for the network: they
    /// fail with 12017. Later ones fail so at once, until `reset`. It doesn't wait for their ends. May be
    /// called from a progress function.
    void cancel() const;
    bool is_cancelled() const;
    /// Makes the flag fit for the next transfer; one that was cancelled stays cancelled.
    void reset() const;

    cancel_state& state() const { return *m_state; }  ///< the library's own; opaque to hosts

private:
    std::shared_ptr<cancel_state> m_state;
};

enum transfer_direction : std::uint32_t {
    transfer_upload = 0,    ///< the request's body goes out
    transfer_download = 1,  ///< the response's body comes in
};

/// How far a transfer has come.
struct transfer_progress {
    static constexpr std::uint64_t k_unknown = 0xFFFFFFFFFFFFFFFFU;

    transfer_direction direction = transfer_download;
    std::uint64_t done = 0;           ///< bytes of the body, as they are on the wire (not decoded)
    std::uint64_t total = k_unknown;  ///< bytes of the whole body, k_unknown when nobody says how many
};

/// What a response begins with.
struct response_head {
    std::uint32_t status = 0;
    CTString lines;  ///< the status line and the headers, each with CR LF behind it
};

/// What goes with a session's transfers.
struct transfer_watch {
    /// Told on the thread that runs the transfer whenever bytes have moved, so it should return soon. The
    /// count begins anew when a body is sent or received again. When it throws, the transfer ends with
    /// 1359 (8 for std::bad_alloc). May be empty.
    std::function<void(const transfer_progress&)> progress;
    /// Told of the response whose body comes next; not of those that lead to another try, as for a login.
    /// May be empty. Exceptions as in `progress`.
    std::function<void(const response_head&)> head;
    /// Takes the body piece by piece, as it arrives and not decoded; the session's response then has none.
    /// May be empty: the response holds the body. Exceptions as in `progress`.
    std::function<void(const void* data, std::uint32_t size)> body;
    cancel_flag cancel;  ///< ends the transfer from outside
};

}  // namespace kro::tessel::http
