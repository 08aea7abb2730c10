// What the environment and the desktop's settings come to as a list of routes.
#include "proxy/create_proxy_finder.h"
#include "support/linux/temp_folder.h"
#include "tessel/base/string.h"

#include <gtest/gtest.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
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
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 80).list);
    set_environment({{"http_proxy", "http://[2001:db8::1]:80"}});
    EXPECT_EQ("", ask(TESSEL_W("h.example"), 80).list)
        << "the list has no room for it; not a decision for direct";
    set_environment({});
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
    k_settings.write("[system/proxy]\nmode='auto'\nautoconfig-url='http://pac.example/'\n");
    EXPECT_EQ("", ask(TESSEL_W("h.example"), 80).list) << "a script isn't a decision for a direct connection";
    k_settings.write("[system/proxy]\nmode='none'\n");
    EXPECT_EQ("DIRECT", ask(TESSEL_W("h.example"), 80).list);
}

}  // namespace
}  // namespace tessel_test
