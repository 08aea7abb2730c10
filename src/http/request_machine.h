// The asynchronous request machine: from connecting to the last byte, one step per notice.
#pragma once

#include "os/inet.h"

#include "http/engine_state.h"

#include <cstdint>
#include <mutex>

namespace kro::tessel::http {

/// The service's callback: records what completed and posts the next step. Any thread.
void status_callback(os::inet_handle handle, std::uintptr_t context, std::uint32_t notice,
                     const void* information, std::uint32_t length) noexcept;

/// Runs the step that is due for the context, if any, and finishes a request whose step failed. On the
/// helper window's thread.
void run_due_step(session_context* context) noexcept;

/// One request while the engine works on it: holds the slot and its step lock.
///
/// The lock is released around each call into the host (the completion procedure, sinks, the prompt, its
/// finder). Meanwhile the request may be removed, detached or started again, by the host or by another
/// thread: then the machine is no longer current, touches the context no more and lets its step end with 0.
class request_machine {
public:
    request_machine(engine_state& state, request_ref slot);

    /// Starts the request: opens what it shares with others and connects. Returns 0 or the error number.
    std::uint32_t start();

    /// Runs one step. Returns 0 when it is done or waits for a notice, else the error number.
    std::uint32_t process_guarded();

    /// Delivers the result.
    void finish();

    /// Whether a step is due, which this is now.
    bool takes_step() { return m_engine.live.take_step(*m_slot); }
    bool has_ended() const { return m_engine.live.has_ended(*m_slot); }
    bool is_current() const { return m_engine.live.is_current(*m_slot, m_start); }

private:
    // The steps, in the order of a request's life.
    std::uint32_t process_state();
    std::uint32_t connect(os::inet_handle session);
    std::uint32_t open_request();
    std::uint32_t send_request();
    std::uint32_t after_send();
    std::uint32_t after_failed_send();
    std::uint32_t end_request();
    std::uint32_t after_receive();
    std::uint32_t after_error_status();
    std::uint32_t go_on_after_status();
    std::uint32_t read_request();

    // Reading (request_reading.cpp).
    bool prepare_read(std::uint32_t& error);
    bool prepare_first_read(std::uint32_t& error);
    void keep_bytes(std::uint32_t count);
    bool take_bytes(std::uint32_t count, std::uint32_t& error);
    std::uint32_t end_of_body();
    std::uint32_t body_is_complete();
    void drop_response();

    void forget_earlier_start();
    void set_proxy_credentials();
    /// Asks the user; false when the request isn't current any more.
    bool ask_for_credentials(std::uint32_t error, std::uint32_t& answer);
    bool read_credentials_back();  ///< likewise

    /// Calls into the host without the lock. Returns whether the request is still current.
    template <class Call>
    bool call_host(Call&& call) {
        m_lock.unlock();
        call();
        m_lock.lock();
        return is_current();
    }

    std::uintptr_t context_value() const { return reinterpret_cast<std::uintptr_t>(&m_context); }

    engine_state& m_engine;
    const request_ref m_slot;
    std::unique_lock<std::recursive_mutex> m_lock;
    session_context& m_context;
    std::uint32_t m_start = 0;
};

}  // namespace kro::tessel::http
