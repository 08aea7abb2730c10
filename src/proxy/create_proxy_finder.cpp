#include "proxy/create_proxy_finder.h"

#include "os/code_page.h"
#include "os/proxy_settings.h"

#include "base/text_conversion.h"
#include "proxy/settings_finder.h"
#include "tessel/platform/host.h"

#include <atomic>

namespace kro::tessel {
namespace {

std::atomic<proxy_finder_factory> g_factory{nullptr};

CTString wide(const std::string& utf8) {
    return CTString(widen(os::k_code_page_utf8, utf8));
}

http::proxy_type type_of(os::proxy_route::kind kind) {
    return kind == os::proxy_route::kind::https ? http::proxy_https : http::proxy_http;
}

}  // namespace

void set_proxy_finder_factory(proxy_finder_factory factory) {
    g_factory.store(factory);
}

}  // namespace kro::tessel

IProxyFinder* CreateProxyFinder(IProxyFinderSink* sink) {
    const auto factory = kro::tessel::g_factory.load();
    return factory != nullptr ? factory(sink) : kro::tessel::proxy::make_settings_finder(sink).release();
}

bool kro::tessel::proxy::host_finds_proxies() noexcept {
    return g_factory.load() != nullptr;
}

std::vector<kro::tessel::http::proxy_info> kro::tessel::proxy::accounts_in_proxy_settings() {
    std::vector<http::proxy_info> accounts;
    if (!host_finds_proxies()) {
        for (const os::proxy_settings_account& one : os::read_proxy_accounts()) {
            accounts.emplace_back(type_of(one.proxy.type), wide(one.proxy.host), one.proxy.port,
                                  wide(one.user), wide(one.password));
        }
    }
    return accounts;
}
