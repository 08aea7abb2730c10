// A process may end in any way, from any thread, with requests in every phase: it ends at once and in peace.
#include "support/ascii.h"
#include "support/test_server.h"
#include "tessel/tessel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using tessel_test::server_connection;
using tessel_test::test_server;

constexpr int k_ended_as_asked = 7;
constexpr std::uint32_t k_patience_ms = 60000;

std::atomic<int> g_completed{0};

// One request that is over, one that waits for its response, one inside its body, one that has no connection
// yet, and a detached one.
class busy_engine {
public:
    busy_engine() {
        http_init();
        start();
        answer("HTTP/1.1 200 OK\r\nContent-Length: 4\r\n\r\ntext");
        kro::tessel::message_loop::run_until([] { return g_completed == 1; }, k_patience_ms);
        start();
        answer("");
        start();
        answer("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhello");
        start();
        http_session::mgr().detach(detached = start());
        kro::tessel::message_loop::pump();
    }

    session_context* start() {
        const auto complete = [](unsigned long, session_context*) { ++g_completed; };
        return invoke2(CTString(tessel_test::wide(server.url())), {}, nullptr, 0, 0, complete, 0,
                       http_method_get);
    }

    // Turns the loop until the request is out, for the connection is made from it.
    void answer(const char* bytes) {
        kro::tessel::message_loop::run_until(
            [this] { return server.has_client() || (!clients.empty() && clients.back().has_bytes()); },
            k_patience_ms);
        if (server.has_client()) {
            clients.push_back(server.accept());
        }
        clients.back().read_request();
        clients.back().send(bytes);
    }

    test_server server;
    std::vector<server_connection> clients;
    session_context* detached = nullptr;  // ours, and still there at the end
};

void exit_from_a_completion() {
    const auto leave = [](unsigned long, session_context*) { std::exit(k_ended_as_asked); };
    invoke2(CTString(TESSEL_W("http://127.0.0.1:1/")), {}, nullptr, 0, 0, leave, 0, http_method_get);
    kro::tessel::message_loop::run();
}

void exit_from_another_thread() {
    std::thread([] { std::exit(k_ended_as_asked); }).detach();
    kro::tessel::message_loop::run();
}

// Threads that go on using the engine while the process ends get refusals.
void exit_among_busy_threads() {
    std::atomic<int> running{0};
    for (int i = 0; i < 2; ++i) {
        std::thread([&running] {
            for (++running;;) {
                const auto ignore = [](unsigned long, session_context*) {};
                session_context* const request = invoke2(CTString(TESSEL_W("http://127.0.0.1:1/")), {},
                                                         nullptr, 0, 0, ignore, 0, http_method_get);
                http_session::mgr().remove(request);
            }
        }).detach();
    }
    while (running < 2) {
        std::this_thread::yield();
    }
    std::exit(k_ended_as_asked);
}

TEST(EngineExitDeathTest, EndsInEveryWayWithRequestsInEveryPhase) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    const struct {
        const char* what;
        void (*end)();
    } rows[] = {
        {"exit, and a return from main", [] { std::exit(k_ended_as_asked); }},
        {"quick_exit", [] { std::quick_exit(k_ended_as_asked); }},
        {"_Exit", [] { std::_Exit(k_ended_as_asked); }},
        {"exit from a completion", exit_from_a_completion},
        {"exit from another thread", exit_from_another_thread},
        {"exit among threads that start requests", exit_among_busy_threads},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EXIT(
            {
                static auto* const engine = new busy_engine;
                EXPECT_FALSE(engine->clients.empty());
                row.end();
            },
            testing::ExitedWithCode(k_ended_as_asked), "");
    }
}

}  // namespace
