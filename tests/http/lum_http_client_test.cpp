// The client that tries every route, on the system's HTTP service, against servers and proxies driven byte by
// byte.
#include "os/inet.h"

#include "support/ascii.h"
#include "support/list_finder.h"
#include "support/manual_message_windows.h"
#include "support/test_server.h"
#include "support/trace_recorder.h"
#include "tessel/tessel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

namespace tessel_test {
namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using kro::tessel::wide_string;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::Not;
using testing::StartsWith;
namespace os = kro::tessel::os;

constexpr std::uint32_t k_timeout = os::k_error_inet_timeout;

std::string answer(std::string_view head, std::string_view body) {
    return "HTTP/1.1 " + std::string(head) + "\r\nContent-Length: " + std::to_string(body.size()) +
           "\r\nConnection: close\r\n\r\n" + std::string(body);
}

// Notes how each route's transfer was set up.
class noting_client : public CLumHttpClient {
public:
    void on_completed(http_session* session, unsigned long action, const http_response* response) override {
        flags.emplace_back(std::string(session->is_accept_gzip_header() ? "accept " : "") +
                           (session->is_auto_decode_gzip() ? "decode " : "") +
                           (session->is_raw_data() ? "raw " : "") + std::to_string(action));
        CLumHttpClient::on_completed(session, action, response);
    }
    void on_response_error(http_session* session, void* request, unsigned long error,
                           error_resolvent& resolvent) override {
        resolvent = asks_again ? retry : resolvent;
        asks_again = false;
        CLumHttpClient::on_response_error(session, request, error, resolvent);
    }

    std::vector<std::string> flags;
    bool asks_again = false;
};

class LumHttpClient : public testing::Test {
public:
    LumHttpClient() {
        list_finder::install([this](const wide_string&) { return m_routes; });
    }

protected:
    CTString url() const { return wide(m_server.url("/a?b")); }

    // Answers the requests to come, one connection each, and keeps them.
    void serve(const std::vector<std::string>& answers) {
        m_requests.clear();
        m_player = std::thread([this, answers] {
            for (const std::string& one : answers) {
                server_connection peer = m_server.accept();
                m_requests.push_back(peer.read_request());
                one.empty() ? static_cast<void>(peer.wait_for_close()) : peer.send(one);
            }
        });
    }
    int request(unsigned long flags = 0) {
        const int status = m_client.Request(url().c_str(), http_method_get, nullptr, nullptr, flags);
        m_error = kro::tessel::get_last_error();  // joining may change it
        m_player.join();
        return status;
    }

    wide_string m_routes;  // to every server
    const trace_recorder m_trace;
    test_server m_server;
    std::thread m_player;
    std::vector<std::string> m_requests;
    noting_client m_client;
    unsigned long m_error = 0;
};

TEST_F(LumHttpClient, TakesTheFirstRouteThatWorksWithItsAccount) {
    const std::string dead = test_server().address();
    m_routes = wide("http=" + dead + ";http=" + m_server.address() + ";DIRECT");
    GetProxyUtil().UpdateProxyAccount(
        {proxy_http, TESSEL_W("127.0.0.1"), m_server.port(), TESSEL_W("ann"), TESSEL_W("secret")});
    serve({answer("407 Who\r\nProxy-Authenticate: Basic realm=\"x\"", "no"), answer("200 OK", "yes")});
    EXPECT_EQ(200, m_client.Request(TESSEL_W("http://far.test/x"), http_method_get, nullptr, nullptr, 0));
    m_player.join();
    EXPECT_EQ(TESSEL_W("yes"), m_client.ResponseContent());
    EXPECT_THAT(m_requests.back(), StartsWith("GET http://far.test/x HTTP/1.1\r\n"));
    EXPECT_THAT(m_requests.back(), HasSubstr("Proxy-Authorization: Basic YW5uOnNlY3JldA==\r\n"));
    std::vector<std::string> lines;
    for (const auto& [level, line] : trace_recorder::lines()) {
        const std::string plain(line.begin(), line.end());
        for (const char* const part : {"CLumHttpClient", "url: ", "Error: "}) {
            if (plain.find(part) != std::string::npos) {
                lines.push_back(plain.substr(plain.find(": ") + 2));
                break;
            }
        }
    }
    EXPECT_THAT(
        lines,
        ElementsAre(
            "---->>>> Enter CLumHttpClient::Invoke()", "url: http://far.test/x",
            "---->>>> Enter CLumHttpClient::_InvokeWithProxyUtil()",
            "CLumHttpClient use proxy: " + dead + "::", "---->>>> Enter CLumHttpClient::on_send_data_error()",
            "<<<<---- Leave CLumHttpClient::on_send_data_error()",
            "---->>>> Enter CLumHttpClient::on_response_error()",
            "<<<<---- Leave CLumHttpClient::on_response_error()", "CLumHttpClient invoke FAILED",
            "Error: 12029", "CLumHttpClient use proxy: " + m_server.address() + ":ann:secret",
            "CLumHttpClient invoke OK", "<<<<---- Leave CLumHttpClient::_InvokeWithProxyUtil()",
            "<<<<---- Leave CLumHttpClient::Invoke()"));
}

TEST_F(LumHttpClient, FailsWithTheLastRoutesErrorAndStopsWhenCancelled) {
    m_server.stop_listening();
    EXPECT_EQ(12029U, m_client.Invoke(http_method_get, url(), nullptr, 0, nullptr, 0, 0));
    EXPECT_EQ(12029U, kro::tessel::get_last_error());
    EXPECT_EQ(1U, trace_recorder::count(TESSEL_W("CLumHttpClient use direct connection")));
    EXPECT_EQ(nullptr, m_client.GetResponse());
    EXPECT_TRUE(m_client.ResponseContent().empty());
    EXPECT_EQ(12006U, m_client.Invoke(http_method_get, TESSEL_W("nonsense"), nullptr, 0, nullptr, 0, 0));
    EXPECT_EQ(87U, m_client.Invoke(http_method_post, url(), nullptr, 5, nullptr, 0, 0));
    EXPECT_EQ(87U, m_client.Invoke(http_method_post, url(), nullptr, 0, nullptr, 5, 0));
    const transfer_watch watch;
    m_client.set_watch(watch);
    watch.cancel.cancel();
    EXPECT_EQ(12017U, m_client.Invoke(http_method_get, url(), nullptr, 0, nullptr, 0, 0));
}

TEST_F(LumHttpClient, WaitsTwiceAsLongAfterEachTimeOut) {
    os::inet_service& net = os::inet();
    std::uint32_t before = 0;
    net.get_timeout(nullptr, os::inet_timeout::receive, before);
    net.set_timeout(nullptr, os::inet_timeout::receive, 100);
    serve({"", "", answer("200 OK", "late")});
    EXPECT_EQ(200, request());
    net.set_timeout(nullptr, os::inet_timeout::receive, before);

    const os::inet_handle session = net.open(os::k_access_direct, {}, {}, {}, false);
    const os::inet_handle handle = net.open_request(net.connect(session, TESSEL_W("h"), 80, {}, {}, 0),
                                                    TESSEL_W("GET"), TESSEL_W("/"), 0, 0);
    const struct {
        std::uint32_t at_first, error, then;
        error_resolvent resolvent;
    } rows[] = {{60000, k_timeout, 120000, retry},     {120000, k_timeout, 240000, retry},
                {120001, k_timeout, 120001, default_}, {0xFFFFFFFF, k_timeout, 0xFFFFFFFF, default_},
                {0, k_timeout, 0, default_},           {60000, 12029, 60000, failed}};
    for (const auto& row : rows) {
        error_resolvent resolvent = failed;
        std::uint32_t then = 1;
        net.set_timeout(handle, os::inet_timeout::receive, row.at_first);
        m_client.on_send_data_error(nullptr, handle, row.error, resolvent);
        net.get_timeout(handle, os::inet_timeout::receive, then);
        EXPECT_EQ(row.then, then) << row.at_first;
        EXPECT_EQ(row.resolvent, resolvent) << row.at_first;
    }
    net.close(session);
}

TEST_F(LumHttpClient, ADirectServerThatWantsAProxysLoginIsNotAskedAgain) {
    serve({answer("407 Who\r\nProxy-Authenticate: Basic realm=\"x\"", "no")});
    m_client.asks_again = true;
    EXPECT_EQ(407, request());
    EXPECT_EQ(1U, m_client.flags.size());
    serve({answer("503 Busy", ""), answer("200 OK", "")});
    m_client.asks_again = true;
    EXPECT_EQ(200, request()) << "for any other status the answer stands";
}

TEST_F(LumHttpClient, SendsWhatItIsGivenAndForgetsTheFlags) {
    wide_string body = TESSEL_W("\u20AC");
    wide_string headers = TESSEL_W("X-One: 1\r\nX-Two: 2");
    wide_string nothing;
    serve({answer("200 OK", ""), answer("200 OK", ""), answer("200 OK", ""), answer("200 OK", "")});
    m_client.Request(url().c_str(), http_method_post, body.data(), headers.data(), k_client_accept_gzip);
    m_client.Request(url().c_str(), http_method_post, body.data(), 2, headers.data(), 0,
                     k_client_raw_data | k_client_decode_gzip);
    m_client.Request(url().c_str(), http_method_post, nothing.data(), nothing.data(), 0);
    m_client.Request(url().c_str(), http_method_post, body.data(), 0, headers.data(), 16, 0xE0 | 0x18);
    m_player.join();
    const auto sent = [this](std::size_t which) {
        return m_requests[which].substr(m_requests[which].find("\r\n\r\n") + 4);
    };
    EXPECT_EQ("\xE2\x82\xAC", sent(0));
    EXPECT_EQ("\xAC\x20", sent(1));
    EXPECT_EQ("", sent(2));
    EXPECT_EQ("", sent(3));
    EXPECT_THAT(m_requests[0], HasSubstr("\r\nX-One: 1\r\nX-Two: 2\r\n"));
    EXPECT_THAT(m_requests[0], HasSubstr("\r\nAccept-Encoding: gzip, deflate\r\n"));
    EXPECT_THAT(m_requests[1], Not(HasSubstr("X-One")));
    EXPECT_THAT(m_requests[2], Not(HasSubstr("X-One")));
    EXPECT_THAT(m_requests[3], HasSubstr("\r\nX-One: 1\r\n"));
    EXPECT_THAT(m_client.flags, ElementsAre("accept 0", "accept decode raw 0", "0", "24"));
}

TEST_F(LumHttpClient, HandsTheBodyOutInPieces) {
    char room[8] = {};
    unsigned long size = 3;
    serve({answer("200 OK", "hello"), answer("200 OK", "")});
    EXPECT_EQ(200, m_client.Request(url().c_str(), http_method_get, nullptr, nullptr, 0));
    const ILumHttpResponse* const response = m_client.GetResponse();
    EXPECT_EQ(87U, response->GetRawContent(room, nullptr));
    EXPECT_EQ(122U, response->GetRawContent(room, &size));
    EXPECT_EQ(5U, size);
    EXPECT_STREQ("hel", room);
    size = 0;
    EXPECT_EQ(122U, response->GetRawContent(nullptr, &size));
    EXPECT_EQ(5U, size);
    EXPECT_EQ(0U, response->GetRawContent(room, &size));
    EXPECT_STREQ("hello", room);

    m_client.SetSync(0);
    EXPECT_EQ(0U, m_client.Invoke(http_method_get, url(), nullptr, 0, nullptr, 0, 0));
    EXPECT_EQ(TESSEL_W("hello"), m_client.ResponseContent()) << "nothing was transferred";
    m_client.SetSync(1);
    EXPECT_EQ(200, request());
    size = 7;
    EXPECT_EQ(13U, response->GetRawContent(room, &size)) << "no body";
    EXPECT_EQ(7U, size);
}

TEST_F(LumHttpClient, LetsTheWatchHaveTheBodyAsItComes) {
    const std::string large(3000000, 'x');
    transfer_watch watch;
    std::string head, body;
    watch.head = [&](const response_head& one) {
        head.assign(one.lines.begin(), one.lines.end());
        EXPECT_EQ(206U, one.status);
    };
    watch.body = [&](const void* data, std::uint32_t bytes) {
        body.append(static_cast<const char*>(data), bytes);
    };
    m_client.set_watch(watch);
    serve({answer("206 Part\r\nETag: \"e\"", large)});
    EXPECT_EQ(206, request());
    EXPECT_THAT(head, StartsWith("HTTP/1.1 206 Part\r\nETag: \"e\"\r\n"));
    EXPECT_EQ(large, body);
    unsigned long size = 0;
    EXPECT_EQ(13U, m_client.GetResponse()->GetRawContent(nullptr, &size));
    watch.body = [](const void*, std::uint32_t) { throw std::bad_alloc(); };
    m_client.set_watch(watch);
    serve({answer("206 Part", "x")});
    EXPECT_EQ(0, request());
    EXPECT_EQ(8U, m_error);
}

TEST(LumHttpClientProcedure, HasItsContextRemovedAndTellsTheHelperWindow) {
    manual_message_windows windows;
    http_init();
    session_context context;
    CLumHttpClient::on_data_recv(7, &context);
    EXPECT_TRUE(context.auto_delete);
    ASSERT_EQ(1U, windows.waiting().size());
    EXPECT_EQ(0x400U, windows.waiting()[0].number);
    EXPECT_EQ(0x12345678U, windows.waiting()[0].wparam);
    EXPECT_EQ(reinterpret_cast<std::intptr_t>(&context), windows.waiting()[0].lparam);
    EXPECT_EQ(1U, windows.deliver_all());
}

}  // namespace
}  // namespace tessel_test
