// The record of one asynchronous request, and the interfaces through which a host hears of errors.
#pragma once

#include <tessel/base/string.h>
#include <tessel/http/buffer_content.h>
#include <tessel/http/method.h>
#include <tessel/http/proxy_info.h>
#include <tessel/http/response.h>
#include <tessel/http/url.h>

#include <cstdint>

namespace kro::tessel::http {

class http_session;
struct session_context;

/// What is to happen after a failed send or receive.
enum error_resolvent : std::uint32_t {
    failed = 0,    ///< handle it as the engine does by itself
    retry = 1,     ///< send the request again
    default_ = 2,  ///< end the step with the error as it stands
};

/// Told of failures of asynchronous requests, on the user-interface thread. The sink decides by writing
/// the context's `resolvent`. It may remove, detach or restart the context.
///
/// The engine never resets `resolvent`: after `retry`, a later success sends again; after `default_`, a
/// later success ends the step without reading on. A sink that wants the normal course back writes
/// `failed` (kept).
class http_session_error_sink {
public:
    virtual void on_send_error(session_context* context) = 0;  ///< sending failed
    /// The response failed, or its status is outside 200..299; told again at each further completion.
    virtual void on_recv_error(session_context* context) = 0;

protected:
    ~http_session_error_sink() = default;
};

/// Told of failures and the end of synchronous transfers, on the thread that runs them.
class http_session_sink {
public:
    /// Sending failed, or the status was not 2xx. request: the platform's request handle.
    virtual void on_send_data_error(http_session* session, void* request, unsigned long error,
                                    error_resolvent& resolvent) = 0;
    /// The response failed or carried an error status.
    virtual void on_response_error(http_session* session, void* request, unsigned long error,
                                   error_resolvent& resolvent) = 0;
    /// The transfer ended, with the thread's last error (0: well). response: the session's own.
    virtual void on_completed(http_session* session, unsigned long action, const http_response* response) = 0;
    virtual ~http_session_sink() = default;
};

/// The buffers of a send or read, in the layout that the platform publishes under this name (40 bytes on
/// 32-bit systems, 56 on 64-bit ones).
struct INTERNET_BUFFERSW {
    std::uint32_t dwStructSize;
    INTERNET_BUFFERSW* Next;
    const wchar* lpcszHeader;
    std::uint32_t dwHeadersLength;  ///< UTF-16 units
    std::uint32_t dwHeadersTotal;
    void* lpvBuffer;
    std::uint32_t dwBufferLength;  ///< bytes
    std::uint32_t dwBufferTotal;
    std::uint32_t dwOffsetLow;
    std::uint32_t dwOffsetHigh;
};
static_assert(sizeof(INTERNET_BUFFERSW) == (sizeof(void*) == 8 ? 56 : 40));

/// Called once when a request has ended, on the user-interface thread.
using complete_procedure = void (*)(unsigned long user_context, session_context* context);

/// States of a request.
enum session_state : std::int32_t {
    state_connecting = 0,  ///< waits for the handle of the connection
    state_opening = 1,     ///< its handle is to be opened
    state_sending = 2,     ///< has its handle and is being sent
    state_ending = 3,      ///< has been sent, or sending it failed
    state_reading = 4,     ///< the response arrives
    state_done = 5,        ///< all data received; any other state in the completion procedure: it failed
};

/// One asynchronous request. Made by `invoke2` (or by a host, for `init_session`), owned by the session
/// manager while it is live; a detached one belongs to the host, which destroys it with `delete`.
/// Hosts read the fields in the completion procedure and in sinks, on the user-interface thread.
struct TESSEL_API session_context {
    session_context();
    /// Closes `request` and frees `data` and the whole `content` chain.
    ~session_context();
    session_context(const session_context&) = delete;
    session_context& operator=(const session_context&) = delete;

    CTString host_key;  ///< with `port`, the key of the shared connection
    std::uint16_t port = 0;
    void* request = nullptr;  ///< platform request handle, null until opened
    std::int32_t state = state_connecting;
    INTERNET_BUFFERSW buffers;                 ///< of the send or read that is under way
    _buffer_content* content = nullptr;        ///< the received bytes; null until the first read
    _buffer_content* current_chunk = nullptr;  ///< of the chain, the one being filled; null at the end
    std::uint32_t async_result = 0;            ///< of the last completed operation: 1 success, 0 failure
    std::uint32_t async_error = 0;             ///< of the last completed operation: its error number
    error_resolvent resolvent = failed;        ///< written by the error sink
    std::uint32_t status_code = 0;             ///< HTTP status, 0 until known
    bool auto_delete = false;                  ///< remove the context right after its completion procedure
    http_session_error_sink* error_sink = nullptr;  ///< not owned, may be null
    complete_procedure complete_proc = nullptr;
    unsigned long user_context = 0;  ///< the host's own value, given to the completion procedure
    CTString url;                    ///< as given; set_url changes it for a restart
    _url_components components;      ///< of the URL that was started last
    http_method_t method = http_method_options;
    proxy_info proxy;               ///< an empty server: no explicit proxy
    bool preconfig = false;         ///< without an explicit proxy: the system's settings, else direct
    CTString headers;               ///< lines separated by CR LF, none behind the last
    void* data = nullptr;           ///< the request body: owned, from new unsigned char[]
    std::uint32_t data_len = 0;     ///< bytes
    bool accept_gzip = false;       ///< the headers ask for gzip
    bool auto_decode_gzip = false;  ///< a gzip body is inflated before the completion procedure is called
};

}  // namespace kro::tessel::http
