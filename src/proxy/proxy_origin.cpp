#include "tessel/proxy/proxy_origin.h"

#include "os/code_page.h"
#include "os/proxy_settings.h"
#include "os/url.h"

#include "base/text_conversion.h"
#include "proxy/create_proxy_finder.h"

#include <algorithm>
#include <string>

namespace kro::tessel {
namespace {

proxy_origin origin_of(os::proxy_source source) {
    switch (source) {
        case os::proxy_source::environment:
            return proxy_origin::environment;
        case os::proxy_source::desktop:
            return proxy_origin::desktop;
        case os::proxy_source::script:
            return proxy_origin::script;
        case os::proxy_source::none:
            break;
    }
    return proxy_origin::nothing;
}

// Whatever stands in front of the host's "@", so that a password with one in it doesn't stay.
std::string without_account(std::string url) {
    const std::size_t scheme = url.find("://");
    if (scheme != std::string::npos) {
        const std::size_t begin = scheme + 3;
        const std::size_t end = std::min(url.find_first_of("/?#", begin), url.size());
        const std::size_t sign = url.substr(0, end).rfind('@');
        if (sign != std::string::npos && sign >= begin) {
            url.erase(begin, sign + 1 - begin);
        }
    }
    return url;
}

}  // namespace

proxy_origin find_proxy_origin(const CTString& url, CTString& script) {
    script.clear();
    os::url_pieces pieces;
    if (os::crack_url(url, pieces) != 0 || pieces.host.empty() || pieces.port == 0) {
        return proxy_origin::nothing;
    }
    if (proxy::host_finds_proxies()) {
        return proxy_origin::host;
    }
    const os::proxy_decision decision = os::read_proxy_settings(pieces.host, pieces.port);
    script = CTString(widen(os::k_code_page_utf8, without_account(decision.script)));
    return origin_of(decision.source);
}

}  // namespace kro::tessel
