// Requests on a network that the test plays: what goes out, and orders of events that no server can be
// made to produce.
#include "os/inet_client.h"
#include "os/inet_scripted_transfer.h"

#include <algorithm>

namespace tessel_test {
namespace {

using os::data_verdict;
using testing::ElementsAre;

class InetScripted : public testing::Test {
protected:
    os::inet_handle begun(os::inet_handle request) {
        EXPECT_TRUE(m_client.begin(request).pending());
        return request;
    }
    /// Sent, and its end waits for the response.
    os::inet_handle waiting(const wchar* verb = TESSEL_W("GET")) {
        const auto request = begun(m_client.request(verb));
        m_network.last().sent();
        EXPECT_EQ(1U, m_client.log.wait().result);
        EXPECT_TRUE(m_service->end(request, m_client.log.context()).pending());
        return request;
    }
    std::string lines() {
        std::string text = m_network.last().request.header_lines;
        std::replace(text.begin(), text.end(), '\0', '|');
        return text;
    }

    scripted_transfer m_network;
    std::unique_ptr<os::inet_service> m_service = os::make_inet_service(m_network);
    inet_client m_client{*m_service, 8080, TESSEL_W("Server.Test")};
};

TEST_F(InetScripted, ComposesRequestsByTheirFlags) {
    const struct {
        const wchar* verb;
        const wchar* object;
        std::uint32_t flags;
        const wchar* headers;
        const char* url;
        const char* lines;
    } rows[] = {
        {TESSEL_W(""), TESSEL_W(""), 0, TESSEL_W(""), "http://server.test:8080/",
         "User-Agent: agent/1|Accept:|"},
        {TESSEL_W("get"), TESSEL_W("a?b#c"), 0, TESSEL_W("Accept: x/y"), "http://server.test:8080/a?b",
         "Content-Length: 0|User-Agent: agent/1|Accept: x/y|"},
        {TESSEL_W("HEAD"), TESSEL_W("/\u00E9?\u00E9"), 0, TESSEL_W(""),
         "http://server.test:8080/%C3%A9?\xC3\xA9", "User-Agent: agent/1|Accept:|"},
        {TESSEL_W("GET"), TESSEL_W("/%20 \t"), os::k_request_keep_connection | os::k_request_pragma_nocache,
         TESSEL_W("User-Agent: mine\r\nContent-Length: 7"), "http://server.test:8080/%20%20%09",
         "User-Agent: mine|Connection: Keep-Alive|Pragma: no-cache|Accept:|"},
        {TESSEL_W("DELETE"), TESSEL_W("/"), os::k_request_no_cache_write, TESSEL_W("Connection: close"),
         "http://server.test:8080/",
         "Content-Length: 0|User-Agent: agent/1|Connection: close|Cache-Control: no-cache|Accept:|"},
        {TESSEL_W("GET"), TESSEL_W("/"), os::k_request_no_cache_write, TESSEL_W(""),
         "http://server.test:8080/", "User-Agent: agent/1|Accept:|"},
        {TESSEL_W("GET"), TESSEL_W("/"), os::k_request_reload | os::k_request_secure, TESSEL_W(""),
         "https://server.test:8080/", "User-Agent: agent/1|Cache-Control: no-cache|Accept:|"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.url);
        const auto request = m_client.request(row.verb, row.object, row.flags);
        m_service->send(request, row.headers, nullptr, 0, os::inet_send_mode::begin, m_client.log.context());
        EXPECT_EQ(row.url, m_network.last().request.url);
        EXPECT_EQ(row.lines, lines());
        m_service->close(request);
    }
}

TEST_F(InetScripted, ConvertsHostNamesForLookUp) {
    inet_client umlaut(*m_service, 0, TESSEL_W("B\u00FCcher.example"));
    begun(umlaut.request());
    EXPECT_EQ("http://xn--bcher-kva.example/", m_network.last().request.url);
    inet_client six(*m_service, 81, TESSEL_W("::1"));
    begun(six.request());
    EXPECT_EQ("http://[::1]:81/", m_network.last().request.url);
}

TEST_F(InetScripted, RoutesBySessionsProxies) {
    const struct {
        const wchar* proxies;
        const wchar* bypass;
        const wchar* host;
        std::uint32_t flags;
        const char* proxy;
    } rows[] = {
        {TESSEL_W("p:3128"), TESSEL_W(""), TESSEL_W("a.test"), 0, "p:3128"},
        {TESSEL_W("p:3128"), TESSEL_W(""), TESSEL_W("a.test"), os::k_request_secure, "p:3128"},
        {TESSEL_W("http=one https=https://two:1;three"), TESSEL_W(""), TESSEL_W("a.test"),
         os::k_request_secure, "two:1"},
        {TESSEL_W("https=two:1"), TESSEL_W(""), TESSEL_W("a.test"), 0, ""},
        {TESSEL_W("p"), TESSEL_W(""), TESSEL_W("a.test"), 0, "p:80"},
        {TESSEL_W("p"), TESSEL_W(""), TESSEL_W("localhost"), 0, ""},
        {TESSEL_W("p"), TESSEL_W(""), TESSEL_W("127.9.9.9"), 0, ""},
        {TESSEL_W("p"), TESSEL_W(""), TESSEL_W("127.a.test"), 0, "p:80"},
        {TESSEL_W("p"), TESSEL_W("<-loopback>"), TESSEL_W("localhost"), 0, "p:80"},
        {TESSEL_W("p"), TESSEL_W("<local>"), TESSEL_W("intranet"), 0, ""},
        {TESSEL_W("p"), TESSEL_W("x.test; *.B.test"), TESSEL_W("a.b.test"), 0, ""},
        {TESSEL_W("p"), TESSEL_W("*.b.test"), TESSEL_W("b.test"), 0, "p:80"},
        {TESSEL_W("p"), TESSEL_W("a.test:81"), TESSEL_W("a.test"), 0, "p:80"},
        {TESSEL_W("p"), TESSEL_W("https://a.test"), TESSEL_W("a.test"), 0, "p:80"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.proxy << " line " << (&row - rows));
        const auto session = m_service->open(os::k_access_proxy, row.proxies, row.bypass, {}, true);
        const auto connection = m_service->connect(session, row.host, 0, {}, {}, 1);
        begun(m_service->open_request(connection, {}, {}, row.flags, m_client.log.context()));
        EXPECT_EQ(row.proxy, m_network.last().request.proxy);
        m_service->close(session);
    }
}

TEST_F(InetScripted, KeepsSecretsFromOtherServersOfARedirect) {
    const kro::tessel::wide_string user = TESSEL_W("me");
    m_service->set_credentials(m_client.connection, os::inet_credentials::server, &user, &user);
    const struct {
        const char* location;
        const char* lines;
        bool has_account;
    } rows[] = {
        {"/here", "X: y|Authorization: a|Cookie: b|Accept:|", true},
        {"http://other.test/", "X: y|Accept:|", false},
        {"//server.test:8081/", "X: y|Accept:|", false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.location);
        const auto request = m_client.request(TESSEL_W("GET"), TESSEL_W("/"), 0);
        m_service->send(request, TESSEL_W("X: y\r\nAuthorization: a\r\nCookie: b\r\nUser-Agent: "), nullptr,
                        0, os::inet_send_mode::whole, m_client.log.context());
        EXPECT_EQ("me", m_network.last().request.server.user);
        m_network.last().sent();
        m_network.last().headers("HTTP/1.1 302 Found\r\nLocation: " + std::string(row.location) + "\r\n");
        m_network.last().end();
        EXPECT_EQ("User-Agent: agent/1|" + std::string(row.lines), lines());
        EXPECT_EQ(row.has_account, m_network.last().request.server.given());
        m_service->close(request);
    }
}

TEST_F(InetScripted, NoAuthKeepsAccountsBack) {
    const kro::tessel::wide_string user = TESSEL_W("me");
    m_service->set_credentials(m_client.connection, os::inet_credentials::server, &user, &user);
    begun(m_client.request(TESSEL_W("GET"), TESSEL_W("/"), os::k_request_no_auth));
    EXPECT_FALSE(m_network.last().request.server.given());
}

TEST_F(InetScripted, GivesUpOnTheBodyOfARedirectThatIsLong) {
    waiting();
    auto& first = m_network.last();
    first.headers("HTTP/1.1 302 Found\r\nLocation: /next\r\n");
    const std::string piece(40'000, 'x');
    EXPECT_EQ(data_verdict::taken, first.data(piece));
    EXPECT_EQ(data_verdict::unwanted, first.data(piece));
    first.end(os::k_error_inet_internal);
    ASSERT_EQ(2U, m_network.exchanges.size());
    EXPECT_EQ("http://server.test:8080/next", m_network.last().request.url);
}

TEST_F(InetScripted, IgnoresEventsOfAnExchangeThatASecondSendReplaced) {
    const auto request = begun(m_client.request());
    auto& old = m_network.exchanges[0];
    old.sent();
    m_client.log.wait();
    begun(request);
    EXPECT_TRUE(old.cancelled);
    old.headers("HTTP/1.1 200 Old\r\n");
    EXPECT_EQ(data_verdict::unwanted, old.data("old"));
    EXPECT_EQ(os::k_body_withdrawn, old.sink->on_body(old.request.tag, 0, nullptr, 0));
    old.end(12031);
    m_network.last().sent();
    EXPECT_EQ(1U, m_client.log.wait().result);
    ASSERT_TRUE(m_service->end(request, m_client.log.context()).pending());
    m_network.last().headers("HTTP/1.1 200 New\r\n");
    EXPECT_EQ(0U, m_client.log.wait().error);
    EXPECT_EQ(TESSEL_W("New"), m_client.text(request, os::k_query_status_text));
}

TEST_F(InetScripted, EndsAtOnceOnTheCallersThreadWhenTheResponseIsThere) {
    const auto request = begun(m_client.request());
    m_network.last().sent();
    m_network.last().headers("HTTP/1.1 200 OK\r\n");
    m_client.log.wait();
    m_client.log.clear();
    EXPECT_TRUE(m_service->end(request, m_client.log.context()).pending());
    EXPECT_THAT(m_client.log.codes(), ElementsAre(40, 41, 100));
    EXPECT_TRUE(m_network.woken.empty());
}

TEST_F(InetScripted, HoldsAFullWindowBackUntilHalfOfItIsRead) {
    const auto request = waiting();
    auto& exchange = m_network.last();
    exchange.headers("HTTP/1.1 200 OK\r\n");
    const std::string piece(std::size_t{256} * 1024, 'x');
    for (int i = 0; i < 4; ++i) {
        EXPECT_EQ(data_verdict::taken, exchange.data(piece));
    }
    EXPECT_EQ(data_verdict::full, exchange.data(piece));
    std::string out(piece.size(), '\0');
    const auto read = [&] {
        return m_service->read(request, out.data(), static_cast<std::uint32_t>(out.size()),
                               m_client.log.context());
    };
    EXPECT_TRUE(read().status.ok());
    EXPECT_EQ(0, exchange.grants);
    EXPECT_TRUE(read().status.ok());
    EXPECT_EQ(1, exchange.grants);
}

// However fast the exchange is, a response is there from its end call on, and that of the last hop only.
TEST_F(InetScripted, TellsNothingOfAResponseBeforeItIsAskedFor) {
    const auto request = begun(m_client.request());
    m_network.last().sent();
    EXPECT_EQ(1U, m_client.log.wait().result);
    m_network.last().headers("HTTP/1.1 302 Found\r\nLocation: /next\r\n");
    m_network.last().end();
    std::uint32_t status = 0;
    EXPECT_EQ(os::k_error_inet_incorrect_handle_state,
              m_service->query_number(request, os::k_query_status_code, status).error);
    EXPECT_TRUE(m_service->end(request, m_client.log.context()).pending());
    EXPECT_EQ(os::k_error_inet_incorrect_handle_state,
              m_service->query_number(request, os::k_query_status_code, status).error);
    m_network.last().headers("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nTransfer-Encoding: chunked\r\n");
    EXPECT_EQ(200U, m_client.status(request));
    std::uint32_t length = 0;
    EXPECT_EQ(os::k_error_http_header_not_found,
              m_service->query_number(request, os::k_query_content_length, length).error)
        << "a length beside chunks is none";
}

// A server may break off while its body is held back.
TEST_F(InetScripted, AnExchangeThatEndedWithAFullWindowIsReadToItsEnd) {
    const auto request = waiting();
    auto& exchange = m_network.last();
    exchange.headers("HTTP/1.1 200 OK\r\n");
    const std::string piece(512U << 10U, 'x');
    while (exchange.data(piece) == data_verdict::taken) {
    }
    exchange.end(os::k_error_inet_connection_reset);
    std::string read(4U << 20U, '\0');
    const auto outcome = m_service->read(request, read.data(), 4U << 20U, 1);
    EXPECT_EQ(os::k_error_inet_connection_reset, outcome.status.error);
    EXPECT_GE(outcome.bytes, 512U << 10U);
    EXPECT_EQ(0, exchange.grants);
}

TEST_F(InetScripted, FillsAWaitingReadFirstAndKeepsTheRest) {
    const auto request = waiting();
    m_network.last().headers("HTTP/1.1 200 OK\r\n");
    m_client.log.wait();
    char bytes[4];
    ASSERT_TRUE(m_service->read(request, bytes, 4, m_client.log.context()).status.pending());
    m_network.last().data("ab");
    m_network.last().data("cdefg");
    EXPECT_EQ(4U, m_client.log.wait().bytes);
    EXPECT_EQ("abcd", std::string(bytes, 4));
    EXPECT_EQ(3U, m_service->available(request).bytes);
    m_network.last().end(12002);
    const auto rest = m_service->read(request, bytes, 4, m_client.log.context());
    EXPECT_EQ(12002U, rest.status.error);
    EXPECT_EQ(3U, rest.bytes) << "bytes before an error are delivered with it";
}

TEST_F(InetScripted, AvailableWaitsForTheFirstByte) {
    const auto request = waiting();
    m_network.last().headers("HTTP/1.1 200 OK\r\n");
    m_client.log.wait();
    EXPECT_TRUE(m_service->available(request).status.pending());
    m_network.last().data("abc");
    const auto result = m_client.log.wait();
    EXPECT_EQ(3U, result.bytes);
    EXPECT_EQ(3U, m_service->available(request).bytes);
}

TEST_F(InetScripted, CancelsOnlyWhatIsUnderWay) {
    const auto running = waiting();
    m_service->close(running);
    EXPECT_TRUE(m_network.last().cancelled);
    EXPECT_EQ(12017U, m_client.log.wait().error);
    const auto ended = waiting();
    m_network.last().headers("HTTP/1.1 200 OK\r\n");
    m_network.last().end();
    m_service->close(ended);
    EXPECT_FALSE(m_network.last().cancelled);
}

// Closing while the completion is on its way: the caller hears of the cancellation, once.
TEST_F(InetScripted, ACompletionThatWasNotDeliveredBecomesACancellation) {
    const auto request = begun(m_client.request());
    auto& exchange = m_network.last();
    exchange.sink->on_sent(exchange.request.tag, 1);
    m_service->close(request);
    exchange.sink->on_turn_end();
    EXPECT_EQ(12017U, m_client.log.wait().error);
    EXPECT_THAT(m_client.log.codes(), ElementsAre(60, 100, 50, 51, 70));
}

}  // namespace
}  // namespace tessel_test
