#include "os/linux/inet_proxy.h"

#include <atomic>
#include <chrono>
#include <cstdint>
#include <limits>
#include <mutex>
#include <utility>

namespace kro::tessel::os {
namespace {

using clock = std::chrono::steady_clock;

// A session is opened for each synchronous transfer, and to read all the settings takes longer than a short
// one.
constexpr auto k_settings_stay = std::chrono::seconds(1);

struct system_proxies {
    std::shared_ptr<const fixed_proxies> environment;
    std::shared_ptr<const desktop_proxies> desktop;
};

bool names_any(const fixed_proxies& proxies) {
    return proxies.http.named() || proxies.https.named();
}

// A script that would have to be looked for in the network is none: whoever answered to the name would get to
// see all that the user does.
bool names_script(const desktop_proxies& desktop) {
    return desktop.by_script && !desktop.script.empty();
}

system_proxies proxies_now() {
    system_proxies now;
    fixed_proxies environment = environment_proxies();
    if (names_any(environment)) {
        now.environment = std::make_shared<const fixed_proxies>(std::move(environment));
    }
    desktop_proxies desktop = desktop_proxies_now();
    if (names_any(desktop.fixed) || names_script(desktop)) {
        now.desktop = std::make_shared<const desktop_proxies>(std::move(desktop));
    }
    return now;
}

/// What the environment and the desktop said last. Mostly they name no proxy, and then threads that open
/// sessions read one number and don't pass a lock to and fro.
class read_proxies {
public:
    system_proxies of_late() {
        const std::int64_t now = clock::now().time_since_epoch().count();
        if (now < m_none_until.load(std::memory_order_relaxed)) {
            return {};
        }
        const std::lock_guard lock(m_mutex);
        if (now >= m_due) {
            read(now);
        }
        return m_latest;
    }

private:
    void read(std::int64_t now) {
        m_latest = proxies_now();
        m_due = now + clock::duration(k_settings_stay).count();
        const bool are_none = m_latest.environment == nullptr && m_latest.desktop == nullptr;
        m_none_until.store(are_none ? m_due : k_never, std::memory_order_relaxed);
    }

    static constexpr std::int64_t k_never = std::numeric_limits<std::int64_t>::min();

    std::atomic<std::int64_t> m_none_until{k_never};  // as all times here in the clock's own units
    std::mutex m_mutex;                               // guards the two below
    system_proxies m_latest;
    std::int64_t m_due = k_never;
};

system_proxies system_proxies_of_late() {
    // Never destroyed: other threads may open sessions while the process ends.
    static read_proxies& s_read = *new read_proxies;
    return s_read.of_late();
}

constexpr std::string_view k_dividers = " \t\r\n;";

std::string with_port(std::string_view host) {
    std::string result(host);
    return has_port(host) ? result : result + ":80";
}

}  // namespace

proxy_rules proxy_rules::explicit_ones(std::string_view proxies, std::string_view bypass) {
    proxy_rules rules;
    each_list_entry(proxies, k_dividers, [&rules](std::string_view entry) { rules.add_proxy(entry); });
    each_list_entry(bypass, k_dividers, [&rules](std::string_view entry) { rules.m_bypass.add(entry); });
    return rules;
}

proxy_rules proxy_rules::preconfigured() {
    proxy_rules rules;
    system_proxies settings = system_proxies_of_late();
    rules.m_environment = std::move(settings.environment);
    rules.m_desktop = std::move(settings.desktop);
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
    if (scheme == "http" || (scheme.empty() && m_http.empty())) {
        m_http = with_port(host);
    }
    if (scheme == "https" || (scheme.empty() && m_https.empty())) {
        m_https = with_port(host);
    }
}

std::optional<proxy_script_question> proxy_rules::script_question(const inet_address& address) const {
    const bool is_decided = m_environment != nullptr && m_environment->proxy_for(address.secure).named();
    if (m_desktop == nullptr || !names_script(*m_desktop) || is_decided ||
        m_desktop->fixed.bypass.covers(address)) {
        return std::nullopt;
    }
    return proxy_script_question{m_desktop->script, address.host, address.port};
}

proxy_rules::route proxy_rules::settled_route(const inet_address& address) const {
    const fixed_proxies* const desktop =
        m_desktop == nullptr || m_desktop->by_script ? nullptr : &m_desktop->fixed;
    for (const fixed_proxies* const source : {m_environment.get(), desktop}) {
        if (source == nullptr) {
            continue;
        }
        const configured_proxy& proxy = source->proxy_for(address.secure);
        if (proxy.named()) {
            return source->bypass.covers(address)
                       ? route()
                       : route{proxy.host + ':' + std::to_string(proxy.port), proxy.account};
        }
    }
    return {};
}

proxy_rules::route proxy_rules::route_to(const inet_address& address) const {
    const std::string& proxy = address.secure ? m_https : m_http;
    if (proxy.empty()) {
        return settled_route(address);
    }
    return m_bypass.covers(address) ? route() : route{proxy, {}};
}

}  // namespace kro::tessel::os
