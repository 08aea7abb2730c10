// One HTTP transfer as an object, run on the calling thread.
//
//     http_client client;
//     http_session* session = client.open_session();
//     session->set_sync(true);
//     session->set_url(TESSEL_W("https://example.org/"));
//     if (session->invoke()) {
//         const http_response* response = session->get_response();
//     }
//     client.close_session(session);
#pragma once

#include <tessel/base/string.h>
#include <tessel/http/method.h>
#include <tessel/http/proxy_info.h>
#include <tessel/http/response.h>
#include <tessel/http/session_context.h>
#include <tessel/http/transfer_watch.h>
#include <tessel/http/url.h>

#include <cstdint>
#include <memory>

namespace kro::tessel::http {

class http_client;
class http_session_mgr;

/// One transfer: what is to be sent, and the response. It may be used for one transfer after another.
///
/// Thread: one at a time; distinct sessions share nothing and may run at once.
/// Errors: nothing is thrown by `invoke` and the buffer functions; they set the thread's last error.
class TESSEL_API http_session {
public:
    /// The kind of transfer that a session performs.
    enum ACTION_TYPE : std::uint32_t {
        action_run = 0,  ///< the general run; so does every value without a name
        action_upload = 8,
        action_download = 16,
    };

    /// client: whose agent `run` uses, copied now; null for none.
    explicit http_session(const http_client* client = nullptr);
    /// Copies are shallow: they share the two buffers and the received chain with the source, and whoever
    /// copies makes sure that only one of the two is destroyed, or given other buffers, with them (kept).
    http_session(const http_session&) = default;
    http_session& operator=(const http_session&) = default;
    /// Frees the buffers and the response.
    virtual ~http_session();

    // The three runs. `invoke` calls one of them; a host may call it itself, or replace it in a class of its
    // own. Each tells the sink's `on_completed` at its end, also when it failed.
    // Returns: 0, or the error number.

    /// Sends the body, and reads the response. Headers: the caller's, a Content-Type unless the caller names
    /// one ("application/x-www-form-urlencoded", for text with ";charset:utf-8" behind it), Accept-Encoding
    /// if asked for, "Connection: close". GET, HEAD and DELETE send no body.
    ///
    /// A failed send and a status other than 2xx are brought before the sink; without its decision, and for
    /// the statuses 401, 403 and 407, the user is asked for credentials. An error status that nobody decides
    /// upon is a response like any other: the run succeeds.
    /// A body that breaks off with an error fails the run and leaves what was received in the response.
    virtual std::uint32_t run();
    /// Sends the body as it is, with the caller's headers alone; for large ones. Always by way of the
    /// system's proxy settings, and with a receive time-out of at least six minutes. Errors as those of
    /// `run`.
    virtual std::uint32_t runUpload();
    /// Fetches the URL without headers and body; for large ones. Proxy and time-out as for an upload.
    /// A failed send isn't an error: it ends as an empty response with status 0; neither is a body that
    /// breaks off, which is delivered as far as it came. The sink hears of the end only (kept).
    virtual std::uint32_t runDownload();
    virtual std::uint32_t reserved1();  ///< does nothing, gives 0; keeps its place for the interface's sake
    virtual std::uint32_t reserved2();  ///< the same

    /// Performs the transfer that `action` names, on this thread, and waits for its end. The response of the
    /// one before is dropped first.
    /// Returns: whether it succeeded; see the runs. False with the thread's last error set: 13 for an empty
    ///          URL and for a session that is neither synchronous nor has a sink, else the run's error; 1359
    ///          when a function of the host's threw, 8 when memory ran out.
    ///          False alone for a session that isn't synchronous: it does nothing (see tessel/http/engine.h).
    bool invoke();

    /// The session's response; null while there's no status code. The argument isn't used.
    const http_response* get_response(unsigned long = 0) const;

    /// Copies the body of the requests to come. Text (UTF-16 units, without a zero) unless `set_raw_data`
    /// says otherwise. data: may be null when len is 0, which clears it. len: bytes. Returns: false, with
    /// nothing changed: 87 for null with a length, 8 without memory.
    bool set_data_to_post(const void* data, unsigned int len);
    /// The same for the request headers: text, in lines separated by CR LF.
    bool set_data_to_header(const void* data, unsigned int len);

    /// Gives the body.
    /// buf:     gets as much as fits; null asks for the length alone, whatever room is given.
    /// len:     in: the room in bytes; out: the body's length.
    /// Returns: whether all of it fitted; false with the last error 122, or 87 when len is null.
    bool get_data_to_post(void* buf, unsigned int* len) const;

    // What the transfers to come are made of; each getter gives what was set.

    void set_url(const CTString& url) { m_url = url; }  ///< absolute, http or https; empty at first
    const CTString& get_url() const { return m_url; }
    void set_method(http_method_t method) { m_method = method; }  ///< GET unless set
    http_method_t get_method() const { return m_method; }
    /// The proxy of `run`; with an empty server `set_preconfig` decides.
    void set_proxy_info(const proxy_info& proxy) { m_proxy = proxy; }
    const proxy_info& get_proxy_info() const { return m_proxy; }
    void set_sink(http_session_sink* sink) { m_sink = sink; }  ///< not owned, may be null
    http_session_sink* get_sink() const { return m_sink; }
    /// Has to be true for `invoke` to transfer anything. False at first, as are all flags below.
    void set_sync(bool sync) { m_sync = sync; }
    bool is_sync() const { return m_sync; }
    /// The window that a dialogue belongs over; null: the active one.
    void set_parent_wnd(void* window) { m_parent_wnd = window; }
    void* get_parent_wnd() const { return m_parent_wnd; }
    /// Whether `run` uses the system's proxy settings where no proxy is set; else it connects directly.
    void set_preconfig(bool preconfig) { m_preconfig = preconfig; }
    bool is_preconfig() const { return m_preconfig; }
    /// Asks for compressed responses ("Accept-Encoding: gzip, deflate"); not in downloads.
    void set_accept_gzip_header(bool accept) { m_accept_gzip_header = accept; }
    bool is_accept_gzip_header() const { return m_accept_gzip_header; }
    /// Has a gzip body inflated; not in downloads.
    void set_auto_decode_gzip(bool decode) { m_auto_decode_gzip = decode; }
    bool is_auto_decode_gzip() const { return m_auto_decode_gzip; }
    /// Whether the body's bytes are sent by `run` as they are; else it is text and sent in UTF-8.
    void set_raw_data(bool raw) { m_raw_data = raw; }
    bool is_raw_data() const { return m_raw_data; }
    /// Which run `invoke` calls, see ACTION_TYPE.
    void set_action_data(unsigned long action) { m_action = static_cast<ACTION_TYPE>(action); }
    unsigned long get_action_data() const { return m_action; }

    /// An extension: progress and cancelling, for the transfers to come; copied.
    void set_watch(const transfer_watch& watch);

    /// The manager of asynchronous requests, see tessel/http/session.h; made on first use, there until
    /// unload.
    static http_session_mgr& mgr();

protected:
    /// Whether there's a URL, and a caller that waits or a sink that can be told.
    bool check_input_data() const;

private:
    friend class session_transfer;  // what a run works with

    struct byte_buffer {
        void* data = nullptr;  ///< from malloc, with two zero bytes behind the data
        std::uint32_t len = 0;
    };
    std::uint32_t run_as_set();
    static bool store(byte_buffer& buffer, const void* data, std::uint32_t len);

    CTString m_url;
    _url_components m_components;
    http_method_t m_method = http_method_get;
    proxy_info m_proxy;
    byte_buffer m_data_to_post;
    byte_buffer m_data_to_header;
    http_session_sink* m_sink = nullptr;
    bool m_sync = false;
    http_response m_response;
    void* m_parent_wnd = nullptr;
    bool m_preconfig = false;
    bool m_accept_gzip_header = false;
    bool m_auto_decode_gzip = false;
    bool m_raw_data = false;
    ACTION_TYPE m_action = action_run;
    CTString m_agent;
    CTString m_cracked_url;  // what m_components are of; empty for nothing
    std::shared_ptr<const transfer_watch> m_watch;
};

}  // namespace kro::tessel::http
