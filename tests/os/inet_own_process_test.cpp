// What only a process of its own can show: a network that swallows or leads nowhere, a resolver that never
// answers, a stop that lasts longer than a time-out.
#include "os/inet_client.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <linux/if.h>
#include <linux/if_tun.h>
#include <netinet/in.h>
#include <poll.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <future>

namespace tessel_test {
namespace {

using steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* k_marker = "TESSEL_TEST_OWN_PROCESS";
constexpr int k_denied = 77;
constexpr bool k_synchronous = false;

void write_file(const char* path, const std::string& text) {
    const int file = ::open(path, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    EXPECT_EQ(static_cast<ssize_t>(text.size()), ::write(file, text.data(), text.size())) << path;
    ::close(file);
}

// This test again in another process, with this text in its environment. It has no second thread before it
// executes, not even a sanitizer's: a namespace can't be entered otherwise.
pid_t run_again(const std::string& text, int namespaces) {
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + '.' + test->name();
    ::setenv(k_marker, text.c_str(), 1);
    const std::string user = "0 " + std::to_string(::getuid()) + " 1";
    const auto child = static_cast<pid_t>(::syscall(SYS_clone, SIGCHLD, 0, 0, 0, 0));
    if (child == 0) {
        if (namespaces != 0 && ::unshare(namespaces) != 0) {
            ::_exit(k_denied);
        }
        if (namespaces != 0) {
            const int map = ::open("/proc/self/uid_map", O_WRONLY | O_CLOEXEC);
            if (::write(map, user.data(), user.size()) < 0) {
                ::_exit(k_denied);
            }
        }
        ::execl("/proc/self/exe", "own_process", filter.c_str(), nullptr);
        ::_exit(1);
    }
    ::unsetenv(k_marker);
    return child;
}

int exit_status_of(pid_t child) {
    int status = -1;
    EXPECT_EQ(child, ::waitpid(child, &status, 0));
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

const char* own_process() {
    return std::getenv(k_marker);
}

// ---- a network of its own

void bring_up(const char* device, const char* address) {
    const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq request{};
    std::strncpy(request.ifr_name, device, IFNAMSIZ - 1);
    auto& four = reinterpret_cast<sockaddr_in&>(request.ifr_addr);
    four.sin_family = AF_INET;
    four.sin_addr.s_addr = inet_addr(address);
    EXPECT_EQ(0, ::ioctl(socket, SIOCSIFADDR, &request)) << std::strerror(errno);
    four.sin_addr.s_addr = inet_addr("255.255.255.0");
    ::ioctl(socket, SIOCSIFNETMASK, &request);
    request.ifr_flags = IFF_UP;
    EXPECT_EQ(0, ::ioctl(socket, SIOCSIFFLAGS, &request)) << std::strerror(errno);
    ::close(socket);
}

/// The end of a network device that nobody reads: what goes to 10.9.8.0/24 is swallowed.
class black_hole {
public:
    black_hole() : m_device(::open("/dev/net/tun", O_RDWR | O_CLOEXEC)) {
        ifreq request{};
        std::strncpy(request.ifr_name, "hole", IFNAMSIZ - 1);
        request.ifr_flags = IFF_TUN | IFF_NO_PI;
        m_is_open = m_device >= 0 && ::ioctl(m_device, TUNSETIFF, &request) == 0;
        if (m_is_open) {
            bring_up("hole", "10.9.8.1");
        }
    }
    black_hole(const black_hole&) = delete;
    black_hole& operator=(const black_hole&) = delete;
    ~black_hole() { ::close(m_device); }

    bool is_open() const { return m_is_open; }

private:
    int m_device;
    bool m_is_open = false;
};

/// The name server of this process, and it says nothing.
class silent_resolver {
public:
    silent_resolver() : m_socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        ::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr);
        show_as("/etc/resolv.conf", "nameserver 127.0.0.1\noptions timeout:30 attempts:5\n");
        show_as("/etc/nsswitch.conf", "hosts: files dns\n");
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(53);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        EXPECT_EQ(0, ::bind(m_socket, reinterpret_cast<sockaddr*>(&address), sizeof address));
    }
    silent_resolver(const silent_resolver&) = delete;
    silent_resolver& operator=(const silent_resolver&) = delete;
    ~silent_resolver() { ::close(m_socket); }

    void wait_for_question(const std::string& label) const {
        for (;;) {
            pollfd entry{m_socket, POLLIN, 0};
            ASSERT_EQ(1, ::poll(&entry, 1, 20'000)) << label;
            char packet[512];
            const ssize_t size = ::recv(m_socket, packet, sizeof packet, 0);
            if (size > 0 &&
                std::string(packet, static_cast<std::size_t>(size)).find(label) != std::string::npos) {
                return;
            }
        }
    }

private:
    static void show_as(const char* path, const std::string& text) {
        char own[] = "/tmp/tessel-resolver-XXXXXX";
        ::close(::mkstemp(own));
        write_file(own, text);
        EXPECT_EQ(0, ::mount(own, path, nullptr, MS_BIND, nullptr)) << path << std::strerror(errno);
        ::unlink(own);
    }

    int m_socket;
};

class InetOwnNetwork : public testing::Test {
protected:
    // True in the process that has the network; the other one has waited for it.
    static bool is_inside() {
        if (own_process() != nullptr) {
            bring_up("lo", "127.0.0.1");
            return true;
        }
        const auto begun = steady::now();
        const int status = exit_status_of(run_again("network", CLONE_NEWUSER | CLONE_NEWNET | CLONE_NEWNS));
        if (status == k_denied) {
            skip("this machine lets nobody make a network namespace, or has no network device for it");
        } else {
            EXPECT_EQ(0, status);
            EXPECT_LT(steady::now() - begun, std::chrono::seconds(25)) << "the exit waited";
        }
        return false;
    }
    static void skip(const char* why) { GTEST_SKIP() << why; }
};

TEST_F(InetOwnNetwork, SilenceTimesTheConnectOutInItsTimeAndNotBefore) {
    if (!is_inside()) {
        return;
    }
    const black_hole hole;
    if (!hole.is_open()) {
        ::_exit(k_denied);
    }
    for (const std::uint32_t limit : {400U, 1500U}) {  // above a second the system has sent a second SYN
        inet_client client(os::inet(), 80, TESSEL_W("10.9.8.7"));
        client.net.set_timeout(client.connection, os::inet_timeout::connect, limit);
        client.net.set_timeout(client.connection, os::inet_timeout::receive, 10);
        const auto request = client.request();
        const auto begun = steady::now();
        client.net.send(request, {}, nullptr, 0, os::inet_send_mode::begin, client.log.context());
        EXPECT_EQ(12002U, client.log.wait().error);
        const auto took = steady::now() - begun;
        EXPECT_GE(took, milliseconds(limit - 1));
        EXPECT_LT(took, milliseconds(limit + 5000));
        EXPECT_THAT(client.log.codes(), testing::Contains(os::k_notice_connecting));
        EXPECT_THAT(client.log.codes(), testing::Not(testing::Contains(os::k_notice_connected)));
    }
    inet_client waiting(os::inet(), 80, TESSEL_W("10.9.8.7"), k_synchronous);
    waiting.net.set_timeout(waiting.connection, os::inet_timeout::connect, 300);
    EXPECT_EQ(12002U, waiting.exchange(waiting.request()));
    inet_client by_proxy(os::inet(), 80, TESSEL_W("ignored.test"));
    const auto session = by_proxy.net.open(os::k_access_proxy, TESSEL_W("10.9.8.7:3128"), {}, {}, false);
    const auto connection = by_proxy.net.connect(session, TESSEL_W("behind.test"), 0, {}, {}, 0);
    by_proxy.net.set_timeout(connection, os::inet_timeout::connect, 300);
    EXPECT_EQ(12002U, by_proxy.exchange(by_proxy.net.open_request(connection, {}, {}, 0, 0)));
    by_proxy.net.close(session);
}

TEST_F(InetOwnNetwork, ANetworkThatLeadsNowhereIsToldAtOnce) {
    if (!is_inside()) {
        return;
    }
    for (const wchar* const host : {TESSEL_W("192.0.2.1"), TESSEL_W("2001:db8::1")}) {
        inet_client client(os::inet(), 80, host);
        const auto request = client.request();
        client.net.send(request, {}, nullptr, 0, os::inet_send_mode::begin, client.log.context());
        EXPECT_EQ(12029U, client.log.wait().error);
    }
}

TEST_F(InetOwnNetwork, AResolverThatNeverAnswersHoldsNothingUp) {
    if (!is_inside()) {
        return;
    }
    const silent_resolver resolver;
    test_server server;
    inet_client slow(os::inet(), 80, TESSEL_W("first.example"));
    const auto hanging = slow.request();
    slow.net.send(hanging, {}, nullptr, 0, os::inet_send_mode::begin, slow.log.context());
    resolver.wait_for_question("first");
    inet_client slower(os::inet(), 80, TESSEL_W("second.example"), k_synchronous);
    const auto waiting = slower.request();
    auto blocked = std::async(std::launch::async, [&] { return slower.exchange(waiting); });
    resolver.wait_for_question("second");

    inet_client quick(os::inet(), server.port());
    const auto other = quick.sent();
    auto peer = server.accept();
    peer.read_request();
    peer.answer("quick");
    EXPECT_EQ(0U, quick.end(other)) << "goes on beside them";
    const auto begun = steady::now();
    slow.net.close(hanging);
    EXPECT_EQ(12017U, slow.log.wait().error);
    slower.net.close(waiting);
    EXPECT_EQ(12017U, blocked.get());
    EXPECT_LT(steady::now() - begun, std::chrono::seconds(10)) << "closing waited for the resolver";

    slow.net.send(slow.request(), {}, nullptr, 0, os::inet_send_mode::begin, slow.log.context());
    resolver.wait_for_question("first");
    std::exit(HasFailure() ? 1 : 0);  // in the midst of it: is_inside measures
}

// ---- a stop

constexpr std::uint32_t k_receive_limit = 1500;
constexpr int k_requests = 140;  // more than one wait for events can tell

// Stops when all requests are out; each has its answer when the process goes on, and its time-out is over.
int be_stopped(std::uint16_t port) {
    std::vector<std::unique_ptr<notice_log>> logs;
    logs.reserve(k_requests);
    inet_client client(os::inet(), port);
    client.net.set_connection_limit(k_requests);
    client.net.set_timeout(client.connection, os::inet_timeout::receive, k_receive_limit);
    std::vector<os::inet_handle> requests;
    requests.reserve(k_requests);
    for (int i = 0; i < k_requests; ++i) {
        logs.push_back(std::make_unique<notice_log>());
        const std::uintptr_t context = logs.back()->context();
        requests.push_back(client.net.open_request(client.connection, {}, {}, 0, context));
        client.net.send(requests.back(), {}, nullptr, 0, os::inet_send_mode::begin, context);
    }
    for (std::size_t i = 0; i < logs.size(); ++i) {
        EXPECT_EQ(0U, logs[i]->wait().error);
        client.net.end(requests[i], logs[i]->context());
    }
    // By then libcurl's own short timers are over too, in whose name it would look at its sockets.
    EXPECT_FALSE(logs.front()->completes_within(milliseconds(300)));
    ::raise(SIGSTOP);
    for (const auto& log : logs) {
        EXPECT_EQ(0U, log->wait().error);
    }
    return testing::Test::HasFailure() ? 1 : 0;
}

TEST(InetOwnProcess, WhatCameDuringALongStopCounts) {
    if (const char* const port = own_process()) {
        std::exit(be_stopped(static_cast<std::uint16_t>(std::atoi(port))));
    }
    test_server server;
    const pid_t child = run_again(std::to_string(server.port()), 0);
    siginfo_t what{};
    ASSERT_EQ(0, ::waitid(P_PID, static_cast<id_t>(child), &what, WSTOPPED | WEXITED | WNOWAIT));
    const auto stopped = steady::now();
    std::vector<server_connection> peers;
    peers.reserve(k_requests);
    for (int i = 0; i < k_requests; ++i) {
        peers.push_back(server.accept());
        peers.back().read_request();
        peers.back().answer("");  // over the loopback: it is in the client's socket now
    }
    std::promise<void> nobody;
    nobody.get_future().wait_until(stopped + milliseconds(k_receive_limit + 300));
    ::kill(child, SIGCONT);
    EXPECT_EQ(0, exit_status_of(child));
}

}  // namespace
}  // namespace tessel_test
