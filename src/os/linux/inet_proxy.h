// Which proxy a request goes through: a session's explicit list, or the environment's.
#pragma once

#include "os/linux/inet_address.h"
#include "os/linux/transfer.h"

#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

/// The proxies of a session; never changes once made, so any thread may ask.
class proxy_rules {
public:
    struct route {
        std::string proxy;  ///< "host:port", empty for a direct connection
        transfer_credentials account;
    };

    proxy_rules() = default;
    /// proxies: entries of "[scheme=][http://]host[:port]"; bypass: host patterns with "*", "<local>"
    /// (names without a dot) and "<-loopback>" (this machine goes through the proxy too). Entries are
    /// divided by blanks or semicolons.
    static proxy_rules explicit_ones(std::string_view proxies, std::string_view bypass);
    /// http_proxy, https_proxy, all_proxy and no_proxy, as they are now.
    static proxy_rules from_environment();

    route route_to(const inet_address& address) const;

private:
    void add_proxy(std::string_view entry);
    void add_url(route& where, const char* url);
    void add_bypass(std::string_view entry);
    bool bypasses(const inet_address& address) const;

    route m_http;
    route m_https;
    std::vector<std::string> m_bypass;  // lower case; patterns with "*", or "<local>"
    bool m_domains = false;             // no_proxy's rule: an entry also covers the names below it
    bool m_bypass_loopback = true;
};

}  // namespace kro::tessel::os
