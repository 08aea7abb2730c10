// Asking once per server, waiting for late answers, and accounts that every route shares: against a finder
// that answers as the test says, on any thread and at any time.
#include "tessel/proxy/proxy_util.h"

#include "proxy/discovery_wait.h"
#include "support/temp_registry.h"
#include "support/trace_recorder.h"
#include "tessel/platform/host.h"
#include "tessel/platform/registry.h"
#include "tessel/proxy/saved_accounts.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <string>
#include <thread>

namespace tessel_test {
namespace {

using kro::tessel::CTString;
using kro::tessel::wide_string;
using kro::tessel::http::proxy_info;

struct booked {
    wide_string server;
    unsigned short port;
    wide_string user;
};

class scripted_finder : public IProxyFinder {
public:
    explicit scripted_finder(IProxyFinderSink* sink) : m_sink(sink) { s_current = this; }
    ~scripted_finder() override {
        s_current = nullptr;
        if (s_on_end) {
            s_on_end(*m_sink);
        }
    }

    int GetProxyInfo(int first, const wchar* host, unsigned short port, int* notPreconfigured, int* bAsync,
                     wchar* buffer, unsigned long* capacity) override {
        EXPECT_EQ(0, first);
        EXPECT_EQ(1024U, *capacity);
        ++asked;
        *notPreconfigured = 1;
        *bAsync = asynchronous ? 1 : 0;
        wide_string(list).copy(buffer, 1023);
        if (inside) {
            inside(*m_sink, host, port);
        }
        return result;
    }
    void SetAccount(const wchar* user, const wchar* password) override {
        no_account = user == nullptr && password == nullptr;
    }
    int BookAccount(const wchar* server, unsigned short port, const wchar* user, const wchar*) override {
        accounts.push_back({server, port, user});
        return 0;
    }

    int result = 0;
    bool asynchronous = false;
    const wchar* list = TESSEL_W("");
    std::function<void(IProxyFinderSink&, const wchar*, unsigned short)> inside;
    std::atomic<int> asked{0};
    bool no_account = false;
    std::vector<booked> accounts;

    static inline scripted_finder* s_current = nullptr;
    static inline std::function<void(IProxyFinderSink&)> s_on_end;

private:
    IProxyFinderSink* m_sink;
};

class ProxyUtil : public testing::Test {
public:
    ProxyUtil() {
        kro::tessel::set_proxy_finder_factory(
            [](IProxyFinderSink* sink) -> IProxyFinder* { return new scripted_finder(sink); });
        m_util = std::make_unique<CLumProxyUtil>();
        m_finder = scripted_finder::s_current;
    }
    ~ProxyUtil() override { kro::tessel::set_proxy_finder_factory(nullptr); }

protected:
    // "server:port:user" of each route, joined; "-" when the query failed.
    wide_string routes(const wchar* url, unsigned long wait = 0) {
        std::list<proxy_info> found;
        int preconfigured = 7;
        const int answered = wait == 0 ? m_util->GetProxyInfo(url, found)
                                       : m_util->GetProxyInfo(url, preconfigured, found, wait);
        wide_string text;
        for (const proxy_info& one : found) {
            const std::string port = std::to_string(one.port);
            text += one.server + TESSEL_W(":") + wide_string(port.begin(), port.end()) + TESSEL_W(":") +
                    one.user + TESSEL_W(" ");
        }
        return answered == 0 ? TESSEL_W("-") + text : text;
    }

    std::unique_ptr<CLumProxyUtil> m_util;
    scripted_finder* m_finder = nullptr;
};

TEST_F(ProxyUtil, AsksOncePerHostAndPort) {
    const trace_recorder trace;
    m_finder->list = TESSEL_W("https=p:1;DIRECT");
    for (const wchar* const url :
         {TESSEL_W("http://h/a"), TESSEL_W("http://h:80/b"), TESSEL_W("http://user@h/")}) {
        EXPECT_EQ(TESSEL_W("p:1: :0: "), routes(url));
    }
    EXPECT_EQ(1, m_finder->asked);
    EXPECT_EQ(2U, trace.count(TESSEL_W("h:80 is in map")));
    EXPECT_TRUE(trace.has(TESSEL_W("bIEPreConfig: FALSE")));
    EXPECT_EQ(TESSEL_W("p:1: :0: "), routes(TESSEL_W("http://h:8080/")));
    EXPECT_EQ(TESSEL_W("p:1: :0: "), routes(TESSEL_W("http://H/")));
    EXPECT_EQ(3, m_finder->asked);
    EXPECT_EQ(0U, trace.count(TESSEL_W("Wait")));
    for (const wchar* const url : {TESSEL_W("no url"), TESSEL_W("mailto:x"), TESSEL_W("")}) {
        EXPECT_EQ(TESSEL_W("-"), routes(url));
    }
    EXPECT_EQ(2U, trace.count(TESSEL_W("Invalid url"))) << "once for each that is none";
    EXPECT_EQ(3, m_finder->asked);
    EXPECT_EQ(TESSEL_W("-"), routes(TESSEL_W("http://unprepared/"), 5));
    m_finder->result = 5;
    EXPECT_EQ(TESSEL_W("-"), routes(TESSEL_W("http://failed/")));
    m_finder->result = 0;
    EXPECT_EQ(0, m_util->PrepareProxyInfo(CTString(TESSEL_W("x"))));
    EXPECT_EQ(1, m_util->PrepareProxyInfo(std::vector<CTString>{CTString(TESSEL_W("http://failed/"))}));
    EXPECT_EQ(5, m_finder->asked) << "again after a failure";
}

TEST(DiscoveryWait, IsWhatIsLeftAndNeverNothing) {
    using kro::tessel::proxy::remaining_wait;
    EXPECT_EQ(9'500U, remaining_wait(10'000, 700, 200));
    EXPECT_EQ(1U, remaining_wait(10'000, 12'000, 0));
    EXPECT_EQ(1U, remaining_wait(10'000, 10'000, 0));
    EXPECT_EQ(9'990U, remaining_wait(10'000, 5, 0xFFFFFFFBU)) << "across the wrap of the tick";
    EXPECT_EQ(1U, remaining_wait(0, 9, 9));
}

TEST_F(ProxyUtil, WaitsForALateAnswerAndGoesOnWithoutOne) {
    const trace_recorder trace;
    m_finder->asynchronous = true;
    EXPECT_EQ(1, m_util->PrepareProxyInfo(CTString(TESSEL_W("http://late/"))));
    EXPECT_EQ(TESSEL_W(""), routes(TESSEL_W("http://late/"), 1)) << "answered, with nothing yet";
    EXPECT_TRUE(trace.has(TESSEL_W("Wait Timeout")));
    std::thread answers([this] {
        while (!trace_recorder::has(TESSEL_W("Wait the completion"))) {
            std::this_thread::yield();
        }
        m_util->OnProxyGetted("late", 80, "http=p:1;http=q:2");
    });
    trace.clear();
    EXPECT_EQ(TESSEL_W("p:1: q:2: "), routes(TESSEL_W("http://late/"), 0xFFFFFFFFU));
    answers.join();
    EXPECT_FALSE(trace.has(TESSEL_W("Adjust wait time")));
    trace.clear();
    m_util->OnProxyGetted("late", 80, "DIRECT");  // twice: it replaces
    EXPECT_EQ(TESSEL_W(":0: "), routes(TESSEL_W("http://late/")));
    EXPECT_FALSE(trace.has(TESSEL_W("Wait"))) << "the event is forgotten";
    m_util->OnProxyGetted("unknown", 80, "http=p:1");
    m_util->OnProxyGetted(nullptr, 0, nullptr);
    EXPECT_EQ(TESSEL_W("-"), routes(TESSEL_W("http://unknown/"), 1));
}

TEST_F(ProxyUtil, TakesAnAnswerThatComesInsideTheQuery) {
    m_finder->asynchronous = true;
    m_finder->inside = [this](IProxyFinderSink& sink, const wchar* host, unsigned short port) {
        sink.OnProxyGetted(port == 2 ? "other" : "h", port, port == 2 ? "http=p:2" : "http=p:80");
        sink.OnErrorAccount(TESSEL_W("p"), 1);
        if (wide_string(host) == TESSEL_W("h")) {  // causes others, and itself, before it has returned
            EXPECT_EQ(TESSEL_W("p:2: "), routes(TESSEL_W("http://other:2/")));
            EXPECT_EQ(TESSEL_W("-"), routes(TESSEL_W("http://h/")));
        }
    };
    EXPECT_EQ(TESSEL_W("p:80: "), routes(TESSEL_W("http://h/")));
    EXPECT_EQ(TESSEL_W("p:2: "), routes(TESSEL_W("http://other:2/")));
    EXPECT_TRUE(m_finder->no_account);
}

TEST_F(ProxyUtil, ALearnedAccountIsSeenByEveryRoute) {
    m_finder->list = TESSEL_W("http=p:1");
    EXPECT_EQ(TESSEL_W("p:1: "), routes(TESSEL_W("http://a/")));
    EXPECT_EQ(TESSEL_W("p:1: "), routes(TESSEL_W("http://b/")));
    proxy_info account(kro::tessel::http::proxy_http, TESSEL_W("p"), 1, TESSEL_W("CORP/alice"),
                       TESSEL_W("secret"));
    m_util->UpdateProxyAccount(account);
    EXPECT_EQ(TESSEL_W("p:1:CORP/alice "), routes(TESSEL_W("http://a/")));
    EXPECT_EQ(TESSEL_W("p:1:CORP/alice "), routes(TESSEL_W("http://b/")));
    ASSERT_EQ(1U, m_finder->accounts.size());
    EXPECT_EQ(TESSEL_W("CORP\\alice"), m_finder->accounts[0].user);
    account.password.clear();
    EXPECT_FALSE(m_util->BookExtProxyAccount(account));
    account = proxy_info(static_cast<kro::tessel::http::proxy_type>(3), TESSEL_W("p"), 1, TESSEL_W("u"),
                         TESSEL_W("w"));
    EXPECT_FALSE(m_util->BookExtProxyAccount(account));
}

TEST_F(ProxyUtil, SavedAccountsComeBackWithTheNextOne) {
    const wchar* const host = TESSEL_W("saved.proxy.example");
    const proxy_info account(kro::tessel::http::proxy_https, host, 3128, TESSEL_W("dom/u\u00DC"),
                             TESSEL_W("w"));
    ASSERT_EQ(1, m_util->SaveProxyInfo(account));
    ASSERT_EQ(1, m_util->SaveProxyInfo(proxy_info(account.type, host, 3128, CTString(), CTString())))
        << "leaves both in place";
    EXPECT_EQ(0,
              m_util->SaveProxyInfo(proxy_info(account.type, TESSEL_W("x\\y"), 80, CTString(), CTString())));
    CLumProxyUtil next;
    scripted_finder& its = *scripted_finder::s_current;
    ASSERT_EQ(1U, its.accounts.size());
    EXPECT_EQ(host, its.accounts[0].server);
    EXPECT_EQ(TESSEL_W("dom\\u\u00DC"), its.accounts[0].user);
    its.list = TESSEL_W("http=saved.proxy.example:3128");
    std::list<proxy_info> found;
    EXPECT_EQ(1, next.GetProxyInfo(CTString(TESSEL_W("http://h/")), found));
    ASSERT_EQ(1U, found.size());
    EXPECT_EQ(TESSEL_W("w"), found.front().password);
    EXPECT_TRUE(kro::tessel::forget_proxy_account(TESSEL_W("SAVED.proxy.example"), 3128));
    EXPECT_FALSE(kro::tessel::forget_proxy_account(host, 3128));
    EXPECT_TRUE(kro::tessel::saved_proxy_accounts().empty());
}

TEST_F(ProxyUtil, SkipsWhatSomebodyElseWroteAmongTheSaved) {
    using kro::tessel::registry::reg_key;
    const struct {
        const wchar* key;
        unsigned long type;
        const wchar* saved;  // null: no account
    } rows[] = {
        {TESSEL_W("no colon"), 1, nullptr},
        {TESSEL_W(":80"), 1, nullptr},
        {TESSEL_W("three:colons:80"), 1, nullptr},
        {TESSEL_W("typ:81"), 0xFFFFFFFF, nullptr},
        {TESSEL_W("good:80"), 2, TESSEL_W("good:80")},
        {TESSEL_W("zeros:0080"), 1, TESSEL_W("zeros:80")},
    };
    const reg_key accounts(HKEY_CURRENT_USER, TESSEL_W("Software\\Halvik\\Bremora\\proxy"), true);
    for (const auto& row : rows) {
        reg_key key(accounts.open_subkey(row.key, true));
        key.write_value(TESSEL_W("type"), row.type);
        key.write_value(TESSEL_W("user"), 7UL);  // no text
        const unsigned char bytes[] = {'s', 0, 0, 0, 'x'};
        key.write_value(TESSEL_W("password"), REG_BINARY, bytes, sizeof bytes);
    }
    wide_string found;
    for (const CLumProxyInfo& account : kro::tessel::saved_proxy_accounts()) {
        EXPECT_TRUE(account.user.empty());
        EXPECT_EQ(2U, account.password.size()) << "a zero stays, half a unit doesn't";
        const std::string port = std::to_string(account.port);
        found += account.server + TESSEL_W(":") + wide_string(port.begin(), port.end()) + TESSEL_W(" ");
    }
    EXPECT_EQ(TESSEL_W("good:80 zeros:80 "), found);
    EXPECT_EQ(1, m_util->LoadProxyInfo());
    EXPECT_TRUE(kro::tessel::forget_proxy_account(TESSEL_W("zeros"), 80)) << "however it was written";
    EXPECT_FALSE(kro::tessel::forget_proxy_account(TESSEL_W("port"), 80));
    for (const auto& row : rows) {
        EXPECT_EQ(wide_string(row.key).find(TESSEL_W("zeros")) != 0,
                  reg_key(accounts.key, TESSEL_W(""), false).delete_subkey(row.key));
    }
}

TEST_F(ProxyUtil, BearsAnyAnswer) {
    std::string list;
    for (int i = 0; i < 500'000; ++i) {
        list += "http=p:1;x;";
    }
    m_finder->asynchronous = true;
    m_util->PrepareProxyInfo(CTString(TESSEL_W("http://h/")));
    m_util->OnProxyGetted("h", 80, list.c_str());
    std::list<proxy_info> found;
    EXPECT_EQ(1, m_util->GetProxyInfo(CTString(TESSEL_W("http://h/")), found));
    EXPECT_EQ(500'000U, found.size());
    m_util->OnProxyGetted("h", 80, "http=\xC3\xBC:1;http=\xFF\xFE:2;https=\xED\xA0\x80:3");
    EXPECT_EQ(TESSEL_W("\u00FC:1: \uFFFD\uFFFD:2: "), routes(TESSEL_W("http://h/")).substr(0, 11));
}

// A finder's thread answers until the finder has gone; queries and new accounts run meanwhile.
TEST_F(ProxyUtil, BearsAnswersFromAllThreadsToTheEnd) {
    m_finder->asynchronous = true;
    CLumProxyUtil& util = *m_util;  // the pointer itself goes first
    std::atomic<bool> done{false};
    std::thread answers([&] {
        for (int i = 0; !done; ++i) {
            util.OnProxyGetted(i % 2 == 0 ? "a" : "b", 80, i % 3 == 0 ? "http=p:1" : "http=q:2;DIRECT");
        }
    });
    std::thread learns([&] {
        for (unsigned short i = 0; i < 300; ++i) {
            util.UpdateProxyAccount(
                {kro::tessel::http::proxy_http, TESSEL_W("p"), 1, TESSEL_W("u"), TESSEL_W("w")});
        }
    });
    for (int i = 0; i < 300; ++i) {
        EXPECT_NE(TESSEL_W("-"), routes(i % 2 == 0 ? TESSEL_W("http://a/") : TESSEL_W("http://b/")));
    }
    learns.join();
    scripted_finder::s_on_end = [&](IProxyFinderSink& sink) {  // waits for its thread, as a finder has to
        done = true;
        answers.join();
        sink.OnErrorAccount(TESSEL_W("p"), 1);
        sink.OnProxyGetted("a", 80, "http=last:1");
    };
    m_util.reset();
    scripted_finder::s_on_end = nullptr;
}

}  // namespace
}  // namespace tessel_test
