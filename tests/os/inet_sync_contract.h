// What every implementation of os::inet_service must do with synchronous handles: everything inside the
// call and on its thread, and no call in the way of another one. A suite like os/inet_contract.h.
#pragma once

#include "os/inet_contract.h"

#include <algorithm>
#include <future>

namespace tessel_test {

class InetSyncContract : public InetContract {
protected:
    static constexpr auto k_host = TESSEL_W("127.0.0.1");
};

TEST_P(InetSyncContract, DoesEachStepInsideItsCall) {
    test_server server;
    inet_client client(net(), server.port(), k_host, false);
    std::thread player([&] {
        auto peer = server.accept();
        const std::string received = peer.read_request();
        EXPECT_EQ("hello", received.substr(received.size() - 5));
        peer.send("HTTP/1.1 404 Not Found\r\nContent-Length: 10\r\n\r\n");
        peer.send("01234");
        peer.send("56789");
        EXPECT_TRUE(peer.read_request().find("GET /two ") == 0) << "the connection serves again";
        peer.answer("two");
    });
    const auto request = client.request(TESSEL_W("POST"));
    EXPECT_EQ(0U, client.exchange(request, "hello"));
    EXPECT_EQ(404U, client.status(request));
    const os::inet_read_status there = net().available(request);
    EXPECT_TRUE(there.status.ok());
    EXPECT_THAT(there.bytes, testing::AllOf(testing::Gt(0U), testing::Le(10U)));
    EXPECT_EQ("0123456789", client.body(request)) << "available takes nothing";
    EXPECT_EQ(0U, net().available(request).bytes) << "the end";
    auto seen = client.log.all();
    for (const std::uint32_t code : {60U, 30U, 31U, 40U, 41U}) {
        EXPECT_THAT(client.log.codes(), testing::Contains(code));
    }
    EXPECT_THAT(client.log.codes(), testing::Not(testing::Contains(100U)));
    EXPECT_TRUE(std::all_of(seen.begin(), seen.end(),
                            [](const notice& one) { return one.thread == std::this_thread::get_id(); }));
    net().close(request);
    const auto second = client.request(TESSEL_W("GET"), TESSEL_W("/two"));
    EXPECT_EQ(0U, client.exchange(second));
    EXPECT_EQ("two", client.body(second));
    player.join();
    EXPECT_FALSE(server.has_client());
}

TEST_P(InetSyncContract, FollowsARedirectAndSendsAgain) {
    test_server server;
    inet_client client(net(), server.port(), k_host, false);
    std::thread player([&] {
        auto peer = server.accept_request();
        peer.send("HTTP/1.1 302 Found\r\nLocation: /next\r\nContent-Length: 5\r\n\r\nmoved");
        EXPECT_EQ(0U, peer.read_request().find("GET /next "));
        peer.answer("first");
        EXPECT_EQ(0U, peer.read_request().find("GET / "));
        peer.answer("second");
    });
    const auto request = client.request();
    EXPECT_EQ(0U, client.exchange(request));
    EXPECT_EQ("first", client.body(request));
    EXPECT_EQ(0U, client.exchange(request)) << "the same handle again";
    EXPECT_EQ("second", client.body(request));
    player.join();
}

// Each wait has the whole time-out: what passes between two calls isn't waited for by anybody.
TEST_P(InetSyncContract, TimesOutAWaitAndNotTheWhole) {
    test_server server;
    inet_client client(net(), server.port(), k_host, false);
    net().set_timeout(client.connection, os::inet_timeout::receive, 300);
    std::promise<void> over;
    std::thread player([&] {
        auto peer = server.accept_request();
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n0123");
        over.get_future().wait();
    });
    const auto request = client.request();
    ASSERT_EQ(0U, client.exchange(request));
    char bytes[16];
    EXPECT_EQ(4U, net().read(request, bytes, 4, 0).bytes);
    const auto resumes = std::chrono::steady_clock::now() + std::chrono::milliseconds(600);
    std::promise<void> nobody;
    nobody.get_future().wait_until(resumes);
    const os::inet_read_status late = net().read(request, bytes, 4, 0);
    EXPECT_EQ(12002U, late.status.error);
    EXPECT_GE(std::chrono::steady_clock::now() - resumes, std::chrono::milliseconds(250));
    over.set_value();
    player.join();
    EXPECT_EQ(12002U, client.exchange(client.request())) << "no response at all";
}

TEST_P(InetSyncContract, CloseEndsACallThatWaitsAndNoOther) {
    test_server server;
    inet_client waiting(net(), server.port(), k_host, false);
    inet_client other(net(), server.port(), k_host, false);
    const auto request = waiting.request();
    auto blocked = std::async(std::launch::async, [&] { return waiting.exchange(request); });
    auto silent = server.accept_request();
    auto quick = std::async(std::launch::async, [&] { return other.exchange(other.request()); });
    auto peer = server.accept_request();
    peer.answer("x");
    EXPECT_EQ(0U, quick.get()) << "goes on beside the other";
    EXPECT_EQ(12026U, waiting.exchange(request)) << "one call at a time";
    EXPECT_TRUE(net().close(request).ok());
    EXPECT_EQ(12017U, blocked.get());
    EXPECT_EQ(70U, waiting.log.codes().back());
    EXPECT_TRUE(silent.wait_for_close());
}

}  // namespace tessel_test
