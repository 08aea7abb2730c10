// What a request pays for its proxies: a server that has been asked for, one that hasn't, and a long list.
#include "proxy/decimal.h"
#include "support/beside.h"
#include "tessel/platform/host.h"
#include "tessel/proxy/proxy_util.h"

#include <algorithm>
#include <cstdlib>
#include <list>
#include <memory>
#include <new>
#include <string>
#include <string_view>
#include <vector>

namespace {

using kro::tessel::CTString;
using kro::tessel::wide_string;
using kro::tessel::http::proxy_info;
using view = std::basic_string_view<wchar>;

std::size_t g_allocations = 0;  // of the one thread here

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
    ++g_allocations;
    if (void* const memory = std::malloc(size)) {
        return memory;
    }
    throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept {
    std::free(memory);
}
[[gnu::noinline]] void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

namespace {

/// Answers at once, the same for every server.
class quick_finder final : public IProxyFinder {
public:
    int GetProxyInfo(int, const wchar*, unsigned short, int* notPreconfigured, int* bAsync, wchar* buffer,
                     unsigned long*) override {
        *notPreconfigured = 1;
        *bAsync = 0;
        const wide_string list = TESSEL_W("http=proxy.example:3128;DIRECT");
        buffer[list.copy(buffer, list.size())] = 0;
        return 0;
    }
    void SetAccount(const wchar*, const wchar*) override {}
    int BookAccount(const wchar*, unsigned short, const wchar*, const wchar*) override { return 0; }
};

std::unique_ptr<CLumProxyUtil> with_quick_finder() {
    kro::tessel::set_proxy_finder_factory(
        [](IProxyFinderSink*) -> IProxyFinder* { return new quick_finder; });
    return std::make_unique<CLumProxyUtil>();
}

// The counter `other_allocations`: those of a query beyond the ones of copying its routes. It is to be 0.
void cached_query(benchmark::State& state) {
    const auto util = with_quick_finder();
    const CTString url(TESSEL_W("http://a.server.of.the.company.example/folder/page?query"));
    std::list<proxy_info> known;
    util->GetProxyInfo(url, known);
    std::size_t other = 0;
    for ([[maybe_unused]] auto _ : state) {
        const std::size_t before = g_allocations;
        std::list<proxy_info> routes;
        util->GetProxyInfo(url, routes);
        other += g_allocations - before;
        benchmark::DoNotOptimize(routes);
    }
    const std::size_t before = g_allocations;
    const std::list<proxy_info> copy = known;
    const std::size_t own = g_allocations - before;
    state.counters["other_allocations"] =
        static_cast<double>(other) / static_cast<double>(state.iterations()) - static_cast<double>(own);
}
BENCHMARK(cached_query);

// The settings of this machine, read anew for each server: what a user-interface thread waits where no script
// decides.
void first_query_by_settings(benchmark::State& state) {
    kro::tessel::set_proxy_finder_factory(nullptr);
    CLumProxyUtil util;
    std::size_t number = 0;
    for ([[maybe_unused]] auto _ : state) {
        const std::string url = "http://server" + std::to_string(++number) + ".example/";
        std::list<proxy_info> routes;
        util.GetProxyInfo(CTString(wide_string(url.begin(), url.end())), routes);
        benchmark::DoNotOptimize(routes);
    }
}
BENCHMARK(first_query_by_settings);

struct scanned {
    view host;
    unsigned port;
};

// Finds the same pieces and keeps views of them.
std::size_t bare_scan(view list, std::vector<scanned>& found) {
    found.clear();
    while (!list.empty()) {
        const std::size_t end = std::min(list.find(wchar(';')), list.size());
        const view item = list.substr(0, end);
        list.remove_prefix(std::min(end + 1, list.size()));
        const std::size_t equals = item.find(wchar('='));
        const std::size_t colon = item.find(wchar(':'), equals + 1);
        if (equals != view::npos && colon != view::npos) {
            found.push_back({item.substr(equals + 1, colon - equals - 1),
                             kro::tessel::proxy::decimal(item.substr(colon + 1), 0xFFFF)});
        }
    }
    return found.size();
}

void list_of_a_hundred(benchmark::State& state) {
    const auto util = with_quick_finder();
    wide_string list;
    for (int i = 0; i < 100; ++i) {
        const std::string item = "http=proxy" + std::to_string(i) + ".company.example:3128;";
        list.append(item.begin(), item.end());
    }
    const CTString text(list);
    std::vector<scanned> found;
    std::size_t missing = 0;
    tessel_bench::compare(
        state, list.size() * sizeof(wchar), [&] { missing += bare_scan(list, found); },
        [&] {
            std::list<proxy_info> routes;
            util->ParseProxyList(text, routes);
            missing -= routes.size();
        });
    if (missing != 0) {
        state.SkipWithError("the two sides find different items");
    }
}
BENCHMARK(list_of_a_hundred)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
