// The engine on the system's HTTP service against a server driven byte by byte, in the thread's own loop:
// what a host gets for each thing that a server can do, and that it may end requests at any moment.
#include "http/engine_state.h"
#include "support/ascii.h"
#include "support/test_server.h"
#include "tessel/tessel.h"

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <iterator>
#include <memory>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using kro::tessel::wide_string;
using tessel_test::server_connection;
using tessel_test::test_server;

constexpr std::uint32_t k_patience_ms = 60000;

struct result {
    std::int32_t state = -1;
    std::uint32_t status = 0;
    std::uint32_t error = 0;
    std::string content;
    std::thread::id thread;
};

class EngineWire : public testing::Test {
public:
    EngineWire() { http_init(); }
    ~EngineWire() override { reset_engine_for_test(); }

    CTString url() const { return tessel_test::wide(server.url()); }

    // Runs one request while `serve` plays the server on a thread of its own.
    result exchange(const std::function<void(test_server&)>& serve) {
        std::thread player([&] { serve(server); });
        result got;
        session_context* const request =
            invoke2(url(), {}, nullptr, 0, 0, record, number_of(got), http_method_get);
        EXPECT_NE(request, nullptr);
        EXPECT_TRUE(kro::tessel::message_loop::run_until([&] { return got.state >= 0; }, k_patience_ms));
        player.join();
        http_session::mgr().remove(request);
        return got;
    }

    // For conditions that no message announces.
    static void pump_until(const std::function<bool()>& done) {
        while (!done()) {
            kro::tessel::message_loop::pump();
            std::this_thread::yield();
        }
    }

    // A user context hasn't room for a pointer on every system.
    static unsigned long number_of(result& got) {
        s_results.push_back(&got);
        return static_cast<unsigned long>(s_results.size() - 1);
    }

    static void record(unsigned long user_context, session_context* context) {
        result& got = *s_results.at(user_context);
        for (const auto* chunk = context->content; chunk != nullptr; chunk = chunk->next) {
            got.content.append(static_cast<const char*>(chunk->data), chunk->size);
        }
        got.status = context->status_code;
        got.error = context->async_error;
        got.thread = std::this_thread::get_id();
        got.state = context->state;
    }

    test_server server;
    static inline std::vector<result*> s_results;
};

TEST_F(EngineWire, DeliversEachKindOfBodyOnTheThreadOfHttpInit) {
    const std::string large(3000000, 'x');
    const std::string chunked = "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
    const struct {
        const char* what;
        std::string answer;
        std::string content;
        std::uint32_t status;
    } rows[] = {
        {"known length, large", "HTTP/1.1 200 OK\r\nContent-Length: 3000000\r\n\r\n" + large, large, 200},
        {"empty", "HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n", "", 200},
        {"chunked", chunked + "5\r\nhello\r\n6\r\n world\r\n0\r\n\r\n", "hello world", 200},
        {"to the close", "HTTP/1.0 200 OK\r\n\r\nhello", "hello", 200},
        {"an error's page", "HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\ngone", "gone", 404},
        {"interim answers", "HTTP/1.1 100 Continue\r\n\r\nHTTP/1.1 200 OK\r\nContent-Length: 2\r\n\r\nok",
         "ok", 200},
        {"no HTTP at all", "SSH-2.0-hello\r\n", "SSH-2.0-hello\r\n", 200},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const result got = exchange([&](test_server& at) { at.accept_request().send(row.answer); });
        EXPECT_EQ(got.state, state_done);
        EXPECT_EQ(got.status, row.status);
        EXPECT_TRUE(got.content == row.content) << got.content.substr(0, 100);
        EXPECT_EQ(got.thread, std::this_thread::get_id());
    }
}

TEST_F(EngineWire, ReportsEachFailureWithItsNumber) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const struct {
        const char* what;
        std::string answer;
        bool resets;
        std::uint32_t error;  // 0: a read that failed at once leaves none
    } rows[] = {
        {"closes before any byte", "", false, 12152},
        {"resets before any byte", "", true, 12031},
        {"resets inside the body", ok + "Content-Length: 50\r\n\r\nhello", true, 0},
        {"breaks a chunk", ok + "Transfer-Encoding: chunked\r\n\r\nZZ\r\n", false, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const result got = exchange([&](test_server& at) {
            server_connection client = at.accept_request();
            client.send(row.answer);
            if (row.resets) {
                client.reset();
            }
        });
        EXPECT_NE(got.state, state_done);
        if (row.error != 0) {
            EXPECT_EQ(got.error, row.error);
        }
    }
    server.stop_listening();
    EXPECT_EQ(exchange([](test_server&) {}).error, 12029U);
}

// Removal in each phase: before the connection, while the server is silent, inside the body.
TEST_F(EngineWire, RemovesRequestsInEveryPhase) {
    for (const char* answer :
         {"", "HTTP/1.1 200 OK\r\n", "HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\nhello"}) {
        SCOPED_TRACE(answer);
        std::atomic<bool> answered{false};
        std::thread player([&] {
            server_connection client = server.accept_request();
            client.send(answer);
            answered = true;
            client.wait_for_close();
        });
        result got;
        session_context* const request =
            invoke2(url(), {}, nullptr, 0, 0, record, number_of(got), http_method_get);
        pump_until([&] { return answered.load(); });
        EXPECT_TRUE(http_session::mgr().remove(request));
        EXPECT_FALSE(http_session::mgr().is_session_valid(request));
        player.join();
        kro::tessel::message_loop::pump();
        EXPECT_EQ(got.state, -1);
    }
    EXPECT_TRUE(http_session::mgr().remove(invoke2(url(), {}, nullptr, 0, 0, record, 0, http_method_get)));
}

enum class conduct { by_dice, good, over };

// Says one thing of many, or keeps the client for later and says nothing.
void misbehave(server_connection& client, std::uint_fast32_t dice, server_connection& silent) {
    switch (dice % 8) {
        case 0:
            client.reset();
            break;
        case 1:
            client.send("HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\ncut short");
            break;
        case 2:
            client.send("HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n4\r\ntext\r\nzz\r\n");
            break;
        case 3:
            client.send("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n");
            break;
        case 4:
            silent = std::move(client);
            break;
        case 5:
            break;  // closed without a byte
        default:
            client.send("HTTP/1.1 200 OK\r\nContent-Length: 4\r\nConnection: close\r\n\r\ntext");
    }
}

// Answers each connection once.
void answer_somehow(test_server& server, const std::atomic<conduct>& how) {
    std::mt19937 dice(1);
    server_connection silent;
    while (how != conduct::over) {
        if (!server.has_client()) {
            std::this_thread::yield();
            continue;
        }
        server_connection client = server.accept();
        try {
            if (client.read_head().empty()) {
                continue;
            }
            if (how == conduct::good) {
                client.answer("well");
            } else {
                misbehave(client, dice(), silent);
            }
        } catch (const std::runtime_error&) {  // NOLINT(bugprone-empty-catch): it was given up meanwhile
        }
    }
}

// Requests that four threads start, start again and end, each others' too.
class shared_requests {
    static constexpr unsigned long k_user_context = 0x5A;

public:
    void act(const CTString& url, std::mt19937& dice) {
        std::atomic<session_context*>& place = m_places[dice() % std::size(m_places)];
        session_context* const request = place;
        switch (dice() % 7) {
            case 0:
                reinvoke(request);
                break;
            case 1:
                http_session::mgr().remove(request);
                break;
            case 2:
                if (http_session::mgr().detach(request)) {
                    delete request;
                }
                break;
            case 3:
                EXPECT_EQ(k_user_context, get_user_context(request) | k_user_context)
                    << "or 0: none any more";
                break;
            default:
                http_session::mgr().remove(place.exchange(start(url, dice)));
        }
        for (auto turns = dice() % 40; turns != 0; --turns) {
            std::this_thread::yield();
        }
    }
    void remove_all() {
        for (auto& place : m_places) {
            http_session::mgr().remove(place.exchange(nullptr));
        }
    }

private:
    static session_context* start(const CTString& url, std::mt19937& dice) {
        const auto ignore = [](unsigned long, session_context*) {};
        const bool has_body = dice() % 2 == 0;
        return invoke2(url, {}, has_body ? "a=b" : nullptr, has_body ? 3 : 0,
                       k_invoke_accept_gzip | k_invoke_decode_gzip, ignore, k_user_context,
                       has_body ? http_method_post : http_method_get);
    }

    std::atomic<session_context*> m_places[12] = {};
};

// Hosts end and restart requests from their worker threads while the loop runs them and servers misbehave.
TEST_F(EngineWire, RequestsMayBeEndedFromAnyThreadAtAnyMoment) {
    std::atomic<conduct> how{conduct::by_dice};
    std::thread player([&] { answer_somehow(server, how); });
    shared_requests requests;
    std::atomic<int> workers{4};
    const auto work = [&](unsigned seed) {
        std::mt19937 dice(seed);
        for (int round = 0; round < 300; ++round) {
            requests.act(url(), dice);
        }
        --workers;
    };
    std::thread threads[] = {std::thread(work, 2), std::thread(work, 3), std::thread(work, 4),
                             std::thread(work, 5)};
    pump_until([&] { return workers == 0; });
    for (std::thread& thread : threads) {
        thread.join();
    }
    requests.remove_all();
    how = conduct::good;
    EXPECT_EQ(exchange([](test_server&) {}).content, "well");
    how = conduct::over;
    player.join();
}

}  // namespace
