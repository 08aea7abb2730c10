// A stop of the process that lasts longer than a time-out.
#include "os/inet_client.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <future>

namespace tessel_test {
namespace {

using steady = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr const char* k_marker = "TESSEL_TEST_OWN_PROCESS";

// This test again in another process, with this text in its environment.
pid_t run_again(const std::string& text) {
    const auto* const test = testing::UnitTest::GetInstance()->current_test_info();
    const std::string filter = std::string("--gtest_filter=") + test->test_suite_name() + '.' + test->name();
    ::setenv(k_marker, text.c_str(), 1);
    const pid_t child = ::fork();
    if (child == 0) {
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
    const pid_t child = run_again(std::to_string(server.port()));
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
