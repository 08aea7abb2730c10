// The proxy settings of the user, as the system's own programs have them.
#include "os/proxy_settings.h"

#include "os/windows/proxy_names.h"

#include <windows.h>
#include <winhttp.h>

#include <algorithm>
#include <cwctype>
#include <string>

namespace kro::tessel::os {
namespace {

using view = proxy_text;

/// What WinHTTP answers, freed at the end.
class user_settings {
public:
    user_settings() : m_known(WinHttpGetIEProxyConfigForCurrentUser(&m_config) != FALSE) {}
    user_settings(const user_settings&) = delete;
    user_settings& operator=(const user_settings&) = delete;
    ~user_settings() {
        for (wchar* const text : {m_config.lpszAutoConfigUrl, m_config.lpszProxy, m_config.lpszProxyBypass}) {
            GlobalFree(text);
        }
    }

    view proxies() const { return text(m_config.lpszProxy); }
    view bypass() const { return text(m_config.lpszProxyBypass); }
    view script() const { return text(m_config.lpszAutoConfigUrl); }
    bool by_script() const { return m_known && (m_config.fAutoDetect != FALSE || !script().empty()); }

private:
    static view text(const wchar* given) { return given == nullptr ? view() : view(given); }

    WINHTTP_CURRENT_USER_IE_PROXY_CONFIG m_config{};
    const bool m_known;
};

// Without case; "*" stands for any text.
bool matches(view pattern, view text) {
    std::size_t at = 0;
    std::size_t in = 0;
    std::size_t star = view::npos;
    std::size_t retry = 0;
    while (in < text.size()) {
        if (at < pattern.size() && pattern[at] == L'*') {
            star = at++;
            retry = in;
        } else if (at < pattern.size() && std::towlower(pattern[at]) == std::towlower(text[in])) {
            ++at;
            ++in;
        } else if (star != view::npos) {
            at = star + 1;
            in = ++retry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of(L'*', at) == view::npos;
}

bool is_bypassed(view host, view bypass) {
    if (matches(L"localhost", host) || matches(L"127.*", host) || host == L"[::1]" || host == L"::1") {
        return true;  // as the system does it, listed or not
    }
    return any_entry(bypass, [host](view entry) {
        return entry == L"<local>" ? host.find(L'.') == view::npos : matches(entry, host);
    });
}

// An entry for the scheme wins over one for all.
proxy_route proxy_for(bool secure, view proxies) {
    proxy_route found;
    const view prefix = secure ? L"https=*" : L"http=*";  // whatever its case
    any_entry(proxies, [&](view entry) {
        const bool is_own = matches(prefix, entry);
        if (is_own || entry.find(L'=') == view::npos) {
            found = route_of(is_own ? entry.substr(prefix.size() - 1) : entry);
        }
        return is_own;
    });
    return found.host.empty() || found.port == 0 ? proxy_route() : found;
}

proxy_decision fixed_decision(const user_settings& settings, view host, std::uint16_t port) {
    proxy_decision decision;
    if (is_bypassed(host, settings.bypass())) {
        decision.routes.emplace_back();
        return decision;
    }
    decision.routes.push_back(proxy_for(port == 443, settings.proxies()));
    if (!decision.routes.front().host.empty()) {
        decision.source = proxy_source::desktop;
    } else if (!settings.proxies().empty()) {  // for other schemes, or unreadable
        decision.left_out = ascii(settings.proxies());
    }
    return decision;
}

}  // namespace

proxy_decision read_proxy_settings(view host, std::uint16_t port) {
    const user_settings settings;
    if (!settings.by_script() || is_bypassed(host, {})) {
        return fixed_decision(settings, host, port);
    }
    proxy_decision decision;
    decision.source = proxy_source::script;
    decision.script = ascii(settings.script());
    decision.url_host = ascii(host);
    return decision;
}

proxy_decision read_fixed_proxy_settings(view host, std::uint16_t port) {
    return fixed_decision(user_settings(), host, port);
}

std::vector<proxy_settings_account> read_proxy_accounts() {
    return {};  // the system keeps accounts elsewhere and shows them to nobody
}

}  // namespace kro::tessel::os
