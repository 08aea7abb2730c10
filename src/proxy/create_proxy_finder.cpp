#include "proxy/create_proxy_finder.h"

#include "tessel/platform/host.h"

#include <atomic>

namespace kro::tessel {
namespace {

std::atomic<proxy_finder_factory> g_factory{nullptr};

}  // namespace

void set_proxy_finder_factory(proxy_finder_factory factory) {
    g_factory.store(factory);
}

}  // namespace kro::tessel

IProxyFinder* CreateProxyFinder(IProxyFinderSink* sink) {
    const auto factory = kro::tessel::g_factory.load();
    return factory != nullptr ? factory(sink) : nullptr;
}

std::vector<kro::tessel::http::proxy_info> kro::tessel::proxy::accounts_in_proxy_settings() {
    return {};
}
