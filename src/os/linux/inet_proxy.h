// Which proxy a request goes through: a session's explicit list, or the system's settings.
#pragma once

#include "os/linux/inet_address.h"
#include "os/linux/proxy_bypass.h"
#include "os/linux/proxy_sources.h"
#include "os/linux/transfer.h"
#include "os/proxy_script.h"

#include <memory>
#include <optional>
#include <string>
#include <string_view>

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
    /// The environment's and the desktop's, as they are or were a second ago at most.
    static proxy_rules preconfigured();

    /// What the desktop's script has to be asked before a request goes to the address; mostly nothing.
    std::optional<proxy_script_question> script_question(const inet_address& address) const;
    /// The route when there is no such question.
    route route_to(const inet_address& address) const;

private:
    void add_proxy(std::string_view entry);
    route settled_route(const inet_address& address) const;

    std::string m_http;  // "host:port" of the explicit ones
    std::string m_https;
    proxy_bypass m_bypass;
    // The first that has a proxy for a server's scheme decides; null for one without any.
    std::shared_ptr<const fixed_proxies> m_environment;
    std::shared_ptr<const desktop_proxies> m_desktop;
};

}  // namespace kro::tessel::os
