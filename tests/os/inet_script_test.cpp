// Requests that go by a desktop whose proxies a script names, through the real helper.
#include "os/inet_client.h"
#include "os/linux/inet_script_routes.h"
#include "os/linux/inet_text.h"

#include "support/test_server.h"

#include <gio/gio.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <future>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tessel_test {
namespace {

using testing::StartsWith;
using proxies = os::script_routes::proxies;

// "p1-2.test" is reached through the ports 1 and 2 of this machine.
const char* const k_script = R"(
    function FindProxyForURL(url, host) {
        if (host == '0.0.0.0') throw 'no';
        if (host == 'hang.test') for (;;);
        return host.slice(1, -5).split('-').map(function(port) { return 'PROXY 127.0.0.1:' + port; }).join(';');
    })";

std::string host_behind(const std::string& ports) {
    return 'p' + ports + ".test";
}

std::string port_of(const test_server& server) {
    return std::to_string(server.port());
}

class InetScript : public testing::Test {
protected:
    static void SetUpTestSuite() {
        s_folder = testing::TempDir() + "tessel-inet-script-" + std::to_string(::getpid());
        std::filesystem::create_directories(s_folder);
        std::ofstream(s_folder + "/proxy.pac") << k_script;
        ::setenv("GSETTINGS_BACKEND", "memory", 1);
        ::setenv("TESSEL_PROXY_HELPER", TESSEL_HELPER, 1);
    }
    static void TearDownTestSuite() { std::filesystem::remove_all(s_folder); }

    void SetUp() override {
        if (!std::filesystem::exists("/usr/share/glib-2.0/schemas/org.gnome.system.proxy.gschema.xml")) {
            GTEST_SKIP() << "gsettings-desktop-schemas isn't installed";
        }
        const std::unique_ptr<GSettings, void (*)(void*)> settings(g_settings_new("org.gnome.system.proxy"),
                                                                   g_object_unref);
        g_settings_set_string(settings.get(), "mode", "auto");
        g_settings_set_string(settings.get(), "autoconfig-url",
                              ("file://" + s_folder + "/proxy.pac").c_str());
    }
    void TearDown() override { os::inet().close(m_session); }

    os::inet_handle open(bool async, const std::string& host, std::uint16_t port = 0) {
        m_session = os::inet().open(os::k_access_preconfigured, {}, {}, {}, async);
        os::inet().set_callback(m_session, notice_log::callback);
        const auto connection = os::inet().connect(m_session, os::widen(host), port, {}, {}, 0);
        return os::inet().open_request(connection, {}, {}, 0, m_log.context());
    }
    os::inet_status send(os::inet_handle request) {
        return os::inet().send(request, {}, nullptr, 0, os::inet_send_mode::whole, m_log.context());
    }

    test_server m_server;
    notice_log m_log;
    os::inet_handle m_session = nullptr;

private:
    static inline std::string s_folder;
};

TEST_F(InetScript, RequestsOnBothPathsGoWhereItSays) {
    const std::string host = host_behind(port_of(m_server));
    send(open(true, host));
    auto peer = m_server.accept();
    EXPECT_THAT(peer.read_request(), StartsWith("GET http://" + host + "/ HTTP/1.1"));
    peer.answer("");
    EXPECT_EQ(0U, m_log.wait().error);
    os::inet().close(m_session);

    auto outcome = std::async(std::launch::async, [&] { return send(open(false, host)); });
    auto next = m_server.accept();
    EXPECT_THAT(next.read_request(), StartsWith("GET http://" + host + "/ HTTP/1.1"));
    next.answer("");
    EXPECT_EQ(0U, outcome.get().error);
}

TEST_F(InetScript, ARedirectAsksAgainAndAProxyOutOfReachIsPassedOver) {
    test_server other;
    const std::string host = host_behind(port_of(test_server()) + '-' + port_of(m_server));
    send(open(true, host));
    auto peer = m_server.accept();
    EXPECT_THAT(peer.read_request(), StartsWith("GET http://" + host + "/ HTTP/1.1"));
    const std::string second = "http://" + host_behind(port_of(other)) + "/x";
    peer.send("HTTP/1.1 302 Found\r\nLocation: " + second + "\r\nContent-Length: 0\r\n\r\n");
    auto next = other.accept();
    EXPECT_THAT(next.read_request(), StartsWith("GET " + second + " HTTP/1.1"));
    next.answer("");
    EXPECT_EQ(0U, m_log.wait().error);
}

TEST_F(InetScript, OneThatFailsLeavesTheServerItself) {
    send(open(true, "0.0.0.0", m_server.port()));  // this machine, under a name that is no exception
    auto peer = m_server.accept();
    EXPECT_THAT(peer.read_request(), StartsWith("GET / HTTP/1.1"));
    peer.answer("");
    EXPECT_EQ(0U, m_log.wait().error);
}

TEST_F(InetScript, ClosingEndsARequestWhoseScriptHangs) {
    const auto waiting = open(false, "hang.test");
    auto outcome = std::async(std::launch::async, [&] { return send(waiting); });
    while (os::inet().available(waiting).status.error != os::k_error_inet_request_pending) {
        std::this_thread::yield();
    }
    os::inet().close(m_session);
    EXPECT_EQ(os::k_error_inet_operation_cancelled, outcome.get().error);

    send(open(true, "hang.test"));
    os::inet().close(m_session);
    EXPECT_EQ(os::k_error_inet_operation_cancelled, m_log.wait().error);
}

/// Keeps the receivers until the test answers.
class scripted_scripts final : public os::proxy_script_service {
public:
    void ask(os::proxy_script_question question, receiver answered) override {
        if (question.host == "throws.test") {
            throw std::bad_alloc();
        }
        s_asked.push_back(std::move(answered));
    }
    static std::unique_ptr<os::proxy_script_service> make() { return std::make_unique<scripted_scripts>(); }

    static inline std::vector<receiver> s_asked;
};

TEST(InetScriptRoutes, OneQuestionServesAllThatWaitAndThoseThatComeSoon) {
    os::script_routes routes(scripted_scripts::make);
    const os::proxy_script_question question{"file:///x.pac", "a.test", 80};
    std::vector<proxies> told;
    const auto tell = [&told](const proxies& given) { told.push_back(given); };
    EXPECT_FALSE(routes.find(question, tell));
    EXPECT_FALSE(routes.find(question, tell));
    ASSERT_EQ(1U, scripted_scripts::s_asked.size());
    using kind = os::proxy_route::kind;
    scripted_scripts::s_asked[0](
        {{{kind::https, "s.test", 443}, {kind::http, "p.test", 8080}, {kind::direct, {}, 0}}, {}, {}});
    const proxies expected{"p.test:8080", ""};
    EXPECT_EQ((std::vector{expected, expected}), told);
    EXPECT_EQ(expected, routes.find(question, tell));

    EXPECT_FALSE(routes.find({"file:///x.pac", "a.test", 81}, tell)) << "another server";
    scripted_scripts::s_asked[1]({{}, {}, "it is broken"});
    EXPECT_EQ(proxies(), told.back());
    EXPECT_EQ(proxies(), routes.find({"file:///x.pac", "throws.test", 80}, tell));
}

}  // namespace
}  // namespace tessel_test
