// The easy way to transfer over HTTP: one call that tries every route to the server, and the answer.
#pragma once

#include <tessel/base/string.h>
#include <tessel/http/http_session.h>
#include <tessel/http/method.h>
#include <tessel/http/response.h>
#include <tessel/http/session_context.h>
#include <tessel/http/transfer_watch.h>

#include <cstdint>
#include <string>

namespace kro::tessel::http {

/// The answer to a client's last transfer. It belongs to the client and is valid while the client lives.
class ILumHttpResponse {
public:
    virtual unsigned short GetStatusCode() const = 0;  ///< of HTTP; 0 without an answer
    /// The body as text, see buffer_content_to_string; empty without one.
    virtual CTString GetContent() const = 0;
    /// Copies the body as received (decoded, where the client was told to decode it).
    /// buffer:  may be null: only the size is wanted then.
    /// size:    in: room in bytes; out: bytes of the body, whatever was copied.
    /// Returns: 0; 87 null size; 13 no answer or one without a body, `size` untouched; 122 the body is
    ///          larger than the room, which holds its beginning.
    virtual unsigned long GetRawContent(void* buffer, unsigned long* size) const = 0;

protected:
    ~ILumHttpResponse() = default;
};

/// What a host attaches to a client. The client keeps the pointer and calls nothing of it.
class ILumHttpClientSink {
protected:
    ~ILumHttpClientSink() = default;
};

// Flags of CLumHttpClient::Invoke and Request.
inline constexpr unsigned long k_client_accept_gzip =
    0x1;  ///< ask for gzip: "Accept-Encoding: gzip, deflate"
inline constexpr unsigned long k_client_decode_gzip = 0x2;  ///< the same, and inflate a gzip body
inline constexpr unsigned long k_client_raw_data = 0x4;  ///< the body is bytes; else wide text, sent in UTF-8
inline constexpr unsigned long k_client_upload = 0x8;    ///< http_session::runUpload
inline constexpr unsigned long k_client_download = 0x10;  ///< http_session::runDownload

/// A client of HTTP servers, synchronous: each call blocks its thread until the transfer has ended.
///
///     CLumHttpClient client;
///     if (client.Request(TESSEL_W("http://host/path"), http_method_get, nullptr, nullptr,
///                        k_client_decode_gzip) == 200)
///     {
///         show(client.ResponseContent());
///     }
///
/// The routes to a server are those of GetProxyUtil, tried in their order until a transfer over one
/// succeeds: whatever status an answer has, it is a success. The system's own proxy settings are not used
/// apart from that. A request that times out is sent again with twice the time-out to receive, until that
/// exceeds 120,000 ms. docs/synchronous-transfers.md tells more.
///
/// Copies share what the session has received and is to send: see http_session's copies. A copy's session
/// keeps the sink of its source, which therefore has to outlive it (kept).
/// Errors: none throws; where memory ends, the number is 8.
/// Thread: one at a time for each object; distinct objects may be used from different threads at once.
class TESSEL_API CLumHttpClient : public http_session_sink, public http_session_error_sink {
public:
    CLumHttpClient();  ///< synchronous, without a sink
    CLumHttpClient(const CLumHttpClient&) = default;
    CLumHttpClient& operator=(const CLumHttpClient&) = default;

    /// Doubles the time-out to receive after a 12002, and asks for another try, while it is below 120,001 ms.
    void on_send_data_error(http_session* session, void* request, unsigned long error,
                            error_resolvent& resolvent) override;
    /// Gives up where an answer to a direct request asks for the login of a proxy.
    void on_response_error(http_session* session, void* request, unsigned long error,
                           error_resolvent& resolvent) override;
    void on_completed(http_session* session, unsigned long action,
                      const http_response* response) override;  ///< does nothing
    ~CLumHttpClient() override;
    void on_send_error(session_context* context) override;  ///< does nothing
    void on_recv_error(session_context* context) override;  ///< does nothing

    void SetSink(ILumHttpClientSink* sink) { m_sink = sink; }  ///< not owned
    ILumHttpClientSink* GetSink() const { return m_sink; }     ///< null unless set

    /// 0: Invoke and Request transfer nothing and report success. 1, as at first: they transfer.
    void SetSync(int sync) { m_sync = sync; }
    int IsSync() const { return m_sync; }

    /// Transfers.
    /// url:     absolute, http or https.
    /// body:    copied; null when bodyBytes is 0. Wide text unless k_client_raw_data is set.
    /// headers: wide text, lines separated by CR LF; null when headerBytes is 0.
    /// flags:   k_client_...; none is remembered for the next call.
    /// Returns: 0, or the error number of the last route, which is the thread's last error too. 87 when a
    ///          text is null with a size, or too large for a request.
    unsigned long Invoke(http_method_t method, const CTString& url, const void* body, unsigned long bodyBytes,
                         const void* headers, unsigned long headerBytes, unsigned long flags);

    /// The last transfer's part of Invoke: what the session holds is sent by each route until it succeeds.
    // NOLINTNEXTLINE(bugprone-reserved-identifier): the name that hosts use
    unsigned long _InvokeWithProxyUtil();

    /// Transfers texts; null or empty ones are none.
    /// Returns: the status of HTTP, 0 when the transfer failed.
    int Request(const wchar* url, http_method_t method, wchar* body, wchar* headers, unsigned long flags);
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    int Request(const wchar_t* url, http_method_t method, const wchar_t* body, const wchar_t* headers,
                unsigned long flags) {
        wide_string wideBody = from_wchar_t(body);
        wide_string wideHeaders = from_wchar_t(headers);
        return Request(from_wchar_t(url).c_str(), method, wideBody.data(), wideHeaders.data(), flags);
    }
#endif
    /// The same with a body of bytes and headers of `headerBytes` bytes of wide text.
    int Request(const wchar* url, http_method_t method, void* body, unsigned long bodyBytes,
                const wchar* headers, unsigned long headerBytes, unsigned long flags);
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    /// L"..." headers: `headerBytes` counts their bytes as they stand, four for each character.
    int Request(const wchar_t* url, http_method_t method, void* body, unsigned long bodyBytes,
                const wchar_t* headers, unsigned long headerBytes, unsigned long flags) {
        const bool has_headers = headers != nullptr && headerBytes != 0;
        const wide_string wideHeaders =
            has_headers ? from_wchar_t(std::wstring(headers, headerBytes / sizeof(wchar_t)).c_str())
                        : wide_string();
        return Request(from_wchar_t(url).c_str(), method, body, bodyBytes, wideHeaders.c_str(),
                       static_cast<unsigned long>(wideHeaders.size() * sizeof(wchar)), flags);
    }
#endif

    CTString ResponseContent();             ///< GetResponse's text; empty without an answer
    const ILumHttpResponse* GetResponse();  ///< null without an answer

    /// A completion procedure for invoke2: the context is removed when it returns. It also posts the message
    /// 0x400 to the engine's helper window, which ignores it (kept).
    static void on_data_recv(unsigned long userContext, session_context* context);

    /// An extension: progress and cancelling, for the transfers to come. One that was cancelled fails with
    /// 12017, whatever routes are left.
    void set_watch(const transfer_watch& watch) {
        m_session.set_watch(watch);
    }

private:
    class response_view final : public ILumHttpResponse {
    public:
        response_view() = default;
        response_view(const response_view&) = default;
        response_view& operator=(const response_view&) = default;
        virtual ~response_view() = default;
        unsigned short GetStatusCode() const override;
        CTString GetContent() const override;
        unsigned long GetRawContent(void* buffer, unsigned long* size) const override;

        const http_response* m_response = nullptr;  // the session's; refreshed by GetResponse
        std::uint32_t m_raw = 0;
    };

    static unsigned long refuse(std::uint32_t error);

    response_view m_view;
    http_session m_session;
    ILumHttpClientSink* m_sink = nullptr;
    int m_sync = 1;
};

}  // namespace kro::tessel::http
