// Lists that a finder gives: what is understood, what is dropped, and that no list is too large or too odd.
#include "proxy/decimal.h"
#include "support/ascii.h"
#include "tessel/platform/host.h"
#include "tessel/proxy/proxy_util.h"

#include <gtest/gtest.h>

#include <string>
#include <tuple>
#include <vector>

namespace tessel_test {
namespace {

using kro::tessel::CTString;
using kro::tessel::wide_string;
using route = std::tuple<unsigned, wide_string, unsigned>;

std::vector<route> routes_of(const CTString& list) {
    kro::tessel::set_proxy_finder_factory([](IProxyFinderSink*) -> IProxyFinder* { return nullptr; });
    static CLumProxyUtil util;
    std::list<kro::tessel::http::proxy_info> parsed;
    EXPECT_EQ(1, util.ParseProxyList(list, parsed));
    std::vector<route> routes;
    for (const auto& one : parsed) {
        EXPECT_TRUE(one.user.empty() && one.password.empty());
        routes.emplace_back(one.type, one.server, one.port);
    }
    return routes;
}

TEST(ProxyList, ReadsItems) {
    const route direct{0, {}, 0};
    const auto proxy = [](unsigned type, const char* host, unsigned port) {
        return route{type, wide(host), port};
    };
    const std::pair<const char*, std::vector<route>> rows[] = {
        {"http=hostA:8080;https=hostB:443", {proxy(1, "hostA", 8080), proxy(2, "hostB", 443)}},
        {"DIRECT:0", {direct}},
        {"socks=hostA:1080;DIRECT", {direct}},
        {"", {}},
        {";;http=a:1;;", {proxy(1, "a", 1)}},
        {" DIRECT", {}},
        {"direct", {}},
        {"DIRECT:1", {}},
        {" ht tp = hostA : 80 80 ", {proxy(1, "hostA", 8080)}},
        {"http\t=a:1", {}},
        {"HTTP=a:1", {}},
        {"http=hostA", {}},
        {"http=:80", {}},
        {"hostA:80", {}},
        {"http=a:x", {}},
        {"http=a:-1", {}},
        {"http=a:\t81", {proxy(1, "a", 81)}},
        {"http=a:80x", {proxy(1, "a", 80)}},
        {"http=a:70000", {proxy(1, "a", 4464)}},
        {"http=a:65536", {}},
        {"http=a:1234567890123456789012345678901234567890", {proxy(1, "a", 65535)}},
        {"http=a:b:80", {}},
        {"http=a=b:80", {proxy(1, "a=b", 80)}},
    };
    for (const auto& [list, routes] : rows) {
        EXPECT_EQ(routes, routes_of(CTString(wide(list)))) << list;
    }
}

TEST(ProxyList, BearsListsOfAnySizeAndContent) {
    wide_string million;
    for (int i = 0; i < 1'000'000; ++i) {
        million += TESSEL_W("x;");
    }
    EXPECT_TRUE(routes_of(CTString(million)).empty());
    const wide_string host(std::size_t{1} << 20U, wchar(0xD800));
    EXPECT_EQ(std::vector<route>(1, route(2, host, 8)),
              routes_of(CTString(TESSEL_W("https=") + host + TESSEL_W(":8"))));
    EXPECT_EQ(std::vector<route>(1, route(1, wide_string(1, 0), 8)),
              routes_of(CTString(TESSEL_W("http=") + wide_string(1, 0) + TESSEL_W(":8"))));
}

}  // namespace
}  // namespace tessel_test
