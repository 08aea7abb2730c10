#include "os/linux/inet_proxy.h"

#include "os/linux/curl_url.h"

#include <algorithm>
#include <cstdlib>

namespace kro::tessel::os {
namespace {

constexpr std::string_view k_dividers = " \t\r\n;";

template <class Visitor>
void each_entry(std::string_view list, std::string_view dividers, Visitor&& visit) {
    while (!list.empty()) {
        const auto end = std::min(list.find_first_of(dividers), list.size());
        if (end != 0) {
            visit(list.substr(0, end));
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

// "*" stands for any run of characters. Linear in practice: only the last star is gone back to.
bool matches(std::string_view pattern, std::string_view text) noexcept {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string_view::npos;
    std::size_t retry = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            retry = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++retry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

bool is_loopback(std::string_view host) noexcept {
    return host == "localhost" || host == "loopback" || host == "[::1]" || host.substr(0, 4) == "127.";
}

bool has_port(std::string_view host) noexcept {
    const auto bracket = host.rfind(']');
    const auto colon = host.rfind(':');
    return colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket);
}

std::string with_port(std::string_view host) {
    std::string result(host);
    return has_port(host) ? result : result + ":80";
}

const char* environment(const char* lower, const char* upper) {
    const char* value = std::getenv(lower);
    if ((value == nullptr || *value == 0) && upper != nullptr) {
        value = std::getenv(upper);
    }
    return value != nullptr && *value != 0 ? value : nullptr;
}

}  // namespace

proxy_rules proxy_rules::explicit_ones(std::string_view proxies, std::string_view bypass) {
    proxy_rules rules;
    each_entry(proxies, k_dividers, [&rules](std::string_view entry) { rules.add_proxy(entry); });
    each_entry(bypass, k_dividers, [&rules](std::string_view entry) { rules.add_bypass(entry); });
    return rules;
}

proxy_rules proxy_rules::from_environment() {
    proxy_rules rules;
    const char* const all = environment("all_proxy", "ALL_PROXY");
    // HTTP_PROXY isn't looked at: a web server's child finds a client's "Proxy:" header there.
    const char* const http = environment("http_proxy", nullptr);
    const char* const https = environment("https_proxy", "HTTPS_PROXY");
    rules.add_url(rules.m_http, http != nullptr ? http : all);
    rules.add_url(rules.m_https, https != nullptr ? https : all);
    if (const char* const none = environment("no_proxy", "NO_PROXY")) {
        rules.m_domains = true;
        each_entry(none, ", \t", [&rules](std::string_view entry) { rules.add_bypass(entry); });
    }
    return rules;
}

void proxy_rules::add_proxy(std::string_view entry) {
    const auto equals = entry.find('=');
    const std::string scheme =
        equals == std::string_view::npos ? std::string() : lowered(entry.substr(0, equals));
    std::string_view host = equals == std::string_view::npos ? entry : entry.substr(equals + 1);
    const auto scheme_end = host.find("://");
    if (scheme_end != std::string_view::npos) {
        host.remove_prefix(scheme_end + 3);
    }
    host = host.substr(0, host.find('/'));
    if (host.empty()) {
        return;
    }
    if (scheme == "http" || (scheme.empty() && m_http.proxy.empty())) {
        m_http.proxy = with_port(host);
    }
    if (scheme == "https" || (scheme.empty() && m_https.proxy.empty())) {
        m_https.proxy = with_port(host);
    }
}

void proxy_rules::add_url(route& where, const char* text) {
    const url_handle url = make_url();
    if (text == nullptr || url == nullptr ||
        curl_url_set(url.get(), CURLUPART_URL, text, CURLU_GUESS_SCHEME | CURLU_NON_SUPPORT_SCHEME) !=
            CURLUE_OK) {
        return;
    }
    const std::string port = part_of(url, CURLUPART_PORT);
    where.proxy = part_of(url, CURLUPART_HOST) + ':' + (port.empty() ? "80" : port);
    where.account.user = part_of(url, CURLUPART_USER, CURLU_URLDECODE);
    where.account.password = part_of(url, CURLUPART_PASSWORD, CURLU_URLDECODE);
}

void proxy_rules::add_bypass(std::string_view entry) {
    const std::string pattern = lowered(entry);
    if (pattern == "<-loopback>") {
        m_bypass_loopback = false;
        return;
    }
    m_bypass.push_back(pattern);
}

bool proxy_rules::bypasses(const inet_address& address) const {
    if (m_bypass_loopback && is_loopback(address.host)) {
        return true;
    }
    const std::string_view host = address.host;
    const std::string with_its_port = address.host + ':' + std::to_string(address.port);
    const std::string_view scheme = address.secure ? "https://" : "http://";
    return std::any_of(m_bypass.begin(), m_bypass.end(), [&](std::string_view pattern) {
        if (pattern == "<local>") {
            return host.find('.') == std::string_view::npos && host.front() != '[';
        }
        if (m_domains) {
            if (pattern.front() == '.') {
                pattern.remove_prefix(1);
            }
            const bool ends_so = host.size() > pattern.size() &&
                                 host.substr(host.size() - pattern.size()) == pattern &&
                                 host[host.size() - pattern.size() - 1] == '.';
            return ends_so || matches(pattern, host) || matches(pattern, with_its_port);
        }
        const auto scheme_end = pattern.find("://");
        if (scheme_end != std::string_view::npos) {
            if (pattern.substr(0, scheme_end + 3) != scheme) {
                return false;
            }
            pattern.remove_prefix(scheme_end + 3);
        }
        return has_port(pattern) ? matches(pattern, with_its_port) : matches(pattern, host);
    });
}

proxy_rules::route proxy_rules::route_to(const inet_address& address) const {
    const route& through = address.secure ? m_https : m_http;
    return through.proxy.empty() || bypasses(address) ? route() : through;
}

}  // namespace kro::tessel::os
