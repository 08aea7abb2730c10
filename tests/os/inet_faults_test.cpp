// Servers that break off, lie or talk something else: each case has one defined outcome, and none hangs.
#include "os/inet_client.h"

#include <algorithm>
#include <cctype>
#include <future>

namespace tessel_test {
namespace {

using testing::ElementsAre;

std::string many_headers(std::size_t bytes) {
    std::string lines = "HTTP/1.1 200 OK\r\n";
    while (lines.size() < bytes) {
        lines += "X-Padding: " + std::string(1000, 'p') + "\r\n";
    }
    return lines;
}

enum class then { stays, closes, resets };

struct fault {
    const char* what;
    std::string bytes;  // what the server says to the request
    then after;
    std::uint32_t end_error;
    std::uint32_t status;
    const char* body;
    std::uint32_t read_error;
};

class InetFaults : public testing::TestWithParam<fault> {};

TEST_P(InetFaults, HaveOneOutcome) {
    const fault& row = GetParam();
    test_server server;
    inet_client client(os::inet(), server.port());
    const auto request = client.sent();
    auto peer = server.accept();
    peer.read_request();
    peer.send(row.bytes);
    if (row.after == then::closes) {
        peer.close();
    } else if (row.after == then::resets && row.bytes.empty()) {
        peer.reset();
    }
    ASSERT_EQ(row.end_error, client.end(request));
    EXPECT_EQ(row.status, client.status(request));
    if (row.end_error != 0) {
        return;
    }
    if (row.after == then::resets && !row.bytes.empty()) {
        peer.reset();
    }
    std::uint32_t error = 0;
    EXPECT_EQ(row.body, client.body(request, error));
    EXPECT_EQ(row.read_error, error);
}

TEST_P(InetFaults, HaveTheSameOneOnTheCallersThread) {
    const fault& row = GetParam();
    test_server server;
    inet_client client(os::inet(), server.port(), TESSEL_W("127.0.0.1"), false);
    std::promise<void> answered;
    std::promise<void> over;
    std::thread player([&] {
        auto peer = server.accept();
        peer.read_request();
        peer.send(row.bytes);
        if (row.after == then::resets && !row.bytes.empty()) {
            answered.get_future().wait();
        }
        if (row.after == then::resets) {
            peer.reset();
        } else if (row.after == then::closes) {
            peer.close();
        }
        over.get_future().wait();
    });
    const auto request = client.request();
    EXPECT_EQ(row.end_error, client.exchange(request));
    answered.set_value();
    EXPECT_EQ(row.status, client.status(request));
    if (row.end_error == 0) {
        std::uint32_t error = 0;
        EXPECT_EQ(row.body, client.body(request, error));
        EXPECT_EQ(row.read_error, error);
    }
    over.set_value();
    player.join();
}

const fault k_faults[] = {
    {"closes before a byte", "", then::closes, 12152, 0, "", 0},
    {"resets before a byte", "", then::resets, 12031, 0, "", 0},
    {"closes in the status line", "HTTP/1.1 20", then::closes, 12152, 0, "", 0},
    {"closes in the headers", "HTTP/1.1 200 OK\r\nX: y", then::closes, 12152, 0, "", 0},
    {"closes behind a header", "HTTP/1.1 200 OK\r\nX: y\r\n", then::closes, 12152, 0, "", 0},
    {"closes before the length is reached", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc", then::closes,
     0, 200, "abc", 0},
    {"resets inside the body", "HTTP/1.1 200 OK\r\nContent-Length: 9\r\n\r\nabc", then::resets, 0, 200, "abc",
     12031},
    {"closes inside a chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n5\r\nabc", then::closes,
     0, 200, "abc", 0},
    {"closes before the last chunk", "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n",
     then::closes, 0, 200, "abc", 0},
    {"sends a chunk size that is none",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\nzz\r\n", then::stays, 0, 200, "abc",
     12030},
    {"sends chunks and a trailer",
     "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\nHTTP/x: y\r\n\r\n", then::stays,
     0, 200, "abc", 0},
    {"sends a body up to the close", "HTTP/1.0 200 OK\r\n\r\nabc", then::closes, 0, 200, "abc", 0},
    {"talks no HTTP", "SSH-2.0-server\r\n", then::closes, 0, 200, "SSH-2.0-server\r\n", 0},
    {"ends its lines with LF", "HTTP/1.1 200 OK\nContent-Length: 2\n\nok", then::stays, 0, 200, "ok", 0},
    {"sends interim responses",
     "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 103 Hints\r\nX: y\r\n\r\nHTTP/1.1 202 OK\r\nContent-Length: "
     "1\r\n\r\nx",
     then::stays, 0, 202, "x", 0},
    {"sends 204 with a length", "HTTP/1.1 204 No\r\nContent-Length: 3\r\n\r\n", then::stays, 0, 204, "", 0},
    {"sends one header of a MiB", "HTTP/1.1 200 OK\r\nX: " + std::string(1U << 20U, 'x'), then::stays, 12152,
     0, "", 0},
    {"sends a MiB of headers", many_headers(1U << 20U), then::stays, 12152, 0, "", 0},
    {"sends a length that is none", "HTTP/1.1 200 OK\r\nContent-Length: ten\r\n\r\nabc", then::closes, 12152,
     0, "", 0},
};

INSTANTIATE_TEST_SUITE_P(Server, InetFaults, testing::ValuesIn(k_faults), [](const auto& row) {
    std::string name = row.param.what;
    std::replace_if(
        name.begin(), name.end(), [](unsigned char c) { return std::isalnum(c) == 0; }, '_');
    return name;
});

TEST(InetFault, RefusedConnectionsFailTheSend) {
    test_server server;
    server.stop_listening();
    inet_client client(os::inet(), server.port());
    const auto request = client.request();
    ASSERT_TRUE(
        client.net.send(request, {}, nullptr, 0, os::inet_send_mode::begin, client.log.context()).pending());
    EXPECT_EQ(12029U, client.log.wait().error);
    EXPECT_EQ(12017U, client.end(request)) << "an end after a failed send";
    EXPECT_THAT(client.log.codes(), ElementsAre(60, 10, 11, 20, 100, 100));
}

TEST(InetFault, NamesThatAreNoneFailTheSend) {
    for (const wchar* const host :
         {TESSEL_W("a b"), TESSEL_W("user@host"), TESSEL_W("h/path"), TESSEL_W("a\u0001b")}) {
        inet_client client(os::inet(), 80, host);
        const auto request = client.request();
        ASSERT_TRUE(client.net.send(request, {}, nullptr, 0, os::inet_send_mode::begin, client.log.context())
                        .pending());
        EXPECT_EQ(12007U, client.log.wait().error);
    }
}

// A kept connection may die just as the next request goes out: it is repeated once, the body included.
TEST(InetFault, ARequestOnADyingConnectionIsRepeated) {
    test_server server;
    inet_client client(os::inet(), server.port());
    const auto first = client.sent();
    auto kept = server.accept();
    kept.read_request();
    kept.answer("1");
    ASSERT_EQ(0U, client.end(first));
    EXPECT_EQ("1", client.body(first));
    const auto second = client.request(TESSEL_W("POST"));
    const std::string body(100'000, 'b');
    ASSERT_TRUE(
        client.net.send(second, {}, body.data(), 100'000, os::inet_send_mode::begin, client.log.context())
            .pending());
    kept.read_request();
    kept.close();
    auto fresh = server.accept();
    const std::string again = fresh.read_request();
    EXPECT_EQ(body, again.substr(again.size() - body.size()));
    fresh.answer("2");
    EXPECT_EQ(1U, client.log.wait().result);
    EXPECT_EQ(0U, client.end(second));
    EXPECT_EQ("2", client.body(second));
}

// What arrives unread stops at a window; nothing of it is lost.
TEST(InetFault, AnUnreadBodyIsHeldBackAndComesWhole) {
    test_server server;
    inet_client client(os::inet(), server.port());
    const auto request = client.sent();
    auto peer = server.accept();
    peer.read_request();
    std::string body(24U << 20U, '\0');
    for (std::size_t i = 0; i < body.size(); ++i) {
        body[i] = static_cast<char>(i * 2654435761U >> 13U);
    }
    std::thread sender([&] { peer.answer(body); });
    EXPECT_EQ(0U, client.end(request));
    while (client.net.available(request).bytes < (std::uint32_t{1} << 20U) - 16384) {
        std::this_thread::yield();
    }
    EXPECT_LE(client.net.available(request).bytes, std::uint32_t{1} << 20U);
    EXPECT_TRUE(client.body(request) == body);
    sender.join();
}

TEST(InetFault, AnAnswerBeforeTheWholeBodyWentOutIsTaken) {
    test_server server;
    inet_client client(os::inet(), server.port());
    const auto request = client.request(TESSEL_W("POST"));
    const std::string body(32U << 20U, 'b');
    ASSERT_TRUE(client.net
                    .send(request, {}, body.data(), static_cast<std::uint32_t>(body.size()),
                          os::inet_send_mode::begin, client.log.context())
                    .pending());
    auto peer = server.accept();
    peer.read_head();
    peer.send("HTTP/1.1 413 Too Large\r\nContent-Length: 3\r\nConnection: close\r\n\r\nbig");
    EXPECT_EQ(1U, client.log.wait().result);
    EXPECT_EQ(0U, client.end(request));
    EXPECT_EQ(413U, client.status(request));
    EXPECT_EQ("big", client.body(request));
}

TEST(InetFault, AServerThatTakesNoBytesTimesTheSendOut) {
    test_server server;
    inet_client client(os::inet(), server.port());
    client.net.set_timeout(client.connection, os::inet_timeout::send, 200);
    const auto request = client.request(TESSEL_W("PUT"));
    const std::string body(64U << 20U, 'b');  // more than the sockets' buffers
    ASSERT_TRUE(client.net
                    .send(request, {}, body.data(), static_cast<std::uint32_t>(body.size()),
                          os::inet_send_mode::begin, client.log.context())
                    .pending());
    auto peer = server.accept();
    EXPECT_EQ(12002U, client.log.wait().error);
}

TEST(InetFault, TheBodyIsNotTouchedAfterClose) {
    test_server server;
    inet_client client(os::inet(), server.port());
    for (int i = 0; i < 8; ++i) {
        const auto request = client.request(TESSEL_W("PUT"));
        const auto bytes = static_cast<std::uint32_t>(8U << 20U);
        auto body = std::make_unique<char[]>(bytes);
        client.net.send(request, {}, body.get(), bytes, os::inet_send_mode::begin, client.log.context());
        auto peer = server.accept();
        peer.read_bytes(static_cast<std::size_t>(i) * 100'000 + 1);
        client.net.close(request);
        body = nullptr;  // AddressSanitizer watches
        EXPECT_EQ(12017U, client.log.wait().error);
    }
}

TEST(InetFault, ABodyThatEndsWithItsConnectionSaysSo) {
    test_server server;
    inet_client client(os::inet(), server.port());
    const auto request = client.sent();
    auto peer = server.accept();
    peer.read_request();
    peer.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nabc");
    ASSERT_EQ(0U, client.end(request));
    client.log.clear();
    char bytes[16];
    ASSERT_TRUE(client.net.read(request, bytes, 16, client.log.context()).status.pending());
    peer.close();
    EXPECT_EQ(3U, client.log.wait().bytes);
    EXPECT_THAT(client.log.codes(), ElementsAre(40, 50, 51, 41, 100));
}

}  // namespace
}  // namespace tessel_test
