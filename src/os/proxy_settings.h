// The system's proxy settings: what they say about a server at once, and the script that they may name
// instead.
#pragma once

#include "tessel/base/types.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

/// Whose word an answer is.
enum class proxy_source {
    none,         ///< nothing is configured: a direct connection
    environment,  ///< variables of the process; not on Windows
    desktop,      ///< fixed settings of the user's desktop
    script,       ///< the desktop names a script (PAC) or, on Windows, has one looked for (WPAD)
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

}  // namespace kro::tessel::os
