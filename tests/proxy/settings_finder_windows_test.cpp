// What the user's settings on Windows come to as a list of routes, a script that they name included.
#include "os/proxy_script.h"

#include "proxy/create_proxy_finder.h"
#include "support/temp_registry.h"
#include "support/test_server.h"
#include "tessel/base/string.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <windows.h>

#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <new>
#include <string>

namespace tessel_test {
namespace {

namespace os = kro::tessel::os;
using kro::tessel::wide_string;

constexpr auto k_patience = std::chrono::seconds(20);

struct proxy_settings {
    std::string proxies, exceptions, script;
};

// HKEY_CURRENT_USER is a key of the test's own for as long as this lives, in this process alone.
class own_settings {
public:
    own_settings() {
        constexpr auto k_path =
            L"Software\\Microsoft\\Windows\\CurrentVersion\\Internet Settings\\Connections";
        ::RegCreateKeyExW(m_user.key(), k_path, 0, nullptr, 0, KEY_ALL_ACCESS, nullptr, &m_key, nullptr);
        ::RegOverridePredefKey(HKEY_CURRENT_USER, m_user.key());
    }
    own_settings(const own_settings&) = delete;
    own_settings& operator=(const own_settings&) = delete;
    ~own_settings() {
        ::RegOverridePredefKey(HKEY_CURRENT_USER, nullptr);
        ::RegCloseKey(m_key);
    }

    // As the control panel stores them: numbers of 32 bits, and behind each length its text.
    void use(const proxy_settings& what) const {
        constexpr std::uint32_t k_version = 70, k_direct = 1, k_proxy = 2, k_script = 4;
        std::string bytes;
        const auto append = [&bytes](std::uint32_t number) {
            bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
        };
        append(k_version);
        append(0);  // how often they were changed
        append(k_direct | (what.proxies.empty() ? 0 : k_proxy) | (what.script.empty() ? 0 : k_script));
        for (const std::string& text : {what.proxies, what.exceptions, what.script}) {
            append(static_cast<std::uint32_t>(text.size()));
            bytes += text;
        }
        bytes.append(32, '\0');  // what a look into the network has found
        ::RegSetValueExW(m_key, L"DefaultConnectionSettings", 0, REG_BINARY,
                         reinterpret_cast<const BYTE*>(bytes.data()), static_cast<DWORD>(bytes.size()));
    }

private:
    const temp_registry_key m_user;
    HKEY m_key = nullptr;
};

class waiting_sink final : public IProxyFinderSink {
public:
    virtual ~waiting_sink() = default;
    void OnProxyGetted(const char* server, unsigned short port, const char* proxyList) override {
        answer.set_value(std::string(server) + " " + std::to_string(port) + " " + proxyList);
    }
    void OnErrorAccount(const wchar* /*server*/, unsigned short /*port*/) override {}

    std::promise<std::string> answer;
};

// The list, or for one that comes later what the sink is told, once `serve` has returned.
std::string ask(
    const wchar* host, unsigned short port, const std::function<void()>& serve = [] {}) {
    waiting_sink sink;
    const std::unique_ptr<IProxyFinder> finder(CreateProxyFinder(&sink));
    wchar buffer[1024];
    unsigned long capacity = 1024;
    int not_preconfigured = 7;
    int asynchronous = 7;
    EXPECT_EQ(0, finder->GetProxyInfo(0, host, port, &not_preconfigured, &asynchronous, buffer, &capacity));
    const wide_string list = buffer;
    if (asynchronous == 0) {
        return {list.begin(), list.end()};
    }
    EXPECT_EQ(0, not_preconfigured);
    serve();
    auto coming = sink.answer.get_future();
    return coming.wait_for(k_patience) == std::future_status::ready ? coming.get() : "nothing came";
}

TEST(SettingsFinderWindows, ReadsWhatTheUserHasSet) {
    const own_settings settings;
    settings.use({});
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 80));
    settings.use({"http=p.example:8080;HTTPS=s.example:1", "<local>;*.inner.example", {}});
    EXPECT_EQ("http=p.example:8080", ask(TESSEL_W("h.example"), 80));
    EXPECT_EQ("http=s.example:1", ask(TESSEL_W("h.example"), 443));
    for (const wchar* const host :
         {TESSEL_W("a.INNER.example"), TESSEL_W("nodot"), TESSEL_W("localhost"), TESSEL_W("127.0.0.9")}) {
        EXPECT_EQ("DIRECT", ask(host, 80)) << host;
    }
    settings.use({"all.example", {}, {}});
    EXPECT_EQ("http=all.example:80", ask(TESSEL_W("nodot"), 443));
    settings.use({"socks=s.example:1080", {}, {}});
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 80));
}

TEST(SettingsFinderWindows, AsksTheScript) {
    const own_settings settings;
    // Each script has a URL of its own: the system may keep one that it has fetched.
    const auto decision = [&settings](const wchar* host, unsigned short port, const std::string& response) {
        test_server server;
        settings.use({{}, {}, "http://127.0.0.1:" + std::to_string(server.port()) + "/proxy.pac"});
        return ask(host, port, [&] {
            server_connection peer = server.accept();
            EXPECT_EQ(0U, peer.read_head().find("GET /proxy.pac HTTP/1.1\r\n"));
            peer.send(response);
        });
    };
    const auto script = [](const std::string& body) {
        const std::string text = "function FindProxyForURL(url, host) { " + body + " }";
        return "HTTP/1.1 200 OK\r\nContent-Type: application/x-ns-proxy-autoconfig\r\nConnection: close\r\n"
               "Content-Length: " +
               std::to_string(text.size()) + "\r\n\r\n" + text;
    };
    const std::string branches = script(
        "if (dnsDomainIs(host, '.inner.example')) return 'DIRECT';"
        "return 'PROXY ' + (url == 'https://h.example/' ? 'secure' : url == 'http://h.example:8080/' ? "
        "'other' : 'plain') + ':1';");
    EXPECT_EQ("a.inner.example 80 DIRECT", decision(TESSEL_W("a.inner.example"), 80, branches));
    EXPECT_EQ("h.example 443 http=secure:1", decision(TESSEL_W("h.example"), 443, branches));
    EXPECT_EQ("h.example 8080 http=other:1", decision(TESSEL_W("h.example"), 8080, branches));
    EXPECT_EQ("h.example 80 http=plain:1", decision(TESSEL_W("h.example"), 80, branches));
    EXPECT_EQ("h.example 80 http=a:1;http=b:2",
              decision(TESSEL_W("h.example"), 80, script("return 'PROXY a:1; PROXY b:2';")))
        << "several, in order";

    EXPECT_EQ("h.example 80 ", decision(TESSEL_W("h.example"), 80, script("return nothing();")))
        << "a script that fails decides for nothing";
    EXPECT_EQ(TESSEL_W("error 12166 of WinHTTP"), kro::tessel::last_proxy_problem());
    EXPECT_EQ("h.example 80 ",
              decision(TESSEL_W("h.example"), 80, "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n\r\n"));
    EXPECT_EQ(TESSEL_W("error 12167 of WinHTTP"), kro::tessel::last_proxy_problem()) << "not there";
    EXPECT_EQ("DIRECT", ask(TESSEL_W("localhost"), 80)) << "no script is asked";
}

// Nothing ends a question that the system is busy with; nobody waits for it, and no receiver hears of it.
TEST(ProxyScriptWindows, EndsWithQuestionsOpen) {
    test_server server;
    const std::string url = "http://127.0.0.1:" + std::to_string(server.port()) + "/";
    auto scripts = os::make_proxy_script_service();
    const auto never = [](const os::proxy_script_answer&) { ADD_FAILURE() << "after the end"; };
    scripts->ask({url, "h.example", 80}, never);
    server_connection silent = server.accept();
    silent.read_head();
    const auto ask_again_and_again = [&] {
        for (int i = 0; i < 1010; ++i) {  // a few of which other threads take from the heap
            scripts->ask({url, "h.example", 80}, never);
        }
    };
    EXPECT_THROW(ask_again_and_again(), std::bad_alloc) << "no heap without a limit";
    scripts.reset();
    silent.answer("function FindProxyForURL() { return 'DIRECT'; }");
}

TEST(ProxyScriptWindows, MayEndInsideAReceiver) {
    test_server server;
    auto* scripts = os::make_proxy_script_service().release();
    std::promise<void> ended;
    scripts->ask({"http://127.0.0.1:" + std::to_string(server.port()) + "/", "h.example", 80},
                 [&](const os::proxy_script_answer&) {
                     delete scripts;
                     ended.set_value();
                 });
    server.accept().answer("function FindProxyForURL() { return 'DIRECT'; }");
    EXPECT_EQ(std::future_status::ready, ended.get_future().wait_for(k_patience));
}

}  // namespace
}  // namespace tessel_test
