// What only a system with forks and a registry of files can be made to show: a copy of the process that
// hangs, and a start that takes ever longer with the number of accounts.
#include "support/linux/temp_folder.h"
#include "tessel/platform/host.h"
#include "tessel/platform/registry.h"
#include "tessel/proxy/saved_accounts.h"

#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <list>
#include <string>
#include <thread>

namespace tessel_test {
namespace {

using kro::tessel::CTString;

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
        ASSERT_EQ(child, ::waitpid(child, &status, 0));
        ASSERT_EQ(0, status);
    }
    done = true;
    asks.join();
}

constexpr int k_many = 30'000;

// Written behind the registry's back: so many writes of its own, each on the disk, take minutes.
void fill(sqlite3* database, int count) {
    const std::string sql = R"(
        INSERT INTO key (parent, folded, name)
            WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i + 1 FROM n WHERE i < )" +
                            std::to_string(count) + R"()
            SELECT (SELECT max(id) FROM key), units(i, 1), units(i, 0) FROM n;
        INSERT INTO value (key, folded, name, type, data)
            SELECT id, x'0054005900500045', x'7400790070006500', 4, x'01000000' FROM key
            WHERE id > (SELECT max(parent) FROM key);)";
    ASSERT_EQ(SQLITE_OK, ::sqlite3_exec(database, sql.c_str(), nullptr, nullptr, nullptr))
        << ::sqlite3_errmsg(database);
}

// "P17:80" in UTF-16; the big end first where the second argument says so.
void units(sqlite3_context* context, int, sqlite3_value** arguments) {
    const std::string name = "P" + std::to_string(::sqlite3_value_int(arguments[0])) + ":80";
    const bool big = ::sqlite3_value_int(arguments[1]) != 0;
    std::string bytes;
    for (const char unit : name) {
        bytes += big ? std::string(1, 0) + unit : unit + std::string(1, 0);
    }
    ::sqlite3_result_blob(context, bytes.data(), static_cast<int>(bytes.size()), SQLITE_TRANSIENT);
}

TEST(ProxyAccounts, ManyLoadInTimeThatGrowsWithTheirNumber) {
    kro::tessel::registry::reg_key_deleter::del(
        kro::tessel::registry::reg_key(HKEY_CURRENT_USER, TESSEL_W("Software\\Halvik\\Bremora"), true)
            .open_subkey(TESSEL_W("proxy"), true));
    sqlite3* database = nullptr;
    ASSERT_EQ(SQLITE_OK, ::sqlite3_open(std::getenv("TESSEL_REGISTRY"), &database));
    ::sqlite3_create_function(database, "units", 2, SQLITE_UTF8, nullptr, units, nullptr, nullptr);
    fill(database, k_many);
    ::sqlite3_close(database);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(std::size_t{k_many}, kro::tessel::saved_proxy_accounts().size());
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    EXPECT_LT(took.count(), 60) << "a tenth of it is much already";
    EXPECT_FALSE(kro::tessel::forget_proxy_account(TESSEL_W("p1"), 81));
    EXPECT_TRUE(kro::tessel::forget_proxy_account(TESSEL_W("p29999"), 80));
    RecordProperty("milliseconds", static_cast<int>(took.count() * 1000));
}

}  // namespace
}  // namespace tessel_test
