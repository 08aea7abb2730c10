#include "os/windows/inet_record.h"

#include "os/thread.h"

#include <algorithm>
#include <utility>

namespace kro::tessel::os {
namespace {

using wide_view = std::basic_string_view<wchar>;

// The system touches every page that it might write to before it reads, and callers give room for bodies that
// may never come.
constexpr std::uint32_t k_most_of_a_read = 256U << 10U;

// The service's number for one of the sockets below it, some of which come through.
std::uint32_t number_of_service(std::uint32_t error) {
    switch (error) {
        case WSAETIMEDOUT:
            return k_error_inet_timeout;
        case WSAECONNRESET:
            return k_error_inet_connection_reset;
        case WSAECONNABORTED:
            return k_error_inet_connection_aborted;
        default:
            return error;
    }
}

}  // namespace

inet_record::inet_record(inet_kind kind, std::uintptr_t id, std::shared_ptr<inet_record> parent,
                         std::uintptr_t context, bool async)
    : m_kind(kind), m_id(id), m_parent(std::move(parent)), m_context(context), m_async(async) {
    m_buffers.dwStructSize = sizeof m_buffers;
    if (m_parent != nullptr) {
        const std::lock_guard lock(m_parent->m_gate);
        m_callback = m_parent->m_callback;
        m_timeouts = m_parent->m_timeouts;
    }
}

inet_callback inet_record::set_callback(inet_callback callback) {
    const std::lock_guard lock(m_gate);
    return std::exchange(m_callback, callback);
}

std::optional<std::uint32_t> inet_record::timeout(inet_timeout kind) {
    const std::lock_guard lock(m_gate);
    return m_timeouts[static_cast<std::size_t>(kind)];
}

void inet_record::set_timeout(inet_timeout kind, std::uint32_t milliseconds) {
    const std::lock_guard lock(m_gate);
    m_timeouts[static_cast<std::size_t>(kind)] = milliseconds;
}

bool inet_record::begin(inet_operation operation, std::uintptr_t context) {
    if (m_operation != inet_operation::none) {
        return false;
    }
    m_operation = operation;
    m_operation_context = context;
    return true;
}

// The answer of a call that always completes with a notice. One that the system finished at once, without
// a notice, gets it here.
inet_status inet_record::begun(bool ok) {
    if (ok) {
        complete({1, 0, 0});
        return {k_error_io_pending};
    }
    const std::uint32_t error = last_error();
    if (error != k_error_io_pending) {
        m_operation = inet_operation::none;
    }
    return {error};
}

// An operation of a synchronous handle: the system's call returns when it is done.
template <class Call>
inet_status inet_record::run(inet_operation operation, std::uintptr_t context, Call&& call) {
    {
        const std::lock_guard lock(m_gate);
        if (!begin(operation, context)) {
            return {k_error_inet_request_pending};
        }
    }
    const std::uint32_t error = call() ? 0 : number_of_service(last_error());
    const std::lock_guard lock(m_gate);
    m_operation = inet_operation::none;
    return {m_is_over ? k_error_inet_operation_cancelled : error};
}

inet_status inet_record::send_and_wait(wide_view headers, const void* body, std::uint32_t body_bytes,
                                       inet_send_mode mode, std::uintptr_t context) {
    const wide_string lines(headers);
    const wchar* const text = lines.empty() ? nullptr : lines.c_str();
    const auto units = static_cast<DWORD>(lines.size());
    void* const bytes = body_bytes == 0 ? nullptr : const_cast<void*>(body);  // the system only reads it
    return run(inet_operation::send, context, [&] {
        if (mode == inet_send_mode::whole) {
            return ::HttpSendRequestW(m_handle, text, units, bytes, body_bytes) != FALSE;
        }
        INTERNET_BUFFERSW buffers{};
        buffers.dwStructSize = sizeof buffers;
        buffers.lpcszHeader = text;
        buffers.dwHeadersLength = units;
        buffers.lpvBuffer = bytes;
        buffers.dwBufferLength = buffers.dwBufferTotal = body_bytes;
        return ::HttpSendRequestExW(m_handle, &buffers, nullptr, HSR_INITIATE, m_id) != FALSE;
    });
}

inet_read_status inet_record::read_and_wait(void* destination, std::uint32_t capacity,
                                            std::uintptr_t context) {
    std::uint32_t filled = 0;
    const inet_status status = run(inet_operation::read, context, [&] {
        DWORD bytes = 1;
        while (bytes != 0 && filled < capacity) {
            bytes = 0;
            auto* const place = static_cast<std::byte*>(destination) + filled;
            const std::uint32_t room = std::min(capacity - filled, k_most_of_a_read);
            if (::InternetReadFile(m_handle, place, room, &bytes) == FALSE) {
                return false;
            }
            filled += bytes;
        }
        return true;
    });
    return {status, filled};
}

inet_status inet_record::send(wide_view headers, const void* body, std::uint32_t body_bytes,
                              inet_send_mode mode, std::uintptr_t context) {
    if (body == nullptr && body_bytes != 0) {
        return {k_error_invalid_parameter};
    }
    if (!m_async) {
        return send_and_wait(headers, body, body_bytes, mode, context);
    }
    const auto* const bytes = static_cast<const std::byte*>(body);
    decltype(m_body) own(bytes, bytes + body_bytes);
    const wide_string lines(headers);
    const std::lock_guard lock(m_gate);
    if (!begin(inet_operation::send, context)) {
        return {k_error_inet_request_pending};
    }
    m_body.swap(own);
    void* const copy = m_body.empty() ? nullptr : m_body.data();
    const wchar* const text = lines.empty() ? nullptr : lines.c_str();
    const auto units = static_cast<DWORD>(lines.size());
    if (mode == inet_send_mode::whole) {
        return begun(::HttpSendRequestW(m_handle, text, units, copy, body_bytes) != FALSE);
    }
    m_buffers = {};
    m_buffers.dwStructSize = sizeof m_buffers;
    m_buffers.lpcszHeader = text;
    m_buffers.dwHeadersLength = units;
    m_buffers.lpvBuffer = copy;
    m_buffers.dwBufferLength = body_bytes;
    m_buffers.dwBufferTotal = body_bytes;
    const bool sent = ::HttpSendRequestExW(m_handle, &m_buffers, nullptr, HSR_INITIATE, m_id) != FALSE;
    m_buffers.lpcszHeader = nullptr;
    return begun(sent);
}

inet_status inet_record::end(std::uintptr_t context) {
    if (!m_async) {
        return run(inet_operation::end, context,
                   [this] { return ::HttpEndRequestW(m_handle, nullptr, HSR_INITIATE, m_id) != FALSE; });
    }
    const std::lock_guard lock(m_gate);
    if (!begin(inet_operation::end, context)) {
        return {k_error_inet_request_pending};
    }
    return begun(::HttpEndRequestW(m_handle, nullptr, HSR_INITIATE, m_id) != FALSE);
}

inet_read_status inet_record::read(void* destination, std::uint32_t capacity, std::uintptr_t context) {
    if (!m_async) {
        return read_and_wait(destination, capacity, context);
    }
    const std::lock_guard lock(m_gate);
    if (!begin(inet_operation::read, context)) {
        return {{k_error_inet_request_pending}};
    }
    m_destination = static_cast<std::byte*>(destination);
    m_capacity = capacity;
    m_filled = 0;
    const inet_status status = fill();
    if (!status.pending()) {
        m_operation = inet_operation::none;
    }
    return {status, status.pending() ? 0 : m_filled};
}

// Takes what is there, until the destination is full or the body ends. Without waiting: a read of the
// system's that waits would write to the destination at a moment that nobody knows.
inet_status inet_record::fill() {
    while (m_filled < m_capacity) {
        m_buffers = {};
        m_buffers.dwStructSize = sizeof m_buffers;
        m_buffers.lpvBuffer = m_destination + m_filled;
        m_buffers.dwBufferLength = std::min(m_capacity - m_filled, k_most_of_a_read);
        if (::InternetReadFileExW(m_handle, &m_buffers, IRF_NO_WAIT, m_id) == FALSE) {
            return {number_of_service(last_error())};
        }
        if (m_buffers.dwBufferLength == 0) {
            break;
        }
        m_filled += m_buffers.dwBufferLength;
    }
    return {};
}

inet_read_status inet_record::available() {
    DWORD bytes = 0;
    if (!m_async) {
        const inet_status status = run(inet_operation::available, m_context, [&] {
            return ::InternetQueryDataAvailable(m_handle, &bytes, 0, 0) != FALSE;
        });
        return {status, status.ok() ? bytes : 0};
    }
    const std::lock_guard lock(m_gate);
    if (!begin(inet_operation::available, m_context)) {
        return {{k_error_inet_request_pending}};
    }
    if (::InternetQueryDataAvailable(m_handle, &bytes, 0, 0) == FALSE) {
        return {begun(false)};
    }
    m_operation = inet_operation::none;
    return {{}, bytes};
}

void inet_record::notify(std::uint32_t notice, void* information, std::uint32_t length) {
    const std::lock_guard lock(m_gate);
    switch (notice) {
        case k_notice_request_complete:
            system_completed(*static_cast<const INTERNET_ASYNC_RESULT*>(information));
            break;
        case k_notice_handle_created:
            deliver(m_parent->m_handle, m_context, notice, &m_handle, sizeof m_handle);
            break;
        case k_notice_handle_closing:
            end_for_host();
            break;
        default:
            deliver(m_handle, m_operation == inet_operation::none ? m_context : m_operation_context, notice,
                    information, length);
    }
}

void inet_record::system_completed(const INTERNET_ASYNC_RESULT& outcome) {
    if (m_operation == inet_operation::available && outcome.dwResult != 0) {
        complete({1, 0, outcome.dwError});  // that is where the system puts the count
        return;
    }
    std::uint32_t error = outcome.dwError;
    if (m_operation == inet_operation::read && error == 0) {
        error = fill().error;
        if (error == k_error_io_pending) {
            return;
        }
    }
    complete({error == 0 ? 1U : 0U, number_of_service(error), m_filled});
}

void inet_record::complete(inet_async_result result) {
    if (!m_async) {
        return;  // the call itself says it
    }
    const inet_operation operation = std::exchange(m_operation, inet_operation::none);
    if (operation == inet_operation::none) {
        return;  // the system's second word on something that is over
    }
    if (operation != inet_operation::read && operation != inet_operation::available) {
        result.bytes = 0;
    }
    deliver(m_handle, m_operation_context, k_notice_request_complete, &result, sizeof result);
}

void inet_record::end_for_host() {
    const std::lock_guard lock(m_gate);
    complete({0, k_error_inet_operation_cancelled, m_filled});
    deliver(m_handle, m_context, k_notice_handle_closing, &m_handle, sizeof m_handle);
    m_is_over = true;
}

void inet_record::deliver(inet_handle about, std::uintptr_t context, std::uint32_t notice,
                          const void* information, std::uint32_t length) {
    if (!m_is_over && m_callback != nullptr && context != 0) {
        m_callback(about, context, notice, information, length);
    }
}

}  // namespace kro::tessel::os
