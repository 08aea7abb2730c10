// What the HTTP service keeps beside each handle of the system's: who hears of it, and what is going on.
#pragma once

#include "os/inet.h"

#include <windows.h>
#include <wininet.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

namespace kro::tessel::os {

// The sizes that hosts of each width were built with.
static_assert(sizeof(INTERNET_BUFFERSW) == (sizeof(void*) == 8 ? 56 : 40));
static_assert(sizeof(INTERNET_ASYNC_RESULT) == 2 * sizeof(void*));

enum class inet_kind { session, connection, request };

/// What of a request is running on.
enum class inet_operation { none, send, end, read, available };

/// A handle and its host's side.
///
/// The system promises less than this interface: after a close it goes on with what was pending, reports
/// its end from a thread of its own, and may still use the memory that it was given. So the record outlives
/// the handle until the system's last notice, has a copy of the body, lets the system write to a destination
/// only while one of our calls is inside it, and tells the host of the end itself, inside the close.
///
/// Calls on synchronous handles lend the system the host's memory and return when the system does; the gate
/// is open meanwhile, so that another thread can close the handle.
class inet_record {
public:
    /// async: as its session is.
    inet_record(inet_kind kind, std::uintptr_t id, std::shared_ptr<inet_record> parent,
                std::uintptr_t context, bool async);
    inet_record(const inet_record&) = delete;
    inet_record& operator=(const inet_record&) = delete;

    inet_kind kind() const noexcept { return m_kind; }
    bool is_async() const noexcept { return m_async; }
    /// The context that the system knows the handle by.
    std::uintptr_t id() const noexcept { return m_id; }
    const std::shared_ptr<inet_record>& parent() const noexcept { return m_parent; }
    HINTERNET handle() const noexcept { return m_handle; }
    void set_handle(HINTERNET handle) noexcept { m_handle = handle; }

    inet_callback set_callback(inet_callback callback);
    std::optional<std::uint32_t> timeout(inet_timeout kind);
    void set_timeout(inet_timeout kind, std::uint32_t milliseconds);

    inet_status send(std::basic_string_view<wchar> headers, const void* body, std::uint32_t body_bytes,
                     inet_send_mode mode, std::uintptr_t context);
    inet_status end(std::uintptr_t context);
    inet_read_status read(void* destination, std::uint32_t capacity, std::uintptr_t context);
    inet_read_status available();

    /// A notice of the system's about this handle.
    void notify(std::uint32_t notice, void* information, std::uint32_t length);
    /// The end of what is pending, and of the handle, for the host; after it nothing is delivered.
    void end_for_host();

private:
    bool begin(inet_operation operation, std::uintptr_t context);
    inet_status begun(bool ok);
    template <class Call>
    inet_status run(inet_operation operation, std::uintptr_t context, Call&& call);
    inet_status send_and_wait(std::basic_string_view<wchar> headers, const void* body,
                              std::uint32_t body_bytes, inet_send_mode mode, std::uintptr_t context);
    inet_read_status read_and_wait(void* destination, std::uint32_t capacity, std::uintptr_t context);
    inet_status fill();
    void system_completed(const INTERNET_ASYNC_RESULT& outcome);
    void complete(inet_async_result result);
    void deliver(inet_handle about, std::uintptr_t context, std::uint32_t notice, const void* information,
                 std::uint32_t length);

    const inet_kind m_kind;
    const std::uintptr_t m_id;
    const std::shared_ptr<inet_record> m_parent;
    const std::uintptr_t m_context;
    const bool m_async;
    HINTERNET m_handle = nullptr;  // set once, before anybody else knows the record

    // Held while a callback runs, so that notices come one at a time and whoever closes waits; recursive,
    // since callbacks call back. Guards all below.
    std::recursive_mutex m_gate;
    inet_callback m_callback = nullptr;
    std::array<std::optional<std::uint32_t>, 3> m_timeouts;
    bool m_is_over = false;  // for the host
    inet_operation m_operation = inet_operation::none;
    std::uintptr_t m_operation_context = 0;
    std::vector<std::byte> m_body;
    std::byte* m_destination = nullptr;
    std::uint32_t m_capacity = 0;
    std::uint32_t m_filled = 0;
    INTERNET_BUFFERSW m_buffers{};  // lent to the system until the operation has completed
};

}  // namespace kro::tessel::os
