// What only a system with forks and environments can be made to show: a copy of the process that hangs, and
// settings that change.
#include "support/ascii.h"
#include "tessel/platform/host.h"
#include "tessel/proxy/saved_accounts.h"

#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <future>
#include <list>
#include <string>
#include <thread>

namespace tessel_test {
namespace {

using kro::tessel::CTString;

#if !defined(__SANITIZE_ADDRESS__)  // whose own locks nobody opens in the copy
class slow_finder final : public IProxyFinder {
public:
    int GetProxyInfo(int, const wchar*, unsigned short, int* notPreconfigured, int* bAsync, wchar* buffer,
                     unsigned long*) override {
        *notPreconfigured = 1;
        *bAsync = 0;
        std::copy_n(TESSEL_W("http=p:1"), 9, buffer);
        std::this_thread::yield();
        return 1;  // asked each time, so that the lock is mostly held
    }
    void SetAccount(const wchar*, const wchar*) override {}
    int BookAccount(const wchar*, unsigned short, const wchar*, const wchar*) override { return 0; }
};

TEST(ProxyAccounts, ACopyOfTheProcessAsksNobody) {
    kro::tessel::set_proxy_finder_factory([](IProxyFinderSink*) -> IProxyFinder* { return new slow_finder; });
    const CTString url(TESSEL_W("http://h/"));
    CLumProxyUtil& util = GetProxyUtil();
    std::atomic<bool> done{false};
    std::thread asks([&] {
        while (!done) {
            util.PrepareProxyInfo(url);
        }
    });
    for (int i = 0; i < 20; ++i) {
        const pid_t child = ::fork();
        if (child == 0) {
            ::alarm(20);  // another thread's lock is held for ever
            std::list<kro::tessel::http::proxy_info> routes;
            const bool asked = util.GetProxyInfo(url, routes) != 0 || util.PrepareProxyInfo(url) != 0;
            std::exit(asked ? 1 : 0);  // with its exit handlers
        }
        int status = -1;
        EXPECT_EQ(child, ::waitpid(child, &status, 0));
        EXPECT_EQ(0, status);
    }
    done = true;
    asks.join();
}
#endif

// The finder of another program's making; it returns when the process has ended.
class stuck_finder final : public IProxyFinder {
public:
    explicit stuck_finder(void (*stuck)()) : m_stuck(stuck) {}
    int GetProxyInfo(int, const wchar*, unsigned short, int*, int*, wchar*, unsigned long*) override {
        m_stuck();
        ::pause();
        return 1;
    }
    void SetAccount(const wchar*, const wchar*) override {}
    int BookAccount(const wchar*, unsigned short, const wchar*, const wchar*) override { return 0; }

private:
    void (*m_stuck)();
};

std::promise<void> g_is_stuck;

[[noreturn]] void leave_during_a_query_of_another_thread() {
    ::alarm(60);
    kro::tessel::set_proxy_finder_factory(
        [](IProxyFinderSink*) -> IProxyFinder* { return new stuck_finder([] { g_is_stuck.set_value(); }); });
    std::thread([] { GetProxyUtil().PrepareProxyInfo(CTString(TESSEL_W("http://h/"))); }).detach();
    g_is_stuck.get_future().wait();
    std::exit(7);
}

[[noreturn]] void leave_inside_a_query() {
    kro::tessel::set_proxy_finder_factory(
        [](IProxyFinderSink*) -> IProxyFinder* { return new stuck_finder([] { std::exit(7); }); });
    GetProxyUtil().PrepareProxyInfo(CTString(TESSEL_W("http://h/")));
    std::abort();
}

TEST(ProxyUtilDeathTest, AnExitWaitsForNoFinder) {
    testing::FLAGS_gtest_death_test_style = "threadsafe";
    EXPECT_EXIT(leave_during_a_query_of_another_thread(), testing::ExitedWithCode(7), "");
    EXPECT_EXIT(leave_inside_a_query(), testing::ExitedWithCode(7), "");
}

// A host runs for days: what it is told meanwhile counts for the next server.
TEST(ProxySettings, AreReadAnewForEachServer) {
    kro::tessel::set_proxy_finder_factory(nullptr);
    CLumProxyUtil util;
    for (const char* const host : {"one", "two"}) {
        ::setenv("http_proxy", (std::string("http://proxy-") + host + ":1").c_str(), 1);
        std::list<kro::tessel::http::proxy_info> routes;
        EXPECT_EQ(1, util.GetProxyInfo(CTString(wide(std::string("http://") + host + "/")), routes));
        ASSERT_EQ(1U, routes.size());
        EXPECT_EQ(wide(std::string("proxy-") + host), routes.front().server);
    }
    ::unsetenv("http_proxy");
}

}  // namespace
}  // namespace tessel_test
