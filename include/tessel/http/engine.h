// Asynchronous HTTP requests by handle.
//
// A host calls `http_init` on its user-interface thread, which must run a message loop (on Linux: any
// GLib main loop, GTK and Qt on GLib included, or kro::tessel::message_loop). It then starts requests from
// any thread; each one's completion procedure is called on the thread that called `http_init`.
//
// Handles are session_context pointers typed as void*. The handle functions take any value: one that is
// no live request is traced and answered with the failure value.
//
// Cookies that servers set come along with later requests to them, synchronous ones included, in place of a
// Cookie header of the host's own. They end with the process, on Windows as the system has it.
#pragma once

#include <tessel/base/string.h>
#include <tessel/http/session.h>
#include <tessel/http/session_context.h>
#include <tessel/platform/last_error.h>

#include <cstdint>

namespace kro::tessel::http {

/// Prepares the calling thread for completions, and sets the process's receive time-out to 120,000 ms. Call
/// it before the first request; again is harmless.
/// Returns: false, traced, when the helper window can't be made (last error 1158: too many windows).
TESSEL_API bool http_init();

// Flags of invoke2.
inline constexpr unsigned long k_invoke_accept_gzip = 1;  ///< ask for gzip: "Accept-Encoding: gzip, deflate"
inline constexpr unsigned long k_invoke_decode_gzip = 2;  ///< inflate a gzip body before completion

/// Starts a request.
/// url:           absolute, http or https.
///                The first route that discovery knows for its server is taken (GetProxyUtil). That is asked
///                for here: at once where the settings are fixed or the host called
///                CLumProxyUtil::PrepareProxyInfo in good time; where a script decides, the call waits for
///                it, 10,000 ms at most.
/// headers:       lines separated by CR LF; when empty
///                "Content-Type: application/x-www-form-urlencoded;charset:utf-8" is sent.
/// data:          the body, copied; null when data_len is 0. GET, HEAD and DELETE send none.
/// complete_proc: called once when the request has ended. It may remove, detach or restart the context,
///                start others and run a nested loop; it must not throw.
/// Returns:       the handle, valid until it is removed or detached; null on failure, with the number in
///                the thread's last error (null procedure or empty URL: null alone).
/// Thread:        any, after http_init.
TESSEL_API session_context* invoke2(const CTString& url, const CTString& headers, const void* data,
                                    unsigned long data_len, unsigned long flags,
                                    complete_procedure complete_proc, unsigned long user_context,
                                    http_method_t method);

/// The same with the body as text, sent in UTF-8. One of more than 2^31 - 1 units or bytes is refused: null,
/// with 87.
TESSEL_API session_context* invoke2(const CTString& url, const CTString& headers, const CTString& body,
                                    unsigned long flags, complete_procedure complete_proc,
                                    unsigned long user_context, http_method_t method);

/// Makes the context that invoke2 would start, without starting it: for hosts that set more of it (`proxy`,
/// `preconfig`, `error_sink`, `auto_delete`) and then call `init_session`. Arguments and failures as
/// invoke2's. Returns: a context of the caller's (until init_session takes it over, or for `delete`).
TESSEL_API session_context* prepare_session(const CTString& url, const CTString& headers, const void* data,
                                            unsigned long data_len, unsigned long flags,
                                            complete_procedure complete_proc, unsigned long user_context,
                                            http_method_t method);

/// Starts a context that the host prepared, or a live or detached one again.
/// Returns: 0, and the manager owns the context from then on; else the error number, and a context that
///          wasn't live before is still the caller's.
TESSEL_API std::uint32_t init_session(session_context* context);

/// Starts a live request again from the beginning (set_url may have changed its URL).
/// Returns: false when it was started, true for almost every error (one whose low byte is zero gives false
///          too: kept). For a handle that isn't live: false.
TESSEL_API bool reinvoke(void* handle);

// Thread of the handle functions: any. set_url and set_auto_delete wait for a step of the request that is
// running on another thread.

TESSEL_API bool set_url(void* handle, const CTString& url);       ///< for `reinvoke`; false: not live
TESSEL_API void set_auto_delete(void* handle, bool auto_delete);  ///< remove it after its procedure
TESSEL_API complete_procedure get_complete_proc(void* handle);    ///< null: not live
TESSEL_API unsigned long get_user_context(void* handle);          ///< 0: not live

/// The request body, as sent: the context's own copy. len: its bytes; untouched when the handle isn't live
/// (null).
TESSEL_API void* get_data(void* handle, unsigned long& len);

}  // namespace kro::tessel::http
