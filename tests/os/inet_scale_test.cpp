// Thousands of requests at a time: all complete, those of a server in the order in which they were sent, none
// at another server's expense, with a bounded number of sockets.
//
// TESSEL_REQUESTS says how many there are (2,000 unless given).
#include "os/inet_client.h"

#include "support/bench_server.h"

#include <dirent.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <csignal>
#include <cstdlib>

namespace tessel_test {
namespace {

std::size_t request_count() {
    const char* const text = std::getenv("TESSEL_REQUESTS");
    return text == nullptr ? 2000 : static_cast<std::size_t>(std::atol(text));
}

// As one process whose descriptors are its own; while it is stopped the system takes connections and requests
// for it, and nobody answers.
class many_servers {
public:
    explicit many_servers(std::size_t count) {
        ::getrlimit(RLIMIT_NOFILE, &m_limit);
        set_limit(m_limit.rlim_max);
        tessel_bench::bench_server server(count);
        ports = server.ports();
        m_process = ::fork();
        if (m_process == 0) {
            ::prctl(PR_SET_PDEATHSIG, SIGKILL);
            server.run();
        }
        server.close_listeners();
        ::kill(m_process, SIGSTOP);
    }
    ~many_servers() {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
        set_limit(m_limit.rlim_cur);
    }
    many_servers(const many_servers&) = delete;
    many_servers& operator=(const many_servers&) = delete;

    static void set_limit(rlim_t descriptors) {
        rlimit now{};
        ::getrlimit(RLIMIT_NOFILE, &now);
        now.rlim_cur = descriptors;
        ::setrlimit(RLIMIT_NOFILE, &now);
    }
    void serve() const { ::kill(m_process, SIGCONT); }

    std::vector<std::uint16_t> ports;

private:
    rlimit m_limit{};
    pid_t m_process = -1;
};

// Requests in the order in which they were sent, and in that in which they completed.
class many_requests {
public:
    explicit many_requests(std::size_t count) : m_servers(count) {
        s_self = this;
        m_session = os::inet().open(os::k_access_direct, {}, {}, {}, true);
        os::inet().set_callback(m_session, on_notice);
    }
    ~many_requests() { os::inet().close(m_session); }
    many_requests(const many_requests&) = delete;
    many_requests& operator=(const many_requests&) = delete;

    os::inet_handle connect(std::uint16_t port) {
        return os::inet().connect(m_session, TESSEL_W("127.0.0.1"), port, {}, {}, 0);
    }
    /// server: of the connection, any number.
    os::inet_handle send(os::inet_handle connection, std::size_t server) {
        const std::uintptr_t context = m_sent + 1;
        m_servers[m_sent++] = server;
        const auto request =
            os::inet().open_request(connection, {}, {}, os::k_request_keep_connection, context);
        os::inet().send(request, {}, nullptr, 0, os::inet_send_mode::whole, context);
        return request;
    }
    void wait_for(std::size_t count, const std::size_t many_requests::*which) {
        std::unique_lock lock(m_mutex);
        EXPECT_TRUE(m_changed.wait_for(lock, std::chrono::seconds(60), [&] { return this->*which >= count; }))
            << this->*which << " of " << count;
    }
    void wait_for_all() { wait_for(m_sent, &many_requests::completed); }

    std::size_t server_of(std::size_t request) const { return m_servers[request]; }

    std::size_t connected = 0;
    std::size_t completed = 0;
    std::size_t failed = 0;
    std::vector<std::size_t> order;  // of those that succeeded, by number

private:
    static void on_notice(os::inet_handle /*handle*/, std::uintptr_t context, std::uint32_t code,
                          const void* information, std::uint32_t /*length*/) {
        many_requests& self = *s_self;
        const std::lock_guard lock(self.m_mutex);
        if (code == os::k_notice_request_sent) {
            ++self.connected;
        } else if (code == os::k_notice_request_complete) {
            ++self.completed;
            if (static_cast<const os::inet_async_result*>(information)->result == 0) {
                ++self.failed;
            } else {
                self.order.push_back(context - 1);
            }
        } else {
            return;
        }
        self.m_changed.notify_all();
    }

    static inline many_requests* s_self = nullptr;
    std::mutex m_mutex;  // guards the counts and the order
    std::condition_variable m_changed;
    std::vector<std::size_t> m_servers;
    std::size_t m_sent = 0;
    os::inet_handle m_session = nullptr;
};

std::size_t open_descriptors() {
    std::size_t count = 0;
    DIR* const folder = ::opendir("/proc/self/fd");
    while (::readdir(folder) != nullptr) {
        ++count;
    }
    ::closedir(folder);
    return count;
}

// Some are closed while they wait.
TEST(InetScale, RequestsOfOneServerKeepTheirOrder) {
    const many_servers servers(10);
    const std::size_t count = request_count();
    many_requests requests(count);
    os::inet().set_connection_limit(1);
    std::vector<os::inet_handle> connections;
    connections.reserve(servers.ports.size());
    for (const std::uint16_t port : servers.ports) {
        connections.push_back(requests.connect(port));
    }
    for (std::size_t i = 0; i < count; ++i) {
        const auto request = requests.send(connections[i % connections.size()], i % connections.size());
        if (i % 7 == 3) {
            os::inet().close(request);
        }
    }
    servers.serve();
    requests.wait_for_all();
    EXPECT_EQ((count + 3) / 7, requests.failed);
    std::vector<std::size_t> last(connections.size());
    for (const std::size_t request : requests.order) {
        const std::size_t before = std::exchange(last[requests.server_of(request)], request);
        ASSERT_LE(before, request);
    }
    os::inet().set_connection_limit(6);
}

// One server's thousands come first, and then a few for each of many others, with few descriptors for all.
TEST(InetScale, AServerWithManyRequestsLeavesTheOthersTheirTurn) {
    const std::size_t count = request_count();
    const std::size_t others = count / 10;
    many_servers servers(1 + others);
    constexpr rlim_t k_descriptors = 256;
    many_servers::set_limit(k_descriptors);
    many_requests requests(count);
    const auto big = requests.connect(servers.ports[0]);
    for (std::size_t i = 0; i < count / 2; ++i) {
        requests.send(big, 0);
    }
    std::vector<os::inet_handle> connections;
    connections.reserve(others);
    for (std::size_t i = 0; i < others; ++i) {
        connections.push_back(requests.connect(servers.ports[1 + i]));
    }
    for (std::size_t i = count / 2; i < count; ++i) {
        requests.send(connections[i % others], 1 + i % others);
    }
    constexpr std::size_t k_share = k_descriptors / 8 * 3;
    requests.wait_for(k_share, &many_requests::connected);
    EXPECT_LE(open_descriptors(), k_share + 32) << "the rest is the host's";
    servers.serve();
    requests.wait_for_all();
    EXPECT_EQ(0U, requests.failed);
    const auto of_others = [&](std::size_t request) { return requests.server_of(request) != 0; };
    const auto last = std::find_if(requests.order.rbegin(), requests.order.rend(), of_others);
    const auto ahead = std::count_if(last, requests.order.rend(), std::not_fn(of_others));
    EXPECT_LE(ahead, static_cast<std::ptrdiff_t>(count / 20))
        << "of the first server's, before all others were done";
}

}  // namespace
}  // namespace tessel_test
