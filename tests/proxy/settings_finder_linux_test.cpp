// What the environment and the desktop's settings come to as a list of routes.
#include "proxy/create_proxy_finder.h"
#include "support/linux/temp_folder.h"
#include "support/trace_recorder.h"
#include "tessel/base/string.h"

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/wait.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

namespace tessel_test {
namespace {

using kro::tessel::wide_string;

struct answer {
    std::string list;
    bool preconfigured;
};

answer ask(const wchar* host, unsigned short port) {
    const std::unique_ptr<IProxyFinder> finder(CreateProxyFinder(nullptr));
    wchar buffer[1024];
    unsigned long capacity = 1024;
    int not_preconfigured = 7;
    int asynchronous = 7;
    EXPECT_EQ(0, finder->GetProxyInfo(0, host, port, &not_preconfigured, &asynchronous, buffer, &capacity));
    EXPECT_EQ(0, asynchronous);
    const wide_string wide = buffer;
    return {std::string(wide.begin(), wide.end()), not_preconfigured == 0};
}

void set_environment(std::initializer_list<std::pair<const char*, const char*>> variables) {
    for (const char* const name : {"http_proxy", "HTTP_PROXY", "https_proxy", "HTTPS_PROXY", "all_proxy",
                                   "ALL_PROXY", "no_proxy", "NO_PROXY"}) {
        ::unsetenv(name);
    }
    for (const auto& [name, value] : variables) {
        ::setenv(name, value, 1);
    }
}

// GLib asks once in a process where the settings are.
class own_settings {
public:
    own_settings() {
        std::filesystem::create_directories(m_folder.path() / "glib-2.0/settings");
        ::setenv("XDG_CONFIG_HOME", m_folder.path().c_str(), 1);
#if !defined(__SANITIZE_THREAD__)
        ::setenv("GSETTINGS_BACKEND", "keyfile", 1);
#endif
    }

    void write(const char* text) const {
        std::ofstream(m_folder.file("glib-2.0/settings/keyfile")) << text;
    }

    void use_script(const char* body) const {
        std::ofstream(m_folder.file("proxy.pac")) << "function FindProxyForURL(url, host) { " << body << " }";
        write(("[system/proxy]\nmode='auto'\nignore-hosts=['*.inner.example']\nautoconfig-url='file://" +
               m_folder.file("proxy.pac") + "'\n")
                  .c_str());
    }

private:
    const temp_folder m_folder;
};

const own_settings k_settings;

TEST(SettingsFinder, ReadsTheEnvironmentAnewEachTime) {
    set_environment({});
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 80).list);
    set_environment({{"http_proxy", "http://u:w@p.example:3128"},
                     {"HTTPS_PROXY", "https://s.example"},
                     {"no_proxy", ".inner.example,10.0.0.0/8"}});
    EXPECT_EQ("http=p.example:3128", ask(TESSEL_W("h.example"), 80).list);
    EXPECT_EQ("http=p.example:3128", ask(TESSEL_W("h.example"), 8080).list);
    EXPECT_EQ("https=s.example:443", ask(TESSEL_W("h.example"), 443).list);
    EXPECT_FALSE(ask(TESSEL_W("h.example"), 443).preconfigured);
    for (const wchar* const host : {TESSEL_W("a.inner.example"), TESSEL_W("10.1.2.3"), TESSEL_W("localhost"),
                                    TESSEL_W("127.0.0.9"), TESSEL_W("[::1]")}) {
        EXPECT_EQ("DIRECT", ask(host, 80).list) << wide_string(host).size();
    }
    const auto accounts = kro::tessel::proxy::accounts_in_proxy_settings();
    ASSERT_EQ(1U, accounts.size());
    EXPECT_EQ(TESSEL_W("p.example"), accounts[0].server);
    EXPECT_EQ(TESSEL_W("w"), accounts[0].password);
    set_environment({{"HTTP_PROXY", "http://p:1"}});
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 80).list)
        << "a server's own variable, when it runs for a request";
    set_environment({{"all_proxy", "socks5://p:1080"}});
    EXPECT_EQ("", ask(TESSEL_W("h.example"), 80).list) << "not a decision for direct";
    EXPECT_EQ("DIRECT", ask(TESSEL_W("localhost"), 80).list);
    set_environment({{"http_proxy", "http://[2001:db8::1]:80"}});
    EXPECT_EQ("", ask(TESSEL_W("h.example"), 80).list) << "a list has no room for it";
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 443).list);
    set_environment({});
}

class waiting_sink final : public IProxyFinderSink {
public:
    virtual ~waiting_sink() = default;
    void OnProxyGetted(const char* server, unsigned short port, const char* proxyList) override {
        m_answer.set_value(std::string(server) + " " + std::to_string(port) + " " + proxyList);
    }
    void OnErrorAccount(const wchar* /*server*/, unsigned short /*port*/) override {}

    std::string answer() {
        auto coming = m_answer.get_future();
        return coming.wait_for(std::chrono::seconds(60)) == std::future_status::ready ? coming.get() : "";
    }

private:
    std::promise<std::string> m_answer;
};

std::string answer_later(const wchar* host, unsigned short port) {
    waiting_sink sink;
    const std::unique_ptr<IProxyFinder> finder(CreateProxyFinder(&sink));
    wchar buffer[1024] = {1};
    unsigned long capacity = 1024;
    int not_preconfigured = 7;
    int asynchronous = 0;
    EXPECT_EQ(0, finder->GetProxyInfo(0, host, port, &not_preconfigured, &asynchronous, buffer, &capacity));
    EXPECT_EQ(1, asynchronous);
    EXPECT_EQ(0, not_preconfigured);
    EXPECT_EQ(0, buffer[0]);
    return sink.answer();
}

void asks_the_script() {
    EXPECT_EQ(-1, ::waitpid(-1, nullptr, WNOHANG)) << "no process without a script";
    ::setenv("TESSEL_PROXY_HELPER", TESSEL_HELPER, 1);
    k_settings.use_script(
        "if (host == 'bad.example') throw 'no'; return 'SOCKS s:1; PROXY p:1; HTTPS q:2; DIRECT';");
    EXPECT_EQ("H.example 8080 http=p:1;https=q:2;DIRECT", answer_later(TESSEL_W("H.example"), 8080));
    EXPECT_EQ(TESSEL_W(""), kro::tessel::last_proxy_problem());
    const trace_recorder trace(kro::tessel::trace_warning);
    EXPECT_EQ("bad.example 443 ", answer_later(TESSEL_W("bad.example"), 443)) << "not a decision for direct";
    EXPECT_TRUE(
        trace_recorder::has(TESSEL_W("The script for proxies has no answer for bad.example:443: no")));
    EXPECT_EQ(TESSEL_W("no"), kro::tessel::last_proxy_problem());
    EXPECT_EQ("DIRECT", ask(TESSEL_W("x.inner.example"), 80).list) << "exceptions need no script";

    ::setenv("TESSEL_PROXY_HELPER", "/nonexistent/helper", 1);
    EXPECT_EQ("h.example 80 ", answer_later(TESSEL_W("h.example"), 80));
    EXPECT_EQ(TESSEL_W("can't run /nonexistent/helper: No such file or directory"),
              kro::tessel::last_proxy_problem());
}

// A process of its own would be needed to change the backend once it is loaded: this test is the only one of
// it.
TEST(SettingsFinder, ReadsTheDesktopsSettings) {
#if defined(__SANITIZE_THREAD__)
    GTEST_SKIP() << "GLib's own threads aren't followed by ThreadSanitizer";
#endif
    if (!std::filesystem::exists("/usr/share/glib-2.0/schemas/org.gnome.system.proxy.gschema.xml")) {
        GTEST_SKIP() << "gsettings-desktop-schemas isn't installed";
    }
    set_environment({});
    k_settings.write(
        "[system/proxy]\nmode='manual'\nignore-hosts=['*.inner.example']\n[system/proxy/"
        "http]\nhost='d.example'\nport=8\n");
    EXPECT_EQ("http=d.example:8", ask(TESSEL_W("h.example"), 80).list);
    EXPECT_TRUE(ask(TESSEL_W("h.example"), 80).preconfigured);
    EXPECT_EQ("DIRECT", ask(TESSEL_W("x.inner.example"), 80).list);
    k_settings.write("[system/proxy]\nmode='auto'\nautoconfig-url=''\n");
    EXPECT_EQ("", ask(TESSEL_W("h.example"), 80).list) << "nothing is looked for in the network";
    EXPECT_NE(TESSEL_W(""), kro::tessel::last_proxy_problem());
    asks_the_script();
    k_settings.write("[system/proxy]\nmode='none'\n");
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 80).list);
}

}  // namespace
}  // namespace tessel_test
