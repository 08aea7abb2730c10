// The jar of the Linux service: that it and libcurl agree on what goes out, what counts and what doesn't, and
// that nobody fills it for the others.
#include "os/inet_client.h"

namespace tessel_test {
namespace {

constexpr const char* k_empty = "Content-Length: 0\r\n\r\n";

/// The Cookie headers of a request, each with its end.
std::string cookies_of(const std::string& head) {
    std::string lines;
    for (auto at = head.find("\r\nCookie:"); at != std::string::npos; at = head.find("\r\nCookie:", at)) {
        at += 2;
        lines.append(head, at, head.find('\n', at) + 1 - at);
        at -= 1;
    }
    return lines;
}

class InetCookies : public inet_test {
protected:
    void send(os::inet_handle request, const wchar* headers = TESSEL_W("")) {
        EXPECT_TRUE(os::inet()
                        .send(request, headers, nullptr, 0, os::inet_send_mode::whole, m_client.log.context())
                        .pending());
        if (!m_peer.is_open()) {
            m_peer = m_server.accept();
        }
    }
    /// The Cookie headers that a request went out with; `answer` is lines of its response.
    std::string exchange(const wchar* object, const wchar* headers, const std::string& answer = {}) {
        send(m_client.request(TESSEL_W("GET"), object), headers);
        const std::string head = m_peer.read_request();
        m_peer.send("HTTP/1.1 200 OK\r\n" + answer + k_empty);
        EXPECT_EQ(0U, m_client.log.wait().error);
        return cookies_of(head);
    }

    server_connection m_peer;
};

TEST_F(InetCookies, OnesOfARedirectCountAndGoToNoOtherHost) {
    send(m_client.request(TESSEL_W("GET"), TESSEL_W("/")), TESSEL_W("Cookie: own=1"));
    m_peer.read_request();
    m_peer.send(
        std::string("HTTP/1.1 302 Found\r\nLocation: /moved/next\r\nSet-Cookie: a=1; Path=/moved\r\n") +
        k_empty);
    EXPECT_EQ("Cookie: a=1\r\n", cookies_of(m_peer.read_request()));
    m_peer.send("HTTP/1.1 302 Found\r\nLocation: http://localhost:" + std::to_string(m_server.port()) +
                "/\r\n" + k_empty);
    auto other = m_server.accept();
    EXPECT_EQ("", cookies_of(other.read_request()));
    other.answer("");
    EXPECT_EQ(0U, m_client.log.wait().error);
    inet_client synchronous(os::inet(), m_server.port(), TESSEL_W("127.0.0.1"), false);
    std::thread player([&] {
        auto peer = m_server.accept();
        EXPECT_EQ("Cookie: a=1\r\n", cookies_of(peer.read_request())) << "one jar for all";
        peer.answer("");
    });
    EXPECT_EQ(0U, synchronous.exchange(synchronous.request(TESSEL_W("GET"), TESSEL_W("/moved"))));
    player.join();
}

// Exactly one header: the jar's where libcurl sends one, else the caller's.
TEST_F(InetCookies, TheCallersOwnGoesOutWhereTheJarHasNone) {
    const struct {
        const char* what;
        const char* cookie;
        const wchar* object;
        const wchar* headers;
        const char* wanted;
    } rows[] = {
        {"a folder", "a=1; Path=/1/", TESSEL_W("/1/x"), TESSEL_W(""), "a=1"},
        {"a folder without its slash", "a=2; Path=/2/", TESSEL_W("/2"), TESSEL_W(""), "a=2"},
        {"a longer name", "a=3; Path=/3", TESSEL_W("/33"), TESSEL_W(""), "own=1"},
        {"another case", "a=4; Path=/X", TESSEL_W("/x"), TESSEL_W(""), "own=1"},
        {"no path", "a=5", TESSEL_W("/set/y?/z"), TESSEL_W(""), "a=5"},
        {"a secret", "a=6; Path=/6; Secure", TESSEL_W("/6"), TESSEL_W(""), "a=6"},
        {"over", "a=7; Path=/7; Max-Age=0", TESSEL_W("/7"), TESSEL_W(""), "own=1"},
        {"not for scripts", "a=8; Path=/8; HttpOnly", TESSEL_W("/8?q"), TESSEL_W(""), "a=8"},
        {"a name of the caller's", "a=9; Path=/9", TESSEL_W("/9"), TESSEL_W("\r\nHost: other.test"), "own=1"},
        {"quoted", "a=10; Path=\"/10\"", TESSEL_W("/10"), TESSEL_W(""), "a=10"},
        {"another domain", "a=11; Path=/11; Domain=other.test", TESSEL_W("/11"), TESSEL_W(""), "own=1"},
        {"a tab", "a=1\t2; Path=/12", TESSEL_W("/12"), TESSEL_W(""), "own=1"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        exchange(TESSEL_W("/set/here"), TESSEL_W(""), "Set-Cookie: " + std::string(row.cookie) + "\r\n");
        EXPECT_EQ("Cookie: " + std::string(row.wanted) + "\r\n",
                  exchange(row.object,
                           (TESSEL_W("Cookie: own=1") + kro::tessel::wide_string(row.headers)).c_str()));
    }
}

TEST_F(InetCookies, AChallengeThatSetsOneIsAnsweredWithItAlone) {
    const kro::tessel::wide_string me = TESSEL_W("me");
    os::inet().set_credentials(m_client.connection, os::inet_credentials::server, &me, &me);
    send(m_client.request(TESSEL_W("GET"), TESSEL_W("/in")), TESSEL_W("Cookie: own=1"));
    EXPECT_EQ("Cookie: own=1\r\n", cookies_of(m_peer.read_request()));
    m_peer.send(
        std::string("HTTP/1.1 401 No\r\nWWW-Authenticate: Basic realm=r\r\nSet-Cookie: a=1; Path=/in\r\n") +
        k_empty);
    EXPECT_EQ("Cookie: a=1\r\n", cookies_of(m_peer.read_request()));
    m_peer.answer("");
    EXPECT_EQ(0U, m_client.log.wait().error);
}

TEST_F(InetCookies, WordsOfAProxyCountForNoServer) {
    inet_client through(os::inet(), m_server.port(), true);
    through.whole(through.request(TESSEL_W("GET"), TESSEL_W("/"), os::k_request_secure));
    auto peer = m_server.accept_request();
    peer.send(std::string("HTTP/1.1 403 No\r\nSet-Cookie: a=1; Path=/\r\n") + k_empty);
    through.log.wait();
    through.whole(through.request());
    auto next = m_server.accept();
    EXPECT_EQ("", cookies_of(next.read_request()));
    next.answer("");
    EXPECT_EQ(0U, through.log.wait().error);
}

TEST_F(InetCookies, AFloodDoesNotGrowForEver) {
    inet_client other(os::inet(), m_server.port(), TESSEL_W("localhost"));
    other.whole(other.request());
    auto peer = m_server.accept_request();
    peer.send(std::string("HTTP/1.1 200 OK\r\nSet-Cookie: kept=1; Path=/\r\n") + k_empty);
    other.log.wait();
    for (int response = 0; response < 100; ++response) {
        std::string cookies;
        for (int one = 0; one < 50; ++one) {
            cookies += "Set-Cookie: c" + std::to_string(response * 50 + one) + "=1; Path=/flood\r\n";
        }
        exchange(TESSEL_W("/"), TESSEL_W(""), cookies);
    }
    other.whole(other.request());
    const std::string left = cookies_of(peer.read_request());
    peer.answer("");
    other.log.wait();
    EXPECT_EQ("Cookie: kept=1\r\n", left);
}

}  // namespace
}  // namespace tessel_test
