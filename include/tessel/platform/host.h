// What a host may supply in place of a default, and the message loop for hosts that have none.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/types.h>
#include <tessel/proxy/proxy_finder.h>

#include <cstdint>
#include <functional>

namespace kro::tessel {

/// Where trace lines go.
///
/// Both functions are called from every thread that traces, several at once, sometimes while the
/// library holds a lock of its own request: they must return soon, must not wait for another thread
/// (the user-interface thread above all) and must not throw.
struct trace_sink {
    /// Stores one line: the level and the zero-terminated text, prefix included, without a line end.
    /// The text is only lent.
    void (*write)(int level, const wchar* text);
    /// The level that is wanted. Scopes and debug lines are written only when it is exactly 9; every
    /// other line is handed to `write` whatever it is.
    int (*level)();
};

/// Sets the sink for the whole process; call it before other threads trace. A sink with a null function
/// brings the default back: standard error on Linux, at the level that the environment variable
/// TESSEL_TRACE names (0 when unset), the debugger's output on Windows.
TESSEL_API void set_trace_sink(trace_sink sink);

/// Sets the ANSI code page, the one that code page number 0 stands for. The default is that of the
/// user's locale (LC_ALL, LC_CTYPE, LANG, read at first use): 65001, UTF-8, when there is none.
/// number: a Windows code page number that the library knows; any other is refused.
/// Returns: false, with nothing changed, when the code page isn't known.
/// Thread:  any; conversions that are running may still use the old one.
TESSEL_API bool set_ansi_code_page(std::uint32_t number);

/// What a prompt for credentials is told and fills in.
struct credentials_request {
    bool for_proxy = false;  ///< whose credentials: a proxy's (407) or the server's (401)
    CTString host;           ///< the server's or proxy's name, with ":port"
    CTString realm;          ///< the realm of the challenge, may be empty
    CTString user;           ///< in: the user name that was tried last; out: the one entered
    CTString password;       ///< out: the password entered
};

/// Asks the user for credentials. Called on the user-interface thread, from a step of a request, or on the
/// thread of a synchronous transfer; it may run a nested loop. Returns false when the user cancelled.
using credentials_prompt = bool (*)(credentials_request& request);

/// Sets the prompt behind the authentication dialogue on Linux; null brings the default back. That is the
/// program named by the environment variable TESSEL_ASKPASS, else SSH_ASKPASS: it is run without a shell,
/// with the question as its argument, once for the user name and once for the password, and writes the answer
/// as a line of UTF-8; the loop turns meanwhile. No program, no answer, a status other than 0 or five minutes
/// without an end count as "cancelled". On Windows the system's own dialogue is shown and the prompt isn't
/// used.
TESSEL_API void set_credentials_prompt(credentials_prompt prompt);

/// Sets what finds the proxies of a server; null brings the default back: the environment and the settings of
/// the desktop on Linux, the user's settings on Windows. The factory is asked once,
/// at the first question about a proxy, so set it before the first request. It may return null: then every
/// request goes to its server directly.
/// Thread: any.
TESSEL_API void set_proxy_finder_factory(proxy_finder_factory factory);

/// The namespace of the service that CLumSoapClient asks for the client's configuration, where none is set.
inline constexpr const wchar* k_soap_service_namespace =
    TESSEL_W("http://services.tessel.invalid/client-configuration");

/// Sets that namespace for the whole process: the URI that the service's description calls its target
/// namespace, of any form. An empty one brings k_soap_service_namespace back.
/// Thread: any; exchanges that are running keep the one that they began with.
TESSEL_API void set_soap_service_namespace(const CTString& uri);

/// A message loop for hosts that have none of their own. On Linux each function turns the GLib main
/// context that is the calling thread's default; a host that runs GTK, Qt on GLib or a `GMainLoop`
/// needs none of this. Completion procedures and timers run inside these calls.
namespace message_loop {

/// Delivers messages until `quit` is called on this thread. Loops may be nested: `quit` ends the
/// innermost one.
TESSEL_API void run();

/// Delivers messages until `done` answers true or the time is up. `done` is asked before the first
/// message and after each one.
/// milliseconds: 0xFFFFFFFF for no limit.
/// Returns:      the last answer of `done`.
TESSEL_API bool run_until(const std::function<bool()>& done, std::uint32_t milliseconds);

/// Ends the innermost `run` of the calling thread, or its next one when none is running.
TESSEL_API void quit();

/// Delivers what is waiting and returns without blocking. Returns true when anything was delivered.
TESSEL_API bool pump();

}  // namespace message_loop
}  // namespace kro::tessel
