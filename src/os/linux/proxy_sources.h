// Where proxies are configured: the process's environment and the settings of the desktop.
#pragma once

#include "os/linux/proxy_bypass.h"
#include "os/linux/transfer.h"

#include <cstdint>
#include <string>

namespace kro::tessel::os {

struct configured_proxy {
    std::string host;  ///< ASCII; an IPv6 address in brackets
    std::uint16_t port = 0;
    bool secure = false;  ///< it is spoken to over TLS
    transfer_credentials account;
    std::string left_out;  ///< what is configured instead, or beside it, and is no HTTP proxy, in English

    bool named() const noexcept { return !host.empty() && port != 0; }
};

struct fixed_proxies {
    configured_proxy http;
    configured_proxy https;  ///< for https servers
    proxy_bypass bypass{proxy_bypass::rule::domains};

    const configured_proxy& proxy_for(bool secure_server) const noexcept {
        return secure_server ? https : http;
    }
};

/// https_proxy, http_proxy, all_proxy behind both, and no_proxy.
fixed_proxies environment_proxies();

struct desktop_proxies {
    fixed_proxies fixed;
    bool by_script = false;
    std::string script;  ///< its URL; empty: it has to be looked for
};

/// GNOME's settings, which other desktops write, too; none where their schema isn't installed. Read from the
/// store at each call: nothing waits for a main loop to bring changes.
desktop_proxies desktop_proxies_now();

}  // namespace kro::tessel::os
