// What a run of a session works with: its handles, the exchange and its checks, the body.
#pragma once

#include "os/inet.h"

#include "http/body_receiver.h"
#include "tessel/http/http_session.h"

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

namespace kro::tessel::http {

/// One run. The steps throw internal_errno_exception when the run is to end with an error; `perform` turns
/// every exception, the host's too, into its number.
class session_transfer {
public:
    explicit session_transfer(http_session& session) noexcept
        : m_session(session), m_watch(session.m_watch) {}
    session_transfer(const session_transfer&) = delete;
    session_transfer& operator=(const session_transfer&) = delete;
    ~session_transfer() { close_all(); }

    /// Runs the steps, closes the handles whatever came of them, and tells the sink of the end.
    /// Returns: 0 or the run's error number, which is the thread's last error too.
    std::uint32_t perform(const std::function<void()>& steps);

    // The steps, in their order.

    /// Opens the request by the session's own proxy settings.
    void open_as_set();
    /// Opens it by the system's, with time for a large body.
    void open_for_large_body();

    enum class form {
        run,     ///< text in UTF-8 unless it is raw, with all headers
        upload,  ///< as it is, with the caller's headers
        bare     ///< no headers, no body
    };
    /// Sends and checks until nobody asks for another attempt.
    void send_until_settled(form how);
    /// Sends once; a failure leaves the status at 0.
    void send_regardless(form how);

    /// Reads the body into the response, inflated when that's asked for. A body that breaks off is an error.
    void receive(body_receiver::pace how);
    /// Reads what comes of it, as it is.
    void receive_regardless(body_receiver::pace how);

private:
    struct outcome {
        bool sent = false;
        bool ok = false;  // sent, and a status of 2xx
        std::uint32_t error = 0;
    };
    struct outgoing {
        wide_string headers;
        std::string text;  // the body when it is text
        const void* body = nullptr;
        std::uint32_t bytes = 0;
    };

    void open(std::uint32_t access, std::basic_string_view<wchar> proxy, std::basic_string_view<wchar> agent);
    const _url_components& url_parts();
    void set_proxy_account();
    void close_all() noexcept;
    void close_request() noexcept;

    // Sending and checking (session_exchange.cpp).
    void compose(form how);
    void add_body(form how);
    os::inet_status send(form how);
    outcome send_and_check(form how);
    void read_status();
    bool is_wanted_again(const outcome& what);
    error_resolvent ask_sink(const outcome& what);
    bool user_wants_again(const outcome& what);

    std::optional<std::uint32_t> announced_length() const;
    std::uint64_t announced_total() const;
    std::uint32_t receive_into_response(body_receiver::pace how);
    void decode();

    // For the watch (session_delivery.cpp).
    void tell_head() const;
    std::uint32_t hand_body_on(const std::function<void(std::uint64_t)>& on_bytes) const;

    // Watching.
    bool is_watched() const noexcept { return m_watch != nullptr && m_watch->progress; }
    bool is_cancelled() const noexcept;
    void throw_if_ended() const;
    void report(transfer_direction direction, std::uint64_t done, std::uint64_t total) const;
    void body_goes_out(std::uint64_t bytes) noexcept;
    static void hear(os::inet_handle handle, std::uintptr_t context, std::uint32_t notice,
                     const void* information, std::uint32_t length);

    http_session& m_session;
    const std::shared_ptr<const transfer_watch> m_watch;  // the session may be given another one meanwhile
    os::inet_handle m_internet = nullptr;
    os::inet_handle m_connection = nullptr;
    os::inet_handle m_request = nullptr;
    outgoing m_outgoing;
    _buffer_content* m_received = nullptr;  // the response's
    std::uint64_t m_gone_out = 0;           // of the body, as reported
    std::uint32_t m_host_error = 0;  // what the host's progress function threw inside a call of the service
};

}  // namespace kro::tessel::http
