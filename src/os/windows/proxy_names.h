// Lists of proxies and the fixed settings, for whoever reads them on this system.
#pragma once

#include "os/proxy_settings.h"

#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

namespace kro::tessel::os {

using proxy_text = std::basic_string_view<wchar>;

/// The settings without the script that they may name.
proxy_decision read_fixed_proxy_settings(proxy_text host, std::uint16_t port);

inline std::string ascii(proxy_text text) {
    std::string bytes;
    std::transform(text.begin(), text.end(), std::back_inserter(bytes),
                   [](wchar unit) { return static_cast<char>(unit < 0x80 ? unit : L'?'); });
    return bytes;
}

/// Calls `take` with each entry of a list that blanks and semicolons separate, until it answers true.
template <class Take>
bool any_entry(proxy_text list, Take take) {
    while (!list.empty()) {
        const std::size_t end = std::min(list.find_first_of(L"; \t\r\n"), list.size());
        if (end != 0 && take(list.substr(0, end))) {
            return true;
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
    return false;
}

// "host:port", without a port 80.
inline proxy_route route_of(proxy_text proxy) {
    proxy_route route;
    route.type = proxy_route::kind::http;
    const std::size_t scheme = proxy.find(L"://");
    proxy.remove_prefix(scheme == proxy_text::npos ? 0 : scheme + 3);
    const std::size_t colon = proxy.rfind(L':');
    const std::string digits = ascii(colon == proxy_text::npos ? proxy_text(L"80") : proxy.substr(colon + 1));
    route.host = ascii(proxy.substr(0, colon));
    const unsigned long port = std::strtoul(digits.c_str(), nullptr, 10);
    route.port = port > 0xFFFF ? std::uint16_t{0} : static_cast<std::uint16_t>(port);
    return route;
}

}  // namespace kro::tessel::os
