// Servers that break off, lie or talk something else: each case has one defined outcome, and none hangs.
#include "os/inet_client.h"

#include <algorithm>
#include <cctype>
#include <future>
#include <stdexcept>

namespace tessel_test {
namespace {

using namespace std::string_literals;
using testing::ElementsAre;

std::string many_headers(std::size_t bytes) {
    std::string lines = "HTTP/1.1 200 OK\r\n";
    while (lines.size() < bytes) {
        lines += "X-Padding: " + std::string(1000, 'p') + "\r\n";
    }
    return lines;
}

std::string short_headers(int count) {
    std::string lines = "HTTP/1.1 200 OK\r\n";
    for (int i = 0; i < count; ++i) {
        lines += "X" + std::to_string(i) + ": y\r\n";
    }
    return lines;
}

std::string interim_responses(int count) {
    std::string responses;
    for (int i = 0; i < count; ++i) {
        responses += "HTTP/1.1 100 Continue\r\n\r\n";
    }
    return responses;
}

enum class then { stays, closes, resets };

struct fault {
    const char* what;
    std::string bytes;  // what the server says to the request
    then after;
    std::uint32_t end_error;
    std::uint32_t status = 0;
    const char* body = "";
    std::uint32_t read_error = 0;
};

// Plays the server of `row` up to the point where its connection is left, closed or reset.
server_connection misbehave(const fault& row, test_server& server) {
    auto peer = server.accept_request();
    try {
        peer.send(row.bytes);
    } catch (const std::runtime_error&) {  // NOLINT(bugprone-empty-catch): the client had enough and closed
    }
    if (row.after == then::closes) {
        peer.close();
    } else if (row.after == then::resets && row.bytes.empty()) {
        peer.reset();
    }
    return peer;
}

// What comes of an answer whose end is known.
void expect_response(const fault& row, inet_client& client, os::inet_handle request) {
    EXPECT_EQ(row.status, client.status(request));
    if (row.end_error == 0) {
        std::uint32_t error = 0;
        EXPECT_EQ(row.body, client.body(request, error));
        EXPECT_EQ(row.read_error, error);
    }
}

void expect_outcome(const fault& row, test_server& server, inet_client& client) {
    const auto request = client.sent();
    auto peer = misbehave(row, server);
    ASSERT_EQ(row.end_error, client.end(request));
    if (row.after == then::resets && !row.bytes.empty()) {
        peer.reset();
    }
    expect_response(row, client, request);
}

void expect_a_good_request(test_server& server, inet_client& client) {
    const auto request = client.sent();
    auto peer = server.accept_request();
    peer.answer("good");
    EXPECT_EQ(0U, client.end(request));
    EXPECT_EQ("good", client.body(request));
}

class InetFaults : public testing::TestWithParam<fault> {};

// The proxy is the one that misbehaves: for a plain request it stands for the server.
TEST_P(InetFaults, HaveOneOutcome) {
    for (const bool by_proxy : {false, true}) {
        SCOPED_TRACE(by_proxy ? "by the proxy" : "by the server");
        test_server server;
        inet_client client(os::inet(), server.port(), by_proxy);
        expect_outcome(GetParam(), server, client);
        expect_a_good_request(server, client);
    }
}

// Closed before, while and after the server misbehaves: the end completes once, and the next request is
// served.
TEST_P(InetFaults, CanBeLeft) {
    const fault& row = GetParam();
    for (const bool early : {true, false}) {
        SCOPED_TRACE(early ? "before the answer" : "with the answer under way");
        test_server server;
        inet_client client(os::inet(), server.port());
        const auto request = client.sent();
        ASSERT_TRUE(client.net.end(request, client.log.context()).pending());
        if (early) {
            client.net.close(request);
            EXPECT_EQ(12017U, client.log.wait().error);
        }
        auto peer = misbehave(row, server);
        if (!early) {
            client.net.close(request);
            const std::uint32_t error = client.log.wait().error;
            EXPECT_TRUE(error == 12017 || error == row.end_error) << error;
        }
        peer.close();  // it may have been kept
        expect_a_good_request(server, client);
    }
}

TEST_P(InetFaults, HaveTheSameOneOnTheCallersThread) {
    const fault& row = GetParam();
    test_server server;
    inet_client client(os::inet(), server.port(), TESSEL_W("127.0.0.1"), false);
    std::promise<void> answered;
    std::promise<void> over;
    std::thread player([&] {
        auto peer = misbehave(row, server);
        if (row.after == then::resets && !row.bytes.empty()) {
            answered.get_future().wait();
            peer.reset();
        }
        over.get_future().wait();
    });
    const auto request = client.request();
    EXPECT_EQ(row.end_error, client.exchange(request));
    answered.set_value();
    expect_response(row, client, request);
    over.set_value();
    player.join();
}

const std::string k_ok = "HTTP/1.1 200 OK\r\n";
const std::string k_chunked = k_ok + "Transfer-Encoding: chunked\r\n\r\n";

const fault k_faults[] = {
    {"closes before a byte", "", then::closes, 12152},
    {"resets before a byte", "", then::resets, 12031},
    {"closes in the status line", "HTTP/1.1 20", then::closes, 12152},
    {"closes in the headers", k_ok + "X: y", then::closes, 12152},
    {"closes behind a header", k_ok + "X: y\r\n", then::closes, 12152},
    {"closes before the length is reached", k_ok + "Content-Length: 9\r\n\r\nabc", then::closes, 0, 200,
     "abc"},
    {"resets inside the body", k_ok + "Content-Length: 9\r\n\r\nabc", then::resets, 0, 200, "abc", 12031},
    {"closes before the last chunk", k_chunked + "3\r\nabc\r\n", then::closes, 0, 200, "abc"},
    {"sends a chunk size that is none", k_chunked + "3\r\nabc\r\nzz\r\n", then::stays, 0, 200, "abc", 12030},
    {"talks no HTTP", "SSH-2.0-server\r\n", then::closes, 0, 200, "SSH-2.0-server\r\n"},
    {"sends interim responses",
     "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Hints\r\nX: y\r\n\r\nHTTP/1.1 202 OK\r\nContent-Length: "
     "1\r\n\r\nx",
     then::stays, 0, 202, "x"},
    {"sends 204 with a length", "HTTP/1.1 204 No\r\nContent-Length: 3\r\n\r\n", then::stays, 0, 204},
    {"sends one header of a MiB", k_ok + "X: " + std::string(1U << 20U, 'x'), then::stays, 12152},
    {"sends a MiB of headers", many_headers(1U << 20U), then::stays, 12152},
    {"sends 10,000 headers", short_headers(10'000) + "Content-Length: 2\r\n\r\nok", then::stays, 0, 200,
     "ok"},
    {"sends a negative length", k_ok + "Content-Length: -3\r\n\r\nabc", then::closes, 12152},
    {"sends a length larger than any", k_ok + "Content-Length: 99999999999999999999\r\n\r\nabc", then::closes,
     0, 200, "abc"},
    {"sends two lengths that differ", k_ok + "Content-Length: 2\r\nContent-Length: 3\r\n\r\nabc",
     then::closes, 0, 200, "abc"},
    {"sends a length beside chunks",
     k_ok + "Content-Length: 2\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n", then::stays, 0,
     200, "abc"},
    {"sends a chunk larger than any", k_chunked + "fffffffffffffffff\r\nabc", then::closes, 0, 200, "",
     12030},
    {"sends a zero in a header", k_ok + "X: a\0b\r\nContent-Length: 2\r\n\r\nok"s, then::stays, 12152},
    {"sends a CR alone in a header", k_ok + "X: a\rb\r\nContent-Length: 2\r\n\r\nok", then::stays, 0, 200,
     "ok"},
    {"sends two status lines", k_ok + "HTTP/1.1 404 No\r\nContent-Length: 2\r\n\r\nok", then::stays, 12152},
    {"sends a status that is none", "HTTP/1.1 abc OK\r\nContent-Length: 2\r\n\r\nok", then::closes, 12152},
    {"sends interim responses without end", interim_responses(100'000), then::stays, 12152},
    {"sends a length that is none", k_ok + "Content-Length: ten\r\n\r\nabc", then::closes, 12152},
};

INSTANTIATE_TEST_SUITE_P(Server, InetFaults, testing::ValuesIn(k_faults), [](const auto& row) {
    std::string name = row.param.what;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
});

class InetFault : public inet_test {};

TEST_F(InetFault, TunnelsThatAProxyDoesNotOpenEndTheRequest) {
    const struct {
        const char* what;
        const char* bytes;
        then after;
        std::uint32_t error;
    } rows[] = {
        {"closes before a byte", "", then::closes, 12030},
        {"resets before a byte", "", then::resets, 12031},
        {"opens it and closes", "HTTP/1.1 200 OK\r\n\r\n", then::closes, 12157},
        {"opens it and talks no TLS", "HTTP/1.1 200 OK\r\n\r\nHTTP/1.1 200 OK\r\n\r\n", then::stays, 12157},
        {"says nothing", "", then::stays, 12002},
        {"stops behind the head", "HTTP/1.1 200 OK\r\n\r\n", then::stays, 12002},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test_server server;
        inet_client client(os::inet(), server.port(), true);
        client.net.set_timeout(client.connection, os::inet_timeout::connect,
                               row.error == 12002 ? 300 : 20'000);
        const auto request = client.request(TESSEL_W("GET"), TESSEL_W("/"), os::k_request_secure);
        client.begin(request);
        const fault tunnel{row.what, row.bytes, row.after, 0};
        const auto peer = misbehave(tunnel, server);
        EXPECT_EQ(row.error, client.log.wait().error);
        EXPECT_EQ(12017U, client.end(request)) << "an end after a failed send";
    }
}

TEST_F(InetFault, NamesThatAreNoneFailTheSend) {
    for (const wchar* const host :
         {TESSEL_W("a b"), TESSEL_W("user@host"), TESSEL_W("h/path"), TESSEL_W("a\u0001b")}) {
        inet_client client(os::inet(), 80, host);
        const auto request = client.request();
        ASSERT_TRUE(client.begin(request).pending());
        EXPECT_EQ(12007U, client.log.wait().error);
    }
}

// A line that goes on from the header of another response leads nowhere, but once into freed memory.
const std::string k_blank_head = "HTTP/1.1 200 OK\r\n\tX-Long: " + std::string(5000, 'x') + "\r\n";

TEST_F(InetFault, AFirstHeaderThatBeginsWithABlankIsNone) {
    for (const std::string& bytes : {k_blank_head, interim_responses(3) + k_blank_head}) {
        expect_a_good_request(m_server, m_client);
        const auto request = m_client.sent();
        auto peer = m_server.accept_request();
        peer.send(bytes + "Content-Length: 4\r\n\r\ntext");
        EXPECT_EQ(12152U, m_client.end(request));
    }
}

TEST_F(InetFault, AFirstHeaderOfATunnelThatBeginsWithABlankIsNone) {
    inet_client through(os::inet(), m_server.port(), true);
    expect_a_good_request(m_server, through);
    through.whole(through.request(TESSEL_W("GET"), TESSEL_W("/"), os::k_request_secure));
    m_server.accept_request().send(k_blank_head + "\r\n");
    EXPECT_EQ(12152U, through.log.wait().error);
}

// The length is that of what GET would get; a body that comes all the same isn't waited for, nor taken for
// the next response.
TEST_F(InetFault, NoBodyBelongsToAResponseToHead) {
    for (const char* const sent : {"", "body"}) {
        for (const char* const received : {"", "0123456789"}) {
            SCOPED_TRACE(testing::Message() << "'" << sent << "', '" << received << "'");
            test_server server;
            inet_client client(os::inet(), server.port());
            const auto request = client.request(TESSEL_W("HEAD"));
            EXPECT_TRUE(client.whole(request, sent).pending());
            auto peer = server.accept_request();
            peer.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n" + std::string(received));
            EXPECT_EQ(0U, client.log.wait().error);
            EXPECT_EQ("", client.body(request));
            if (*sent != 0) {
                EXPECT_TRUE(peer.wait_for_close());
            }
            peer.close();
            expect_a_good_request(server, client);
        }
    }
}

// A kept connection may die just as the next request goes out: it is repeated once, the body included.
TEST_F(InetFault, ARequestOnADyingConnectionIsRepeated) {
    const auto first = m_client.sent();
    auto kept = m_server.accept_request();
    kept.answer("1");
    ASSERT_EQ(0U, m_client.end(first));
    EXPECT_EQ("1", m_client.body(first));
    const auto second = m_client.request(TESSEL_W("POST"));
    const std::string body(100'000, 'b');
    EXPECT_TRUE(m_client.begin(second, body).pending());
    kept.read_request();
    kept.close();
    auto fresh = m_server.accept();
    const std::string again = fresh.read_request();
    EXPECT_EQ(body, again.substr(again.size() - body.size()));
    fresh.answer("2");
    EXPECT_EQ(1U, m_client.log.wait().result);
    EXPECT_EQ(0U, m_client.end(second));
    EXPECT_EQ("2", m_client.body(second));
}

// What arrives unread stops at a window; nothing of it is lost.
TEST_F(InetFault, AnUnreadBodyIsHeldBackAndComesWhole) {
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    std::string body(24U << 20U, '\0');
    for (std::size_t i = 0; i < body.size(); ++i) {
        body[i] = static_cast<char>(i * 2654435761U >> 13U);
    }
    std::thread sender([&] { peer.answer(body); });
    EXPECT_EQ(0U, m_client.end(request));
    while (m_client.net.available(request).bytes < (std::uint32_t{1} << 20U) - 16384) {
        std::this_thread::yield();
    }
    EXPECT_LE(m_client.net.available(request).bytes, std::uint32_t{1} << 20U);
    EXPECT_TRUE(m_client.body(request) == body);
    sender.join();
}

TEST_F(InetFault, AnAnswerBeforeTheWholeBodyWentOutIsTaken) {
    const auto request = m_client.request(TESSEL_W("POST"));
    const std::string body(32U << 20U, 'b');
    EXPECT_TRUE(m_client.begin(request, body).pending());
    auto peer = m_server.accept();
    peer.read_head();
    peer.send("HTTP/1.1 413 Too Large\r\nContent-Length: 3\r\nConnection: close\r\n\r\nbig");
    EXPECT_EQ(1U, m_client.log.wait().result);
    EXPECT_EQ(0U, m_client.end(request));
    EXPECT_EQ(413U, m_client.status(request));
    EXPECT_EQ("big", m_client.body(request));
}

TEST_F(InetFault, AServerThatTakesNoBytesTimesTheSendOut) {
    m_client.net.set_timeout(m_client.connection, os::inet_timeout::send, 200);
    const auto request = m_client.request(TESSEL_W("PUT"));
    const std::string body(64U << 20U, 'b');  // more than the sockets' buffers
    EXPECT_TRUE(m_client.begin(request, body).pending());
    auto peer = m_server.accept();
    EXPECT_EQ(12002U, m_client.log.wait().error);
}

// Its head comes in less than a line at a time.
TEST_F(InetFault, AHeadThatTricklesInIsNoSilence) {
    m_client.net.set_timeout(m_client.connection, os::inet_timeout::receive, 400);
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    EXPECT_TRUE(m_client.net.end(request, m_client.log.context()).pending());
    for (const char letter : std::string("HTTP/1.1")) {
        peer.send(std::string(1, letter));
        EXPECT_FALSE(m_client.log.completes_within(std::chrono::milliseconds(100)));
    }
    peer.send(" 200 OK\r\nContent-Length: 0\r\n\r\n");
    EXPECT_EQ(0U, m_client.log.wait().error);
}

// A limit is for the network: what has come may lie here, and the server may be silent, for as long as nobody
// waits.
TEST_F(InetFault, AHostThatStandsStillLosesNothing) {
    m_client.net.set_timeout(m_client.connection, os::inet_timeout::receive, 300);
    const auto stand_still = [this] {
        EXPECT_FALSE(m_client.log.completes_within(std::chrono::milliseconds(600)));
    };
    const auto read = [this](os::inet_handle from, char* to, std::uint32_t count) {
        return m_client.net.read(from, to, count, m_client.log.context());
    };
    const std::size_t many = std::size_t{3} << 20U;  // more than the window
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    stand_still();
    EXPECT_TRUE(m_client.net.end(request, m_client.log.context()).pending());
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 9999999\r\n\r\nab");
    EXPECT_EQ(0U, m_client.log.wait().error);
    stand_still();
    std::vector<char> bytes(many);
    EXPECT_EQ(1U, read(request, bytes.data(), 1).bytes);
    EXPECT_TRUE(read(request, bytes.data(), 2).status.pending());
    peer.send("c");
    EXPECT_EQ(2U, m_client.log.wait().bytes);
    std::thread sender([&] { peer.send(std::string(many, 'd')); });
    stand_still();
    EXPECT_TRUE(read(request, bytes.data(), static_cast<std::uint32_t>(many)).status.pending());
    EXPECT_EQ(many, m_client.log.wait().bytes);
    sender.join();
    stand_still();
    const auto asked = std::chrono::steady_clock::now();
    EXPECT_TRUE(read(request, bytes.data(), 1).status.pending());
    EXPECT_EQ(12002U, m_client.log.wait().error);
    EXPECT_GE(std::chrono::steady_clock::now() - asked, std::chrono::milliseconds(250));
}

// The body of a redirect may have come before anybody asks where it leads.
TEST_F(InetFault, ARedirectWhoseBodyIsHeldBackIsFollowed) {
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    // More than the window, and all of it here: nothing that comes later has anybody look once more.
    peer.send("HTTP/1.1 302 Found\r\nLocation: /next\r\nContent-Length: 2097152\r\n\r\n" +
              std::string(2U << 20U, 'd'));
    for (int i = 0; i < 8; ++i) {  // by the end of which it has been looked at, too
        inet_client other(os::inet(), m_server.port());
        expect_a_good_request(m_server, other);
    }
    EXPECT_TRUE(m_client.net.end(request, m_client.log.context()).pending());
    m_server.accept_request().answer("there");
    EXPECT_EQ(0U, m_client.log.wait().error);
    EXPECT_EQ("there", m_client.body(request));
}

TEST_F(InetFault, TheBodyIsNotTouchedAfterClose) {
    for (int i = 0; i < 8; ++i) {
        const auto request = m_client.request(TESSEL_W("PUT"));
        const auto bytes = static_cast<std::uint32_t>(8U << 20U);
        auto body = std::make_unique<char[]>(bytes);
        m_client.net.send(request, {}, body.get(), bytes, os::inet_send_mode::begin, m_client.log.context());
        auto peer = m_server.accept();
        peer.read_bytes(static_cast<std::size_t>(i) * 100'000 + 1);
        m_client.net.close(request);
        body = nullptr;  // AddressSanitizer watches
        EXPECT_EQ(12017U, m_client.log.wait().error);
    }
}

TEST_F(InetFault, ABodyThatEndsWithItsConnectionSaysSo) {
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    peer.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nabc");
    ASSERT_EQ(0U, m_client.end(request));
    m_client.log.clear();
    char bytes[16];
    ASSERT_TRUE(m_client.net.read(request, bytes, 16, m_client.log.context()).status.pending());
    peer.close();
    EXPECT_EQ(3U, m_client.log.wait().bytes);
    EXPECT_THAT(m_client.log.codes(), ElementsAre(40, 50, 51, 41, 100));
}

}  // namespace
}  // namespace tessel_test
