// The service thread: look-ups that hang, closing from anywhere at any moment, limits, idle time, exit.
#include "os/inet_client.h"
#include "os/linux/inet_service.h"
#include "os/linux/transfer_loop.h"

#include <dlfcn.h>
#include <netdb.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <random>

namespace tessel_test {
namespace {

// Look-ups of names that end in ".test" wait at this gate, then find the loopback.
class lookup_gate {
public:
    void enter() {
        std::unique_lock lock(m_mutex);
        ++m_entered;
        m_changed.notify_all();
        m_changed.wait(lock, [this] { return m_open; });
    }
    void wait_for_entries(int count) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_entered >= count; });
    }
    void shut() {
        const std::lock_guard lock(m_mutex);
        m_open = false;
        m_entered = 0;
    }
    void open() {
        const std::lock_guard lock(m_mutex);
        m_open = true;
        m_changed.notify_all();
    }

private:
    std::mutex m_mutex;  // guards all below
    std::condition_variable m_changed;
    bool m_open = true;
    int m_entered = 0;
};

lookup_gate& gate() {
    static auto* const only = new lookup_gate;
    return *only;
}

}  // namespace
}  // namespace tessel_test

// Takes the place of the C library's for the whole program, libcurl included.
extern "C" int getaddrinfo(const char* name, const char* service, const addrinfo* hints, addrinfo** result) {
    static const auto original = reinterpret_cast<decltype(&getaddrinfo)>(::dlsym(RTLD_NEXT, "getaddrinfo"));
    const std::string host = name == nullptr ? "" : name;
    if (host.size() > 5 && host.compare(host.size() - 5, 5, ".test") == 0) {
        tessel_test::gate().enter();
        return original("127.0.0.1", service, hints, result);
    }
    return original(name, service, hints, result);
}

namespace tessel_test {
namespace {

TEST(InetThreads, ALookUpThatHangsHoldsNothingUp) {
    test_server server;
    gate().shut();
    inet_client slow(os::inet(), server.port(), TESSEL_W("slow.test"));
    inet_client quick(os::inet(), server.port());
    const auto hanging = slow.request();
    slow.net.send(hanging, {}, nullptr, 0, os::inet_send_mode::begin, slow.log.context());
    gate().wait_for_entries(1);
    const auto other = quick.sent();  // goes on beside it
    auto peer = server.accept();
    peer.read_request();
    peer.answer("quick");
    EXPECT_EQ(0U, quick.end(other));
    EXPECT_TRUE(slow.net.close(hanging).ok());  // and closing doesn't wait for it
    EXPECT_EQ(12017U, slow.log.wait().error);
    EXPECT_THAT(slow.log.codes(), testing::ElementsAre(60, 10, 100, 70));
    const auto again = slow.request();
    slow.net.send(again, {}, nullptr, 0, os::inet_send_mode::begin, slow.log.context());
    gate().open();
    EXPECT_EQ(1U, slow.log.wait().result);
    peer = server.accept();
    EXPECT_NE(std::string::npos, peer.read_request().find("Host: slow.test:"));
    EXPECT_FALSE(server.has_client()) << "the closed request did not connect";
}

TEST(InetThreads, TheConnectTimeOutCoversTheLookUp) {
    gate().shut();
    inet_client slow(os::inet(), 1, TESSEL_W("slower.test"));
    slow.net.set_timeout(slow.connection, os::inet_timeout::connect, 100);
    const auto hanging = slow.request();
    slow.net.send(hanging, {}, nullptr, 0, os::inet_send_mode::begin, slow.log.context());
    EXPECT_EQ(12002U, slow.log.wait().error);
    gate().open();
}

TEST(InetThreads, RequestsBeyondTheLimitWaitInOrder) {
    test_server server;
    std::vector<std::unique_ptr<notice_log>> logs;
    inet_client client(os::inet(), server.port());
    client.net.set_connection_limit(2);
    std::vector<os::inet_handle> requests;
    for (int i = 0; i < 5; ++i) {
        logs.push_back(std::make_unique<notice_log>());
        const kro::tessel::wide_string object{TESSEL_W('/'), static_cast<wchar>(TESSEL_W('0') + i)};
        requests.push_back(client.net.open_request(client.connection, {}, object, 0, logs.back()->context()));
        client.net.send(requests.back(), {}, nullptr, 0, os::inet_send_mode::whole, logs.back()->context());
    }
    server_connection peers[2] = {server.accept(), server.accept()};
    const auto serve = [&](server_connection& peer, char expected) {
        EXPECT_EQ(expected, peer.read_request().at(5));
        peer.answer("");
    };
    client.net.close(requests[2]);  // one that waits
    EXPECT_EQ(12017U, logs[2]->wait().error);
    serve(peers[0], '0');
    EXPECT_EQ(0U, logs[0]->wait().error);
    serve(peers[0], '3');
    EXPECT_EQ(0U, logs[3]->wait().error);
    serve(peers[0], '4');
    EXPECT_EQ(0U, logs[4]->wait().error);
    serve(peers[1], '1');
    EXPECT_EQ(0U, logs[1]->wait().error);
    EXPECT_FALSE(server.has_client());
    client.net.set_connection_limit(6);
}

double service_seconds() {
    rusage use{};
    ::getrusage(RUSAGE_SELF, &use);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(use.ru_utime) + seconds(use.ru_stime);
}

// A spinning service thread would use all of the time that is waited here.
TEST(InetThreads, StalledAndPausedTransfersUseNoProcessorTime) {
    test_server server;
    std::vector<server_connection> peers;
    std::vector<std::unique_ptr<notice_log>> logs;
    inet_client client(os::inet(), server.port());
    client.net.set_connection_limit(100);
    const std::string megabyte(std::size_t{1} << 20U, 'x');
    for (int i = 0; i < 100; ++i) {
        logs.push_back(std::make_unique<notice_log>());
        const auto request = client.net.open_request(client.connection, {}, {}, 0, logs.back()->context());
        client.net.send(request, {}, nullptr, 0, os::inet_send_mode::whole, logs.back()->context());
        peers.push_back(server.accept());
        peers.back().read_request();
        if (i % 2 == 0) {
            peers.back().send("HTTP/1.1 200 OK\r\nContent-Length: 9999999\r\n\r\n" + megabyte);
            EXPECT_EQ(0U, logs.back()->wait().error);
            while (client.net.available(request).bytes < megabyte.size() - 65536) {
                std::this_thread::yield();
            }
            peers.back().send("more than the window holds");
        }
    }
    client.log.completes_within(std::chrono::milliseconds(50));
    const double before = service_seconds();
    client.log.completes_within(std::chrono::milliseconds(500));
    EXPECT_LT(service_seconds() - before, 0.05);
    client.net.set_connection_limit(6);
}

// Any thread may close any handle at any moment: nothing is lost, delivered twice or touched afterwards.
TEST(InetThreads, ClosingRacesWithEverything) {
    constexpr int k_requests = 300;
    test_server server;
    std::atomic<bool> done{false};
    std::thread serving([&] {
        std::vector<server_connection> peers;
        while (!done) {
            if (server.has_client()) {
                peers.push_back(server.accept());
            }
            for (auto& peer : peers) {
                if (peer.is_open() && peer.has_bytes()) {
                    if (peer.read_request().empty()) {
                        peer.close();
                    } else {
                        peer.answer("some body");
                    }
                }
            }
        }
    });
    inet_client client(os::inet(), server.port());
    struct shared_request {
        notice_log log;
        std::atomic<os::inet_handle> handle{nullptr};
        char body[64];
    };
    std::vector<std::unique_ptr<shared_request>> all;
    for (int i = 0; i < k_requests; ++i) {
        all.push_back(std::make_unique<shared_request>());
        shared_request& one = *all.back();
        one.log.on_notice = [&client, &one](const notice& what) {
            if (what.code == os::k_notice_request_complete && what.result.result == 1) {
                if (!client.net.end(what.handle, one.log.context()).pending()) {
                    client.net.read(what.handle, one.body, sizeof one.body, one.log.context());
                }
            }
        };
    }
    std::thread closing([&] {
        std::mt19937 random(7);
        for (const auto& one : all) {
            while (one->handle == nullptr) {
                std::this_thread::yield();
            }
            for (auto spin = random() % 3000; spin != 0; --spin) {
                one->handle.load();
            }
            client.net.close(one->handle);
        }
    });
    for (const auto& one : all) {
        const auto handle = client.request();
        const auto context = one->log.context();
        const auto mine =
            client.net.open_request(client.connection, {}, {}, os::k_request_keep_connection, context);
        one->handle = mine;
        client.net.send(mine, {}, nullptr, 0, os::inet_send_mode::begin, context);
        client.net.close(handle);
    }
    closing.join();
    client.net.close(client.session);
    done = true;
    serving.join();
    for (const auto& one : all) {
        const auto codes = one->log.codes();
        EXPECT_EQ(1, std::count(codes.begin(), codes.end(), 70U));
        EXPECT_EQ(70U, codes.back());
    }
}

// The process may end with requests in every state; the look-up that hangs must not hold it up.
TEST(InetThreadsDeathTest, TheProcessEndsWithRequestsUnderWay) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(
        {
            test_server server;
            auto* const quick = new inet_client(os::inet(), server.port());
            auto* const slow = new inet_client(os::inet(), 1, TESSEL_W("never.test"));
            gate().shut();
            slow->net.send(slow->request(), {}, nullptr, 0, os::inet_send_mode::begin, slow->log.context());
            gate().wait_for_entries(1);
            quick->net.end(quick->sent(), quick->log.context());
            std::exit(0);
        },
        testing::ExitedWithCode(0), "");
}

TEST(InetThreads, AServiceThatWasStoppedRefusesRequests) {
    os::transfer_loop loop;
    const auto service = os::make_inet_service(loop);
    test_server server;
    inet_client client(*service, server.port());
    client.sent();
    loop.stop();
    const auto request = client.request();
    EXPECT_EQ(
        12047U,
        client.net.send(request, {}, nullptr, 0, os::inet_send_mode::begin, client.log.context()).error);
}

}  // namespace
}  // namespace tessel_test
