// The HTTP service: handles, requests and their notices, in WinINet's shape and with its numbers.
#pragma once

#include <tessel/base/types.h>

#include <cstdint>
#include <string_view>

namespace kro::tessel::os {

/// An opaque handle value; null for none. Nobody dereferences it, and it may be reused once its handle
/// is gone.
using inet_handle = void*;

// Access types of a session.
inline constexpr std::uint32_t k_access_preconfigured = 0;
inline constexpr std::uint32_t k_access_direct = 1;
inline constexpr std::uint32_t k_access_proxy = 3;

// Request flags.
inline constexpr std::uint32_t k_request_reload = 0x80000000U;
inline constexpr std::uint32_t k_request_secure = 0x00800000U;
inline constexpr std::uint32_t k_request_keep_connection = 0x00400000U;
inline constexpr std::uint32_t k_request_no_auto_redirect = 0x00200000U;
inline constexpr std::uint32_t k_request_no_cookies = 0x00080000U;
inline constexpr std::uint32_t k_request_no_auth = 0x00040000U;
inline constexpr std::uint32_t k_request_no_cache_write = 0x04000000U;
inline constexpr std::uint32_t k_request_ignore_redirect_to_http = 0x8000U;
inline constexpr std::uint32_t k_request_ignore_redirect_to_https = 0x4000U;
inline constexpr std::uint32_t k_request_ignore_cert_date_invalid = 0x2000U;
inline constexpr std::uint32_t k_request_ignore_cert_cn_invalid = 0x1000U;
inline constexpr std::uint32_t k_request_pragma_nocache = 0x100U;

// Notices.
inline constexpr std::uint32_t k_notice_resolving_name = 10;
inline constexpr std::uint32_t k_notice_name_resolved = 11;
inline constexpr std::uint32_t k_notice_connecting = 20;
inline constexpr std::uint32_t k_notice_connected = 21;
inline constexpr std::uint32_t k_notice_sending_request = 30;
inline constexpr std::uint32_t k_notice_request_sent = 31;
inline constexpr std::uint32_t k_notice_receiving_response = 40;
inline constexpr std::uint32_t k_notice_response_received = 41;
inline constexpr std::uint32_t k_notice_closing_connection = 50;
inline constexpr std::uint32_t k_notice_connection_closed = 51;
inline constexpr std::uint32_t k_notice_handle_created = 60;
inline constexpr std::uint32_t k_notice_handle_closing = 70;
inline constexpr std::uint32_t k_notice_request_complete = 100;
inline constexpr std::uint32_t k_notice_redirect = 110;

// What query_text and query_number can be asked for.
inline constexpr std::uint32_t k_query_content_type = 1;
inline constexpr std::uint32_t k_query_content_length = 5;
inline constexpr std::uint32_t k_query_version = 18;
inline constexpr std::uint32_t k_query_status_code = 19;
inline constexpr std::uint32_t k_query_status_text = 20;
inline constexpr std::uint32_t k_query_raw_headers = 21;
inline constexpr std::uint32_t k_query_raw_headers_crlf = 22;
inline constexpr std::uint32_t k_query_content_encoding = 29;
inline constexpr std::uint32_t k_query_location = 33;
inline constexpr std::uint32_t k_query_www_authenticate = 40;
inline constexpr std::uint32_t k_query_proxy_authenticate = 41;
inline constexpr std::uint32_t k_query_set_cookie = 43;
inline constexpr std::uint32_t k_query_request_method = 45;
inline constexpr std::uint32_t k_query_custom = 65535;
inline constexpr std::uint32_t k_query_request_headers = 0x80000000U;  ///< modifier: of the request

// Error numbers that the library tests for or gives; docs/errors.md has them all.
inline constexpr std::uint32_t k_error_invalid_handle = 6;
inline constexpr std::uint32_t k_error_not_enough_memory = 8;
inline constexpr std::uint32_t k_error_invalid_parameter = 87;
inline constexpr std::uint32_t k_error_insufficient_buffer = 122;
inline constexpr std::uint32_t k_error_bad_arguments = 160;
inline constexpr std::uint32_t k_error_io_pending = 997;
inline constexpr std::uint32_t k_error_cancelled_by_user = 1223;
inline constexpr std::uint32_t k_error_inet_out_of_handles = 12001;
inline constexpr std::uint32_t k_error_inet_timeout = 12002;
inline constexpr std::uint32_t k_error_inet_internal = 12004;
inline constexpr std::uint32_t k_error_inet_invalid_url = 12005;
inline constexpr std::uint32_t k_error_inet_unrecognized_scheme = 12006;
inline constexpr std::uint32_t k_error_inet_name_not_resolved = 12007;
inline constexpr std::uint32_t k_error_inet_invalid_option = 12009;
inline constexpr std::uint32_t k_error_inet_shutdown = 12012;
inline constexpr std::uint32_t k_error_inet_incorrect_user_name = 12013;
inline constexpr std::uint32_t k_error_inet_incorrect_password = 12014;
inline constexpr std::uint32_t k_error_inet_login_failure = 12015;
inline constexpr std::uint32_t k_error_inet_operation_cancelled = 12017;
inline constexpr std::uint32_t k_error_inet_incorrect_handle_type = 12018;
inline constexpr std::uint32_t k_error_inet_incorrect_handle_state = 12019;
inline constexpr std::uint32_t k_error_inet_request_pending = 12026;
inline constexpr std::uint32_t k_error_inet_cannot_connect = 12029;
inline constexpr std::uint32_t k_error_inet_connection_aborted = 12030;
inline constexpr std::uint32_t k_error_inet_connection_reset = 12031;
inline constexpr std::uint32_t k_error_inet_force_retry = 12032;
inline constexpr std::uint32_t k_error_inet_cert_date_invalid = 12037;
inline constexpr std::uint32_t k_error_inet_cert_cn_invalid = 12038;
inline constexpr std::uint32_t k_error_inet_redirect_to_https = 12039;
inline constexpr std::uint32_t k_error_inet_redirect_to_http = 12040;
inline constexpr std::uint32_t k_error_inet_async_thread_failed = 12047;
inline constexpr std::uint32_t k_error_inet_client_cert_needed = 12044;
inline constexpr std::uint32_t k_error_inet_invalid_ca = 12045;
inline constexpr std::uint32_t k_error_inet_revocation_check_failed = 12057;
inline constexpr std::uint32_t k_error_http_header_not_found = 12150;
inline constexpr std::uint32_t k_error_http_invalid_server_response = 12152;
inline constexpr std::uint32_t k_error_http_invalid_header = 12153;
inline constexpr std::uint32_t k_error_http_invalid_query_request = 12154;
inline constexpr std::uint32_t k_error_http_redirect_failed = 12156;
inline constexpr std::uint32_t k_error_inet_security_channel = 12157;
inline constexpr std::uint32_t k_error_inet_invalid_cert = 12169;
inline constexpr std::uint32_t k_error_inet_cert_revoked = 12170;

// Flags of the dialogue.
inline constexpr std::uint32_t k_dialog_filter_for_errors = 1;
inline constexpr std::uint32_t k_dialog_change_options = 2;
inline constexpr std::uint32_t k_dialog_generate_data = 4;
inline constexpr std::uint32_t k_dialog_no_ui = 8;

/// How a call ended: done, running on (one notice 100 follows), or failed with a number.
struct inet_status {
    std::uint32_t error = 0;

    bool ok() const noexcept { return error == 0; }
    bool pending() const noexcept { return error == k_error_io_pending; }
};

struct inet_read_status {
    inet_status status;
    /// Written to the destination, also by a read that failed behind them; 0 when ok is the end of the body.
    std::uint32_t bytes = 0;
};

/// The information of notice 100.
struct inet_async_result {
    std::uintptr_t result = 0;  ///< 1 success, 0 failure
    std::uint32_t error = 0;    ///< 0 or the error number
    std::uint32_t bytes = 0;    ///< of a read: bytes written to its destination; 0 is the end of the body
};

/// Receives notices. `handle` is the handle that the notice is about, but the parent for notice 60.
/// information by notice: 60 and 70 point to an inet_handle; 100 to an inet_async_result; 31 and 41 to
/// a std::uint32_t count of bytes; 110 to zero-terminated wide text, the new URL; 10, 11, 20, 21 to text
/// that isn't to be interpreted; else null. It lives until the callback returns.
using inet_callback = void (*)(inet_handle handle, std::uintptr_t context, std::uint32_t notice,
                               const void* information, std::uint32_t length);

enum class inet_send_mode {
    whole,  ///< send and receive the response's headers: one completion
    begin,  ///< send only: `end` follows
};
enum class inet_timeout { connect, send, receive };
enum class inet_credentials { server, proxy };

/// The HTTP service of the system.
///
/// Handles form a tree, session -> connection -> request; closing one closes everything below it,
/// children before parents, the youngest first. All calls may be made from any thread.
///
/// Every call leaves its number in the thread's last error: 0 after success, 997 when pending, else the
/// error. Wrong handles: 6 for connect, close, read on null and the options of a closed handle; 12018
/// for everything else.
///
/// Asynchronous handles (descendants of a session opened as such):
///  - `send` and `end` always answer pending and deliver exactly one notice 100; `read` may finish at once
///    and then delivers none.
///  - notice 100 comes on a thread of the service; that of an `end` whose outcome is known already comes
///    inside the call, on the caller's thread, before it returns.
///  - notices of one request come one at a time and in order. Notice 60 comes inside `connect` and
///    `open_request`, on the caller's thread, before they return; 70 is the last one of a handle.
///  - a call whose context is 0 gets no notices.
///  - one operation at a time: a second one is refused with 12026.
///  - the callback may call back into this class.
///
/// Synchronous handles: calls return when they are done, never pending. Their notices come inside the calls,
/// on the calling thread, and none of them is 100; while a large body goes out, 31 may come several times
/// with the bytes so far. A call that waits delays no other thread's. `close` from another thread ends a
/// call that waits with 12017; it doesn't wait for its return. The limit of connections doesn't count: each
/// call that waits has its own.
///
/// Time-outs are per wait, in milliseconds; 0 and 0xFFFFFFFF mean no limit. They run while an operation is
/// pending or a call waits: what has come waits for its reader without one.
class inet_service {
public:
    virtual ~inet_service() = default;

    /// Opens a session. proxy: entries of "[scheme=]host[:port]", for k_access_proxy only (87 when
    /// empty there). agent: the User-Agent, none when empty. Null on failure.
    virtual inet_handle open(std::uint32_t access, std::basic_string_view<wchar> proxy,
                             std::basic_string_view<wchar> bypass, std::basic_string_view<wchar> agent,
                             bool async) = 0;

    /// Sets the callback of a session and of the handles made from it later. Returns the one before.
    virtual inet_callback set_callback(inet_handle session, inet_callback callback) = 0;

    /// Makes a connection handle; touches no network. port 0 is the default one. An empty user or
    /// password means none. Null on failure: 87 for an empty host.
    virtual inet_handle connect(inet_handle session, std::basic_string_view<wchar> host, std::uint16_t port,
                                std::basic_string_view<wchar> user, std::basic_string_view<wchar> password,
                                std::uintptr_t context) = 0;

    /// Makes a request handle. verb: as sent, GET when empty; object: path and query. Null on failure.
    virtual inet_handle open_request(inet_handle connection, std::basic_string_view<wchar> verb,
                                     std::basic_string_view<wchar> object, std::uint32_t flags,
                                     std::uintptr_t context) = 0;

    /// Sends the request; a request that was sent before is started anew (its old response is dropped).
    /// headers: lines separated by CR LF, added to those of earlier sends or replacing them by name.
    /// body:    must stay valid until the handle is closed or sent anew; null when body_bytes is 0.
    virtual inet_status send(inet_handle request, std::basic_string_view<wchar> headers, const void* body,
                             std::uint32_t body_bytes, inet_send_mode mode, std::uintptr_t context) = 0;

    /// Completes a request sent with `begin`: waits for the response's headers, following redirects.
    virtual inet_status end(inet_handle request, std::uintptr_t context) = 0;

    /// Reads body bytes until `capacity` is filled or the body ends. Bytes may be written to
    /// `destination` until the read has completed or `close` has returned.
    virtual inet_read_status read(inet_handle request, void* destination, std::uint32_t capacity,
                                  std::uintptr_t context) = 0;

    /// How many bytes can be read without waiting; waits for the first one. ok with 0: the end.
    virtual inet_read_status available(inet_handle request) = 0;

    /// A header or another text of the response. index: which of several equal ones, advanced by one on
    /// success (not for levels 18 to 22). text: for k_query_custom the header's name on entry; the value
    /// on success, untouched otherwise. 12150 when absent.
    virtual inet_status query_text(inet_handle request, std::uint32_t what, std::uint32_t& index,
                                   wide_string& text) = 0;

    /// The same as a number: the status code (0 before any response) or a numeric header. 12150 when
    /// absent, 12153 when it is no number or above 2^32 - 1.
    virtual inet_status query_number(inet_handle request, std::uint32_t what, std::uint32_t& number) = 0;

    /// Time-outs of a handle, copied to its children when they are made. A null handle means the
    /// process-wide value, which a request takes when it is opened unless a nearer one was set.
    virtual inet_status set_timeout(inet_handle handle, inet_timeout kind, std::uint32_t milliseconds) = 0;
    virtual inet_status get_timeout(inet_handle handle, inet_timeout kind, std::uint32_t& milliseconds) = 0;

    /// Credentials of a connection; set on a request they are its connection's. A null text leaves that
    /// half as it is. 12009 for a session or null.
    virtual inet_status set_credentials(inet_handle handle, inet_credentials whose, const wide_string* user,
                                        const wide_string* password) = 0;
    virtual inet_status get_credentials(inet_handle handle, inet_credentials whose, wide_string& user,
                                        wide_string& password) = 0;

    /// How many connections one server may have at a time, process-wide; further requests wait in order.
    /// Error 160 for 0.
    virtual inet_status set_connection_limit(std::uint32_t count) = 0;

    /// Shows the dialogue that an error of a request calls for. parent: must not be null (6) unless
    /// k_dialog_no_ui is set. Returns 0 nothing shown or nothing changed, 12032 send again, 1223 cancelled,
    /// 87 null request, 6 bad request.
    virtual std::uint32_t dialog(void* parent, inet_handle request, std::uint32_t error,
                                 std::uint32_t flags) = 0;

    /// Closes a handle and everything below it, cancelling what is pending. A callback for it that runs
    /// on another thread is waited for (one that runs on the calling thread isn't), and none starts after
    /// the return; no destination or body is touched any more. So never close while holding a lock that
    /// the callback takes. What was pending completes with 12017 inside the call; notice 70 follows there.
    virtual inet_status close(inet_handle handle) = 0;
};

inet_service& inet();  ///< the one in force; the system's lives until unload
/// Puts another in force, null the system's again. Returns the one that was, null for the system's. Only
/// while nothing runs.
inet_service* replace_inet_for_test(inet_service* service);

}  // namespace kro::tessel::os
