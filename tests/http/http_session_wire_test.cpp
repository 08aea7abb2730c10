// Synchronous sessions on the system's HTTP service, against a server driven byte by byte.
#include "support/ascii.h"
#include "support/test_server.h"
#include "tessel/tessel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <functional>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using kro::tessel::get_last_error;
using kro::tessel::wide_string;
using tessel_test::test_server;

std::unique_ptr<http_session> session_to(const test_server& server,
                                         unsigned long action = http_session::action_run) {
    auto session = std::make_unique<http_session>();
    session->set_url(tessel_test::wide(server.url()));
    session->set_sync(true);
    session->set_action_data(action);
    return session;
}

unsigned long invoke(http_session& session) {
    return session.invoke() ? 0 : get_last_error();
}

std::string content(const http_session& session) {
    const auto* response = session.get_response();
    const auto* chunk = response == nullptr ? nullptr : response->get_buffer_content();
    return chunk == nullptr ? std::string() : std::string(static_cast<const char*>(chunk->data), chunk->size);
}

TEST(HttpSessionWire, SaysExactlyThisAndHearsTheAnswer) {
    test_server server;
    const std::string host = "Host: " + server.address() + "\r\n";
    std::vector<std::string> requests;
    std::thread player([&] {
        for (int turn = 0; turn < 2; ++turn) {
            auto peer = server.accept();
            requests.push_back(peer.read_request());
            peer.send("HTTP/1.1 200 OK\r\nConnection: close\r\n\r\nhello");
        }
    });
    const auto session = session_to(server);
    session->set_method(http_method_post);
    const wide_string body = TESSEL_W("name=\u20AC");
    session->set_data_to_post(body.data(), static_cast<unsigned>(body.size() * sizeof(wchar)));
    EXPECT_EQ(0U, invoke(*session));
    EXPECT_EQ("hello", content(*session));
    EXPECT_EQ(200, session->get_response()->get_status_code());
    session->set_action_data(http_session::action_download);
    session->set_method(http_method_get);
    EXPECT_EQ(0U, invoke(*session));
    player.join();
    const std::string agent = "User-Agent: Mozilla/4.0 (compatible; MSIE 6.0; Win32)\r\n";
    EXPECT_EQ("POST / HTTP/1.1\r\n" + host + "Content-Length: 8\r\n" + agent +
                  "Content-Type: application/x-www-form-urlencoded;charset:utf-8\r\nConnection: close\r\n"
                  "Cache-Control: no-cache\r\n\r\nname=\xE2\x82\xAC",
              requests.at(0));
    EXPECT_EQ("GET / HTTP/1.1\r\n" + host + agent + "Cache-Control: no-cache\r\n\r\n", requests.at(1));
}

TEST(HttpSessionWire, TellsHowFarItHasCome) {
    test_server server;
    const std::string large(8000000, 'u');
    std::thread player([&] {
        auto peer = server.accept();
        const std::string request = peer.read_request();
        EXPECT_EQ(large, request.substr(request.find("\r\n\r\n") + 4));
        peer.answer(large);
    });
    const auto session = session_to(server, http_session::action_upload);
    session->set_method(http_method_put);
    session->set_data_to_post(large.data(), static_cast<unsigned>(large.size()));
    std::vector<transfer_progress> ups, downs;
    transfer_watch watch;
    watch.progress = [&](const transfer_progress& how) {
        (how.direction == transfer_upload ? ups : downs).push_back(how);
        EXPECT_EQ(large.size(), how.total);
    };
    session->set_watch(watch);
    EXPECT_EQ(0U, invoke(*session));
    player.join();
    EXPECT_EQ(large, content(*session));
    for (const auto* told : {&ups, &downs}) {
        EXPECT_GE(told->size(), 5U);
        EXPECT_EQ(large.size(), told->back().done);
        EXPECT_TRUE(std::is_sorted(told->begin(), told->end(),
                                   [](const auto& a, const auto& b) { return a.done < b.done; }));
    }
}

// The flag is one of the host's, who may want it for the next transfer at once.
TEST(HttpSessionWire, StaysCancelledWhenTheFlagIsReset) {
    for (const auto action : {http_session::action_run, http_session::action_download}) {
        test_server server;
        const auto session = session_to(server, action);
        const transfer_watch watch;
        session->set_watch(watch);
        auto blocked = std::async(std::launch::async, [&] { return invoke(*session); });
        auto peer = server.accept_request();
        watch.cancel.cancel();
        watch.cancel.reset();
        EXPECT_EQ(12017U, blocked.get());
        EXPECT_TRUE(peer.wait_for_close());
    }
}

TEST(HttpSessionWire, MayBeGivenAnotherWatchInsideAFunctionOfTheOldOne) {
    test_server server;
    const auto session = session_to(server, http_session::action_run);
    std::string told;
    {
        transfer_watch watch;
        watch.head = [&](const response_head&) { session->set_watch({}); };
        watch.body = [&told, kept = std::string(100, 'x')](const void* data, std::uint32_t size) {
            told.append(kept.substr(0, 1)).append(static_cast<const char*>(data), size);
        };
        session->set_watch(watch);
    }
    auto blocked = std::async(std::launch::async, [&] { return invoke(*session); });
    auto peer = server.accept_request();
    peer.answer("well");
    EXPECT_EQ(0U, blocked.get());
    EXPECT_EQ("xwell", told);
}

TEST(HttpSessionWire, IsCancelledFromAnotherThreadInEveryWait) {
    const struct {
        const char* what;
        const char* answered;
    } rows[] = {{"no answer", ""}, {"inside the body", "HTTP/1.1 200 OK\r\nContent-Length: 50\r\n\r\nhello"}};
    for (const auto& row : rows) {
        for (const auto action :
             {http_session::action_run, http_session::action_upload, http_session::action_download}) {
            SCOPED_TRACE(row.what + (" " + std::to_string(action)));
            test_server server;
            const auto session = session_to(server, action);
            const cancel_flag flag = [&] {
                transfer_watch watch;
                session->set_watch(watch);
                return watch.cancel;
            }();
            auto blocked = std::async(std::launch::async, [&] { return invoke(*session); });
            auto peer = server.accept_request();
            peer.send(row.answered);
            flag.cancel();
            EXPECT_EQ(12017U, blocked.get());
            EXPECT_TRUE(peer.wait_for_close());
            EXPECT_EQ(12017U, invoke(*session));
            EXPECT_FALSE(server.has_client());
            flag.reset();
            auto again = std::async(std::launch::async, [&] { return invoke(*session); });
            peer = server.accept_request();
            peer.answer("well");
            EXPECT_EQ(0U, again.get());
            EXPECT_EQ("well", content(*session));
        }
    }
}

TEST(HttpSessionWire, CancellingRacesWithEveryPhase) {
    constexpr int k_rounds = 300;
    test_server server;
    std::thread player([&] {
        bool over = false;
        while (!over) {
            try {
                auto peer = server.accept();
                for (std::string request; !over && !(request = peer.read_request()).empty();) {
                    over = request.rfind("GET /last ", 0) == 0;
                    peer.answer("hello");
                }
            } catch (const std::exception&) {
                continue;  // a client that broke off
            }
        }
    });
    const auto session = session_to(server, http_session::action_download);
    transfer_watch watch;
    session->set_watch(watch);
    int cancelled = 0;
    for (int round = 0; round < k_rounds || cancelled == 0; ++round) {
        watch.cancel.reset();
        std::thread canceller([&, round] {
            for (int spins = round % k_rounds * 20; spins > 0; --spins) {
                std::this_thread::yield();
            }
            watch.cancel.cancel();
        });
        const unsigned long error = invoke(*session);
        canceller.join();
        EXPECT_TRUE(error == 12017 || (error == 0 && content(*session) == "hello")) << error;
        cancelled += error == 12017 ? 1 : 0;
    }
    session->set_watch({});
    session->set_url(tessel_test::wide(server.url("/last")));
    EXPECT_EQ(0U, invoke(*session));
    player.join();
}

}  // namespace
