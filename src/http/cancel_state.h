// The transfers that a cancel flag ends.
#pragma once

#include "os/inet.h"

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <vector>

namespace kro::tessel::http {

/// Closes requests from other threads, which ends whatever call waits on them. The value of a handle that is
/// closed may come back as another's, so each request is closed either here or by its run.
class cancel_state {
public:
    /// From here on `cancel` closes the request. False when the flag is set: then it won't.
    bool enter(os::inet_handle request);
    /// Whether the request is still the run's to close; when it isn't, it has been closed: waits for a
    /// `cancel` that is at it. Not in a callback, which that may be waiting for.
    bool leave(os::inet_handle request) noexcept;
    /// Whether an entered request has been closed, or is about to be.
    bool has_closed(os::inet_handle request) noexcept;
    /// As leave, without waiting; for callbacks.
    bool take_back(os::inet_handle request) noexcept;

    void cancel();
    void reset() noexcept { m_cancelled.store(false); }
    bool is_cancelled() const noexcept { return m_cancelled.load(); }

private:
    using handles = std::vector<os::inet_handle>;

    static bool remove(handles& from, os::inet_handle request) noexcept;

    std::atomic<bool> m_cancelled{false};
    std::mutex m_mutex;  // guards the lists; not held while a handle is closed
    std::condition_variable m_closed;
    handles m_requests;
    handles m_closing;
};

}  // namespace kro::tessel::http
