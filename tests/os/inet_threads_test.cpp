// The service thread: look-ups that hang, closing from anywhere at any moment, limits, idle time, exit.
#include "os/inet_client.h"
#include "os/linux/inet_service.h"
#include "os/linux/transfer_loop.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <future>
#include <random>
#include <stdexcept>

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
    slow.begin(hanging);
    gate().wait_for_entries(1);
    const auto other = quick.sent();  // goes on beside it
    auto peer = server.accept_request();
    peer.answer("quick");
    EXPECT_EQ(0U, quick.end(other));
    EXPECT_TRUE(slow.net.close(hanging).ok());  // and closing doesn't wait for it
    EXPECT_EQ(12017U, slow.log.wait().error);
    EXPECT_THAT(slow.log.codes(), testing::ElementsAre(60, 10, 100, 70));
    inet_client impatient(os::inet(), 1, TESSEL_W("slower.test"));
    impatient.net.set_timeout(impatient.connection, os::inet_timeout::connect, 100);
    impatient.begin(impatient.request());
    EXPECT_EQ(12002U, impatient.log.wait().error) << "its time-out covers the look-up";
    const auto again = slow.request();
    slow.begin(again);
    gate().open();
    EXPECT_EQ(1U, slow.log.wait().result);
    peer = server.accept();
    EXPECT_NE(std::string::npos, peer.read_request().find("Host: slow.test:"));
    EXPECT_FALSE(server.has_client()) << "the closed request did not connect";
}

constexpr bool k_synchronous = false;

TEST(InetThreads, ASynchronousCallIsClosedInsideItsLookUp) {
    test_server server;
    gate().shut();
    inet_client slow(os::inet(), server.port(), TESSEL_W("slowest.test"), k_synchronous);
    const auto hanging = slow.request();
    auto blocked = std::async(std::launch::async, [&] { return slow.exchange(hanging); });
    gate().wait_for_entries(1);
    EXPECT_TRUE(slow.net.close(hanging).ok());
    EXPECT_EQ(12017U, blocked.get());
    slow.net.set_timeout(slow.connection, os::inet_timeout::connect, 100);
    EXPECT_EQ(12002U, slow.exchange(slow.request())) << "the time-out covers the look-up";
    inet_client quick(os::inet(), server.port(), TESSEL_W("127.0.0.1"), k_synchronous);
    auto beside = std::async(std::launch::async, [&] { return quick.exchange(quick.request()); });
    auto peer = server.accept_request();
    peer.answer("");
    EXPECT_EQ(0U, beside.get());
    gate().open();
}

/// A port whose queue is full: what wants to connect hears nothing.
class silent_port {
public:
    silent_port() {
        socklen_t size = sizeof m_address;
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, ::bind(m_sockets[0], reinterpret_cast<sockaddr*>(&m_address), size));
        EXPECT_EQ(0, ::listen(m_sockets[0], 0));
        ::getsockname(m_sockets[0], reinterpret_cast<sockaddr*>(&m_address), &size);
        for (const int filling : {m_sockets[1], m_sockets[2], m_sockets[3]}) {
            static_cast<void>(::connect(filling, reinterpret_cast<sockaddr*>(&m_address), size));
        }
    }
    silent_port(const silent_port&) = delete;
    silent_port& operator=(const silent_port&) = delete;
    ~silent_port() { std::for_each(std::begin(m_sockets), std::end(m_sockets), ::close); }

    std::uint16_t number() const { return ntohs(m_address.sin_port); }

private:
    static int new_socket() { return ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0); }

    const int m_sockets[4] = {new_socket(), new_socket(), new_socket(), new_socket()};
    sockaddr_in m_address{};
};

// The limit is above a second: the system has asked a second time by then.
TEST(InetThreads, SilenceTimesTheConnectOutInItsTimeAndNotBefore) {
    using std::chrono::milliseconds;
    const silent_port port;
    for (const bool is_asynchronous : {true, false}) {
        inet_client client(os::inet(), port.number(), TESSEL_W("127.0.0.1"), is_asynchronous);
        client.net.set_timeout(client.connection, os::inet_timeout::connect, 1500);
        client.net.set_timeout(client.connection, os::inet_timeout::receive, 10);
        const auto begun = std::chrono::steady_clock::now();
        const os::inet_status sent = client.begin(client.request());
        EXPECT_EQ(12002U, sent.pending() ? client.log.wait().error : sent.error);
        const auto took = std::chrono::steady_clock::now() - begun;
        EXPECT_GE(took, milliseconds(1499));
        EXPECT_LT(took, milliseconds(6500));
        EXPECT_THAT(client.log.codes(), testing::Contains(os::k_notice_connecting));
        EXPECT_THAT(client.log.codes(), testing::Not(testing::Contains(os::k_notice_connected)));
    }
}

// Processor time of the process, or of the calling thread.
double seconds_used(int whose) {
    rusage use{};
    ::getrusage(whose, &use);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(use.ru_utime) + seconds(use.ru_stime);
}

// Less than the 512 KiB that libcurl asks for at a time go out within the limit.
TEST(InetThreads, AServerThatReadsSlowlyIsNotTimedOut) {
    test_server server;
    inet_client client(os::inet(), server.port());
    client.net.set_timeout(client.connection, os::inet_timeout::send, 400);
    const auto request = client.request(TESSEL_W("PUT"));
    const std::string body(16U << 20U, 'b');
    EXPECT_TRUE(client.begin(request, body).pending());
    auto peer = server.accept();
    const int small = 16384;  // so that the window opens with each read
    ::setsockopt(peer.socket(), SOL_SOCKET, SO_RCVBUF, &small, sizeof small);
    peer.read_head();
    peer.read_bytes(8U << 20U);
    for (int i = 0; i < 10; ++i) {
        peer.read_bytes(60'000);
        EXPECT_FALSE(client.log.completes_within(std::chrono::milliseconds(100)));
    }
    peer.read_bytes((8U << 20U) - 600'000);
    EXPECT_EQ(0U, client.log.wait().error);
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
    const double before = seconds_used(RUSAGE_SELF);
    client.log.completes_within(std::chrono::milliseconds(500));
    EXPECT_LT(seconds_used(RUSAGE_SELF) - before, 0.05);
    client.net.set_connection_limit(6);
}

TEST(InetThreads, ACallThatWaitsUsesNoProcessorTime) {
    test_server server;
    inet_client client(os::inet(), server.port(), TESSEL_W("127.0.0.1"), k_synchronous);
    client.net.set_timeout(client.connection, os::inet_timeout::receive, 600);
    double used = 0;
    auto blocked = std::async(std::launch::async, [&] {
        const double before = seconds_used(RUSAGE_THREAD);
        const auto outcome = client.exchange(client.request());
        used = seconds_used(RUSAGE_THREAD) - before;
        return outcome;
    });
    auto silent = server.accept_request();
    EXPECT_EQ(12002U, blocked.get());
    EXPECT_LT(used, 0.05);
}

/// Answers every request until it is destroyed; clients may hang up at any moment.
class answering_server {
public:
    answering_server() : m_thread([this] { run(); }) {}
    ~answering_server() {
        m_done = true;
        m_thread.join();
    }
    answering_server(const answering_server&) = delete;
    answering_server& operator=(const answering_server&) = delete;

    std::uint16_t port() const { return m_server.port(); }

private:
    void run() {
        std::vector<server_connection> peers;
        while (!m_done) {
            if (m_server.has_client()) {
                peers.push_back(m_server.accept());
            }
            for (auto& peer : peers) {
                serve(peer);
            }
        }
    }

    static void serve(server_connection& peer) {
        try {
            if (!peer.is_open() || !peer.has_bytes()) {
                return;
            }
            if (peer.read_request().empty()) {
                peer.close();
            } else {
                peer.answer("some body");
            }
        } catch (const std::runtime_error&) {
            peer.close();
        }
    }

    test_server m_server;
    std::atomic<bool> m_done{false};
    std::thread m_thread;
};

/// A request that takes its own steps in its notices, and that another thread closes meanwhile.
struct raced_request {
    notice_log log;
    std::atomic<os::inet_handle> handle{nullptr};
    std::atomic<int> completions{0};
    char body[64];

    explicit raced_request(os::inet_service& net) {
        log.on_notice = [this, &net](const notice& what) {
            if (what.code != os::k_notice_request_complete || what.result.result == 0) {
                return;
            }
            if (++completions == 1) {
                net.end(what.handle, log.context());
            } else {
                net.read(what.handle, body, sizeof body, log.context());
            }
        };
    }
    void start(inet_client& client) {
        const auto mine =
            client.net.open_request(client.connection, {}, {}, os::k_request_keep_connection, log.context());
        handle = mine;
        client.net.send(mine, {}, nullptr, 0, os::inet_send_mode::begin, log.context());
    }
    void close_after(os::inet_service& net, std::uint_fast32_t turns) {
        while (handle == nullptr) {
            std::this_thread::yield();
        }
        for (; turns != 0; --turns) {
            handle.load();
        }
        net.close(handle);
    }
};

// Any thread may close any handle at any moment: nothing is lost, delivered twice or touched afterwards.
TEST(InetThreads, ClosingRacesWithEverything) {
    const answering_server server;
    std::vector<std::unique_ptr<raced_request>> all;
    all.reserve(600);
    for (int i = 0; i < 600; ++i) {
        all.push_back(std::make_unique<raced_request>(os::inet()));
    }
    inet_client client(os::inet(), server.port());
    std::thread closing([&] {
        std::mt19937 random(7);
        for (const auto& one : all) {
            one->close_after(client.net, random() % 300'000);
        }
    });
    for (const auto& one : all) {
        one->start(client);
    }
    closing.join();
    client.net.close(client.session);
    for (const auto& one : all) {
        const auto codes = one->log.codes();
        EXPECT_EQ(1, std::count(codes.begin(), codes.end(), os::k_notice_handle_closing));
        EXPECT_EQ(os::k_notice_handle_closing, codes.back());
    }
}

// The same with calls that wait: each of 8 threads sends one request after the other, another closes them.
TEST(InetThreads, ClosingRacesWithCallsThatWait) {
    const answering_server server;
    inet_client client(os::inet(), server.port(), TESSEL_W("127.0.0.1"), k_synchronous);
    std::vector<std::atomic<os::inet_handle>> current(8);
    std::atomic<std::size_t> running{current.size()};
    std::atomic<int> answered{0};
    std::vector<std::thread> callers;
    callers.reserve(current.size());
    for (auto& handle : current) {
        callers.emplace_back([&] {
            for (int i = 0; i < 100; ++i) {
                const auto request = client.net.open_request(client.connection, {}, {}, 0, 0);
                handle = request;
                char body[64];
                const bool sent = client.exchange(request) == 0;
                if (sent && client.net.read(request, body, sizeof body, 0).bytes == 9) {
                    ++answered;
                }
                client.net.close(request);
            }
            --running;
        });
    }
    std::mt19937 random(11);
    while (running != 0) {
        client.net.close(current[random() % current.size()]);
        for (auto pause = random() % 300'000; pause != 0; --pause) {
            running.load();
        }
    }
    for (auto& caller : callers) {
        caller.join();
    }
    EXPECT_GT(answered, 0);
}

// The process may end with requests in every state; the look-up that hangs must not hold it up.
TEST(InetThreads, AForkedProcessRefusesRequestsAndEnds) {
    test_server server;
    inet_client client(os::inet(), server.port());
    const auto under_way = client.sent();
    const pid_t child = ::fork();
    if (child == 0) {
        const auto refused = client.begin(client.request());
        inet_client own(os::inet(), server.port(), TESSEL_W("127.0.0.1"), k_synchronous);
        std::exit(refused.error == 12047 && own.exchange(own.request()) == 12047 ? 0 : 1);
    }
    int status = -1;
    ASSERT_EQ(child, ::waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
    auto peer = server.accept_request();
    peer.answer("unharmed");
    EXPECT_EQ(0U, client.end(under_way));
}

// Takes every descriptor that the process may still open, until it is told to give them back.
class all_descriptors {
public:
    all_descriptors() {
        ::getrlimit(RLIMIT_NOFILE, &m_limit);
        rlimit low = m_limit;
        low.rlim_cur = 256;
        ::setrlimit(RLIMIT_NOFILE, &low);
        for (int taken = 0; (taken = ::open("/dev/null", O_RDONLY)) >= 0;) {
            m_taken.push_back(taken);
        }
    }
    all_descriptors(const all_descriptors&) = delete;
    all_descriptors& operator=(const all_descriptors&) = delete;
    ~all_descriptors() {
        give_back();
        ::setrlimit(RLIMIT_NOFILE, &m_limit);
    }
    void give_back() {
        std::for_each(m_taken.begin(), m_taken.end(), ::close);
        m_taken.clear();
    }

private:
    rlimit m_limit{};
    std::vector<int> m_taken;
};

TEST(InetThreads, RequestsWaitForDescriptors) {
    test_server warm_server;
    test_server server;
    inet_client warm(os::inet(), warm_server.port());
    warm.sent();  // the service thread has its own descriptors
    inet_client client(os::inet(), server.port());
    all_descriptors taken;
    client.log.on_notice = [&taken](const notice& one) {
        if (one.code == os::k_notice_connecting) {  // told when the first try is over
            taken.give_back();
        }
    };
    const auto request = client.sent();
    auto peer = server.accept_request();
    peer.answer("late");
    EXPECT_EQ(0U, client.end(request));
}

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
            auto peer = server.accept();
            std::thread([port = server.port()] {
                inet_client waiting(os::inet(), port, TESSEL_W("127.0.0.1"), k_synchronous);
                waiting.exchange(waiting.request());
            }).detach();
            auto silent = server.accept();
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
    EXPECT_EQ(12047U, client.begin(request).error);
}

}  // namespace
}  // namespace tessel_test
