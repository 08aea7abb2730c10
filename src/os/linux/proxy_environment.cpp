#include "os/linux/curl_url.h"
#include "os/linux/proxy_sources.h"

#include <charconv>
#include <cstdlib>

namespace kro::tessel::os {
namespace {

const char* variable(const char* lower, const char* upper) {
    const char* value = std::getenv(lower);
    if ((value == nullptr || *value == 0) && upper != nullptr) {
        value = std::getenv(upper);
    }
    return value != nullptr && *value != 0 ? value : nullptr;
}

std::uint16_t port_of(const url_handle& url, bool secure) {
    std::uint16_t port = secure ? 443 : 80;
    const std::string digits = part_of(url, CURLUPART_PORT);
    std::from_chars(digits.data(), digits.data() + digits.size(), port);
    return port;
}

// Its account stays out of what is said about a URL.
configured_proxy parse_proxy(const char* text) {
    configured_proxy proxy;
    if (text == nullptr) {
        return proxy;
    }
    const url_handle url = make_url();
    if (url == nullptr) {
        return proxy;
    }
    const bool has_scheme = std::string_view(text).find("://") != std::string_view::npos;
    const std::string whole = has_scheme ? text : std::string("http://") + text;
    if (curl_url_set(url.get(), CURLUPART_URL, whole.c_str(), CURLU_NON_SUPPORT_SCHEME) != CURLUE_OK) {
        proxy.left_out = "a proxy in the environment that is no URL";
        return proxy;
    }
    const std::string scheme = lowered(part_of(url, CURLUPART_SCHEME));
    if (scheme != "http" && scheme != "https") {
        proxy.left_out = "the proxy " + scheme + "://" + part_of(url, CURLUPART_HOST) + " in the environment";
        return proxy;
    }
    proxy.secure = scheme == "https";
    proxy.host = lowered(part_of(url, CURLUPART_HOST));
    proxy.port = port_of(url, proxy.secure);
    proxy.account.user = part_of(url, CURLUPART_USER, CURLU_URLDECODE);
    proxy.account.password = part_of(url, CURLUPART_PASSWORD, CURLU_URLDECODE);
    return proxy;
}

}  // namespace

fixed_proxies environment_proxies() {
    fixed_proxies result;
    const char* const all = variable("all_proxy", "ALL_PROXY");
    // HTTP_PROXY isn't looked at: a web server's child finds a client's "Proxy:" header there.
    const char* const http = variable("http_proxy", nullptr);
    const char* const https = variable("https_proxy", "HTTPS_PROXY");
    result.http = parse_proxy(http != nullptr ? http : all);
    result.https = parse_proxy(https != nullptr ? https : all);
    if (const char* const none = variable("no_proxy", "NO_PROXY")) {
        each_list_entry(none, ", \t", [&result](std::string_view entry) { result.bypass.add(entry); });
    }
    return result;
}

}  // namespace kro::tessel::os
