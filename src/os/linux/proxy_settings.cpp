#include "os/proxy_settings.h"

#include "os/linux/inet_text.h"
#include "os/linux/proxy_sources.h"

namespace kro::tessel::os {
namespace {

// Nothing but a proxy that can't be used is no decision for a direct connection: no route then.
void decide(proxy_decision& decision, proxy_source source, const configured_proxy& proxy, bool bypassed) {
    decision.source = source;
    decision.left_out = bypassed ? std::string() : proxy.left_out;
    if (bypassed) {
        decision.routes.emplace_back();
    } else if (proxy.named()) {
        const auto kind = proxy.secure ? proxy_route::kind::https : proxy_route::kind::http;
        decision.routes.push_back({kind, proxy.host, proxy.port});
    }
}

void append_account(std::vector<proxy_settings_account>& accounts, const configured_proxy& proxy) {
    if (proxy.named() && !proxy.account.user.empty()) {
        const auto kind = proxy.secure ? proxy_route::kind::https : proxy_route::kind::http;
        accounts.push_back({{kind, proxy.host, proxy.port}, proxy.account.user, proxy.account.password});
    }
}

}  // namespace

proxy_decision read_proxy_settings(std::basic_string_view<wchar> host, std::uint16_t port) {
    proxy_decision decision;
    inet_address address;
    address.secure = port == 443;
    address.host = lowered(ascii_host(host).value_or(to_utf8(host)));
    address.port = port;

    const fixed_proxies environment = environment_proxies();
    const configured_proxy& first = environment.proxy_for(address.secure);
    if (first.named() || !first.left_out.empty()) {
        decide(decision, proxy_source::environment, first, environment.bypass.covers(address));
        return decision;
    }
    const desktop_proxies desktop = desktop_proxies_now();
    const configured_proxy& proxy = desktop.fixed.proxy_for(address.secure);
    const bool bypassed = desktop.fixed.bypass.covers(address);
    if (desktop.by_script && !bypassed && desktop.script.empty()) {
        // Whoever answered to the name that is looked for would get to see all that the user does.
        decision.source = proxy_source::desktop;
        decision.left_out = "the script that the desktop has looked for in the network";
    } else if (desktop.by_script && !bypassed) {
        decision.source = proxy_source::script;
        decision.script = desktop.script;
        decision.url_host = address.host;
    } else if (proxy.named() || !proxy.left_out.empty() || desktop.by_script) {
        decide(decision, proxy_source::desktop, proxy, bypassed);
    } else {
        decision.routes.emplace_back();
    }
    return decision;
}

std::vector<proxy_settings_account> read_proxy_accounts() {
    std::vector<proxy_settings_account> accounts;
    for (const fixed_proxies& source : {environment_proxies(), desktop_proxies_now().fixed}) {
        append_account(accounts, source.http);
        append_account(accounts, source.https);
    }
    return accounts;
}

}  // namespace kro::tessel::os
