// The system's proxy settings: what they say about a server at once, and the script that they may name
// instead.
#pragma once

#include "tessel/base/types.h"

#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

/// Whose word an answer is.
enum class proxy_source {
    none,         ///< nothing is configured: a direct connection
    environment,  ///< variables of the process; not on Windows
    desktop,      ///< fixed settings of the user's desktop
    script,       ///< the desktop names a script (PAC) or has one looked for (WPAD)
};

/// One way to a server.
struct proxy_route {
    enum class kind { direct, http, https };
    kind type = kind::direct;
    std::string host;  ///< ASCII; empty for a direct connection
    std::uint16_t port = 0;
};

/// An account that stands in the settings beside a proxy.
struct proxy_settings_account {
    proxy_route proxy;
    std::string user;  ///< UTF-8, like the password
    std::string password;
};

struct proxy_decision {
    proxy_source source = proxy_source::none;
    std::vector<proxy_route> routes;  ///< in the order to try; empty for a script
    std::string script;               ///< the script's URL; empty: it has to be looked for
    std::string url_host;             ///< for a script: the server's name as it stands in a URL
    std::string left_out;             ///< what is configured but no HTTP proxy, in English; may be empty
};

/// What the settings, as they are now, say about a server. Starts no process and asks no other machine.
/// host: a name or an address, ASCII or IDN. Port 443 is asked for as https, every other port as http.
proxy_decision read_proxy_settings(std::basic_string_view<wchar> host, std::uint16_t port);

/// The accounts in the settings.
std::vector<proxy_settings_account> read_proxy_accounts();

struct proxy_script_question {
    std::string script;  ///< as in proxy_decision
    std::string url;     ///< ASCII, "https://host/" or "http://host:port/"
};

struct proxy_script_answer {
    bool answered = false;            ///< false: `failure` says in English why there is no answer
    std::vector<proxy_route> routes;  ///< in the script's order; what isn't an HTTP proxy is left out
    std::string failure;
};

/// Runs the script where it can do the host no harm. One thread works with it (evaluate, rest); others only
/// wake and cancel.
class proxy_script_evaluator {
public:
    virtual ~proxy_script_evaluator() = default;

    /// Answers one question within a few seconds, whatever the script does; at once after `cancel`.
    virtual proxy_script_answer evaluate(const proxy_script_question& question) = 0;

    /// Sleeps until `wake` or `cancel`, which count when they came before. Lets go meanwhile of what
    /// nobody has needed for a while.
    virtual void rest() = 0;
    virtual void wake() noexcept = 0;
    /// For good: nothing waits any more.
    virtual void cancel() noexcept = 0;
};

/// Null when there is no memory or no descriptor left.
std::unique_ptr<proxy_script_evaluator> make_proxy_script_evaluator();

/// Whether scripts can be evaluated here: empty, else in English why not. Takes up to a few seconds.
std::string why_no_proxy_scripts();

}  // namespace kro::tessel::os
