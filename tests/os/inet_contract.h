// What every implementation of os::inet_service must do, as a suite over whichever is given. A program
// instantiates it: INSTANTIATE_TEST_SUITE_P(Linux, InetContract, Values(...)).
#pragma once

#include "os/inet_client.h"
#include "os/thread.h"

#include <atomic>
#include <future>

namespace tessel_test {

/// A service to test, and what it can't do.
struct inet_under_test {
    const char* name;
    os::inet_service* (*service)();
};

inline void PrintTo(const inet_under_test& which, std::ostream* out) {
    *out << which.name;
}

class InetContract : public testing::TestWithParam<inet_under_test> {
protected:
    os::inet_service& net() { return *GetParam().service(); }

    test_server m_server;
    inet_client m_client{net(), m_server.port()};
};

// A caller tells a stale handle from a wrong one by these numbers.
TEST_P(InetContract, GivesEachWrongHandleItsNumber) {
    const auto request = m_client.request();
    const auto closed = m_client.request();
    ASSERT_TRUE(net().close(closed).ok());
    constexpr std::uintptr_t number_of_none = 0x7FFFFFF1;
    // NOLINTNEXTLINE(performance-no-int-to-ptr): handles are numbers
    const auto unknown = reinterpret_cast<os::inet_handle>(number_of_none);
    char byte = 0;
    std::uint32_t number = 0;
    kro::tessel::wide_string text;
    const struct {
        const char* what;
        std::uint32_t error;
        std::function<bool()> call;  // true: it succeeded
    } rows[] = {
        {"connect on null", 6,
         [&] { return net().connect(nullptr, TESSEL_W("h"), 0, {}, {}, 1) != nullptr; }},
        {"connect without a host", 87,
         [&] { return net().connect(m_client.session, {}, 0, {}, {}, 1) != nullptr; }},
        {"open_request on a session", 12018,
         [&] { return net().open_request(m_client.session, {}, {}, 0, 1) != nullptr; }},
        {"send on a closed request", 12018,
         [&] { return !net().send(closed, {}, nullptr, 0, os::inet_send_mode::begin, 1).error; }},
        {"end on a session", 12018, [&] { return !net().end(m_client.session, 1).error; }},
        {"read before sending", 12019, [&] { return !net().read(request, &byte, 1, 1).status.error; }},
        {"query on an unknown value", 12018, [&] { return !net().query_number(unknown, 19, number).error; }},
        {"time-out of a closed handle", 6,
         [&] { return !net().get_timeout(closed, os::inet_timeout::receive, number).error; }},
        {"account of a session", 12009,
         [&] {
             return !net().get_credentials(m_client.session, os::inet_credentials::proxy, text, text).error;
         }},
        {"a limit of no connections", 160, [&] { return !net().set_connection_limit(0).error; }},
        {"close of null", 6, [&] { return !net().close(nullptr).error; }},
        {"a proxy session without a proxy", 87,
         [&] { return net().open(os::k_access_proxy, {}, {}, {}, true) != nullptr; }},
        {"dialogue without a window", 6, [&] { return !net().dialog(nullptr, request, 12014, 7); }},
        {"dialogue without a request", 87, [&] { return !net().dialog(&m_server, nullptr, 12014, 7); }},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        os::set_last_error(0x5555);
        EXPECT_FALSE(row.call());
        EXPECT_EQ(row.error, os::last_error());
    }
}

TEST_P(InetContract, ClosesTheWholeSubtreeTheYoungestFirst) {
    const auto first = m_client.request();
    const auto second = m_client.request();
    m_client.log.clear();
    ASSERT_TRUE(net().close(m_client.session).ok());
    const auto closings = m_client.log.all();
    ASSERT_EQ(2U, closings.size());
    EXPECT_EQ(second, closings[0].about);
    EXPECT_EQ(first, closings[1].about);
    EXPECT_THAT(m_client.connection_log.codes(), testing::ElementsAre(60, 70));
    EXPECT_EQ(os::k_error_invalid_handle, net().close(first).error);
    EXPECT_EQ(os::k_error_invalid_handle, net().close(m_client.connection).error);
}

TEST_P(InetContract, TellsOfANewHandleInsideTheCallWithItsParent) {
    const auto request = m_client.request();
    const auto seen = m_client.log.all();
    ASSERT_EQ(1U, seen.size());
    EXPECT_EQ(os::k_notice_handle_created, seen[0].code);
    EXPECT_EQ(m_client.connection, seen[0].handle);
    EXPECT_EQ(request, seen[0].about);
    EXPECT_EQ(std::this_thread::get_id(), seen[0].thread);
    EXPECT_EQ(m_client.session, m_client.connection_log.all().at(0).handle);
    EXPECT_EQ(reinterpret_cast<std::uintptr_t>(request) & 0xFFFFFFFFU,
              reinterpret_cast<std::uintptr_t>(request))
        << "callers keep 32 bits";
}

TEST_P(InetContract, RefusesASecondOperationWhileOneIsPending) {
    const auto request = m_client.sent();
    auto peer = m_server.accept();
    ASSERT_TRUE(net().end(request, m_client.log.context()).pending());
    char byte = 0;
    EXPECT_EQ(12026U, net().end(request, m_client.log.context()).error);
    EXPECT_EQ(12026U, net().read(request, &byte, 1, m_client.log.context()).status.error);
    EXPECT_EQ(12026U, m_client.begin(request).error);
    peer.answer("x");
    EXPECT_EQ(0U, m_client.log.wait().error);
}

// The engine prompts again on every asynchronous completion, so a read must not wait for what is there.
TEST_P(InetContract, ReadsAtOnceWhatIsThereAndWaitsOtherwise) {
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 10\r\n\r\n01234");
    ASSERT_EQ(0U, m_client.end(request));
    ASSERT_TRUE(net().available(request).bytes <= 5U);
    char bytes[16] = {};
    os::inet_read_status got = net().read(request, bytes, 4, m_client.log.context());
    if (got.status.pending()) {
        got.bytes = m_client.log.wait().bytes;
    }
    ASSERT_EQ(4U, got.bytes);
    got = net().read(request, bytes + 4, 12, m_client.log.context());
    ASSERT_TRUE(got.status.pending());
    EXPECT_EQ(997U, os::last_error());
    peer.send("56789");
    EXPECT_EQ(6U, m_client.log.wait().bytes);
    EXPECT_STREQ("0123456789", bytes);
    got = net().read(request, bytes, 1, m_client.log.context());
    EXPECT_TRUE(got.status.ok());
    EXPECT_EQ(0U, got.bytes);
}

TEST_P(InetContract, AnswersQueries) {
    const auto request = m_client.request(TESSEL_W("GET"));
    EXPECT_EQ(0U, m_client.status(request)) << "before any response";
    ASSERT_TRUE(m_client.begin(request).pending());
    auto peer = m_server.accept_request();
    m_client.log.wait();
    std::uint32_t index = 0;
    std::uint32_t number = 7;
    kro::tessel::wide_string text = TESSEL_W("untouched");
    EXPECT_EQ(12019U, net().query_text(request, 19, index, text).error) << "between send and end";
    peer.send(
        "HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\nX-A:  one \r\nx-a: two\r\nContent-Type: text/\xE9\n"
        "Set-Cookie: a=b\r\nX-Big: 4294967296\r\nX-Bad: 12abc\r\n\r\n");
    ASSERT_EQ(0U, m_client.end(request));
    const struct {
        std::uint32_t what;
        std::uint32_t index;
        const wchar* name;  // in: of a custom header
        std::uint32_t error;
        const wchar* text;
        std::uint32_t index_after;
    } rows[] = {
        {19, 0, TESSEL_W(""), 0, TESSEL_W("404"), 0},
        {19, 1, TESSEL_W(""), 12150, TESSEL_W(""), 1},
        {20, 0, TESSEL_W(""), 0, TESSEL_W("Not Found"), 0},
        {45, 0, TESSEL_W(""), 0, TESSEL_W("GET"), 1},
        {1, 0, TESSEL_W(""), 0, TESSEL_W("text/\u00E9"), 1},
        {29, 0, TESSEL_W("kept"), 12150, TESSEL_W("kept"), 0},
        {65535, 0, TESSEL_W("X-A"), 0, TESSEL_W("one"), 1},
        {65535, 1, TESSEL_W("X-A"), 0, TESSEL_W("two"), 2},
        {65535, 2, TESSEL_W("X-A"), 12150, TESSEL_W("X-A"), 2},
        {19 | os::k_query_request_headers, 0, TESSEL_W(""), 12154, TESSEL_W(""), 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(testing::Message() << row.what << " index " << row.index);
        index = row.index;
        text = row.name;
        EXPECT_EQ(row.error, net().query_text(request, row.what, index, text).error);
        EXPECT_EQ(row.text, text);
        EXPECT_EQ(row.index_after, index);
    }
    EXPECT_EQ(0U, net().query_number(request, 5, number).error);
    EXPECT_EQ(0U, number);
    EXPECT_EQ(12153U, net().query_number(request, 1, number).error);
    const auto raw = m_client.text(request, 22);
    EXPECT_EQ(0U, raw.find(TESSEL_W("HTTP/1.1 404 Not Found\r\nContent-Length: 0\r\n")));
    EXPECT_EQ(raw.size() - 4, raw.rfind(TESSEL_W("\r\n\r\n")));
}

TEST_P(InetContract, KeepsTheCallersHeadersAndReplacesThemByName) {
    const struct {
        const char* what;
        const wchar* first;   // headers of the first send
        const wchar* second;  // of the second, on the same handle
        const char* wanted;   // the caller's part of what the second one sends
    } rows[] = {
        {"kept", TESSEL_W("A: 1"), TESSEL_W(""), "A: 1\r\n"},
        {"replaced, goes last", TESSEL_W("A: 1\r\nB: 2\r\n"), TESSEL_W("a: 3"), "B: 2\r\na: 3\r\n"},
        {"the last of two wins", TESSEL_W("A: 1\r\nA: 2"), TESSEL_W(""), "A: 2\r\n"},
        {"without a colon: skipped", TESSEL_W("nonsense\r\nA: 1"), TESSEL_W(""), "A: 1\r\n"},
        {"without a value: removed", TESSEL_W("A: 1\r\nB: 2"), TESSEL_W("A:"), "B: 2\r\n"},
        {"a lone CR or LF divides too", TESSEL_W("A: 1\rB: 2\n\nC:  3 "), TESSEL_W(""),
         "A: 1\r\nB: 2\r\nC: 3\r\n"},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test_server server;
        inet_client client(net(), server.port());
        // Without cookies: a system may share what earlier requests were given.
        const auto request = client.request(TESSEL_W("GET"), TESSEL_W("/"), os::k_request_no_cookies);
        server_connection peer;
        std::string received;
        for (const wchar* const headers : {row.first, row.second}) {
            ASSERT_TRUE(
                net()
                    .send(request, headers, nullptr, 0, os::inet_send_mode::whole, client.log.context())
                    .pending());
            if (!peer.is_open()) {
                peer = server.accept();
            }
            received = peer.read_request();
            peer.answer("");
            ASSERT_EQ(0U, client.log.wait().error);
        }
        EXPECT_EQ("GET / HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
                      "\r\nUser-Agent: agent/1\r\n" + row.wanted + "\r\n",
                  received);
    }
}

TEST_P(InetContract, FollowsRedirects) {
    const struct {
        int status;
        const wchar* verb;
        const char* next_verb;
        bool keeps_body;
    } rows[] = {
        {301, TESSEL_W("POST"), "GET", false},
        {303, TESSEL_W("PUT"), "GET", false},
        {307, TESSEL_W("POST"), "POST", true},
        {308, TESSEL_W("PUT"), "PUT", true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.status);
        test_server server;
        inet_client client(net(), server.port());
        const auto request = client.request(row.verb, TESSEL_W("/one/two"));
        ASSERT_TRUE(net()
                        .send(request, TESSEL_W("Content-Type: a/b\r\nX: y"), "body", 4,
                              os::inet_send_mode::begin, client.log.context())
                        .pending());
        auto peer = server.accept_request();
        ASSERT_EQ(1U, client.log.wait().result);
        client.log.clear();
        ASSERT_TRUE(net().end(request, client.log.context()).pending());
        peer.send("HTTP/1.1 " + std::to_string(row.status) +
                  " Moved\r\nLocation: ../three?q\r\nContent-Length: 5\r\n\r\nmoved");
        const std::string next = peer.read_request();
        EXPECT_EQ(0U, next.find(std::string(row.next_verb) + " /three?q HTTP/1.1\r\n")) << next;
        EXPECT_NE(std::string::npos, next.find("X: y\r\n"));
        EXPECT_EQ(row.keeps_body, next.find("\r\n\r\nbody") != std::string::npos);
        EXPECT_EQ(row.keeps_body, next.find("Content-Type: a/b") != std::string::npos);
        peer.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\n\r\n");
        EXPECT_EQ(0U, client.log.wait().error);
        EXPECT_EQ(200U, client.status(request));
        EXPECT_THAT(client.log.codes(), testing::ElementsAre(40, 41, 110, 30, 31, 40, 41, 100));
        EXPECT_EQ(TESSEL_W("http://127.0.0.1:") + client.port_text() + TESSEL_W("/three?q"),
                  client.log.all().at(2).text);
    }
}

TEST_P(InetContract, DeliversOrRefusesRedirectsThatItDoesNotFollow) {
    const struct {
        const char* what;
        std::uint32_t flags;
        const char* head;
        std::uint32_t error;
        std::uint32_t status;
    } rows[] = {
        {"told not to", os::k_request_no_auto_redirect, "302 Found\r\nLocation: /x", 0, 302},
        {"no Location", 0, "302 Found\r\nX: y", 0, 302},
        {"another scheme", 0, "302 Found\r\nLocation: ftp://host/", 0, 302},
        {"no redirect status", 0, "304 Not Modified\r\nLocation: /x", 0, 304},
        {"no host", 0, "302 Found\r\nLocation: http:///nohost", 12005, 302},
        {"to https, not allowed", 0, "302 Found\r\nLocation: https://127.0.0.1/", 12039, 302},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        test_server server;
        inet_client client(net(), server.port());
        const auto request = client.request(TESSEL_W("GET"), TESSEL_W("/"), row.flags);
        ASSERT_TRUE(client.whole(request).pending());
        auto peer = server.accept_request();
        peer.send("HTTP/1.1 " + std::string(row.head) + "\r\nContent-Length: 0\r\n\r\n");
        EXPECT_EQ(row.error, client.log.wait().error);
        EXPECT_EQ(row.status, client.status(request)) << "the response stays readable";
    }
}

TEST_P(InetContract, GivesUpARedirectLoop) {
    const auto request = m_client.request();
    ASSERT_TRUE(m_client.whole(request).pending());
    auto peer = m_server.accept();
    for (int hop = 0; hop <= 100; ++hop) {
        ASSERT_FALSE(peer.read_request().empty());
        peer.send("HTTP/1.1 302 Found\r\nLocation: /again\r\nContent-Length: 0\r\n\r\n");
    }
    EXPECT_EQ(12156U, m_client.log.wait().error);
}

TEST_P(InetContract, InheritsTimeOutsWhenAHandleIsMade) {
    const auto receive = [this](os::inet_handle handle) {
        std::uint32_t value = 0;
        EXPECT_TRUE(net().get_timeout(handle, os::inet_timeout::receive, value).ok());
        return value;
    };
    const std::uint32_t before = receive(nullptr);
    const auto early = m_client.request();
    ASSERT_TRUE(net().set_timeout(nullptr, os::inet_timeout::receive, 120000).ok());
    const auto late = m_client.request();
    EXPECT_EQ(before, receive(early)) << "a handle keeps what held when it was made";
    EXPECT_EQ(120000U, receive(late));
    ASSERT_TRUE(net().set_timeout(m_client.connection, os::inet_timeout::receive, 5000).ok());
    EXPECT_EQ(120000U, receive(late));
    EXPECT_EQ(5000U, receive(m_client.request())) << "the nearest value counts";
    net().set_timeout(nullptr, os::inet_timeout::receive, before);
}

TEST_P(InetContract, TimesOutAWaitAndNotTheWhole) {
    net().set_timeout(m_client.connection, os::inet_timeout::receive, 300);
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n");
    ASSERT_EQ(0U, m_client.end(request));
    std::string body(100, '\0');
    ASSERT_TRUE(net().read(request, body.data(), 100, m_client.log.context()).status.pending());
    for (int piece = 0; piece < 6; ++piece) {  // longer than the time-out, in pieces that are shorter
        EXPECT_FALSE(m_client.log.completes_within(std::chrono::milliseconds(100)));
        peer.send("x");
    }
    const os::inet_async_result result = m_client.log.wait();
    EXPECT_EQ(12002U, result.error);
    EXPECT_GE(result.bytes, 5U) << "what came is in the destination";
    EXPECT_EQ('x', body[0]);
    const auto silent = m_client.sent();
    EXPECT_EQ(12002U, m_client.end(silent)) << "no response at all";
}

// By a name that no other test asks by, and gone at the end: the jar is one for all.
TEST_P(InetContract, SendsCookiesToTheServerThatSetThem) {
    using testing::HasSubstr;
    using testing::Not;
    inet_client client(net(), m_server.port(), TESSEL_W("localhost"));
    server_connection peer;
    const auto asked = [&](const wchar* object, const std::string& answer, std::uint32_t flags = 0) {
        const auto request = client.request(TESSEL_W("GET"), object, flags | os::k_request_keep_connection);
        EXPECT_TRUE(net()
                        .send(request, TESSEL_W("Cookie: own=1"), nullptr, 0, os::inet_send_mode::whole,
                              client.log.context())
                        .pending());
        if (!peer.is_open()) {
            peer = m_server.accept();
        }
        std::string head = peer.read_request();
        peer.send("HTTP/1.1 200 OK\r\n" + answer + "Content-Length: 0\r\n\r\n");
        EXPECT_EQ(0U, client.log.wait().error);
        return head;
    };
    EXPECT_THAT(asked(TESSEL_W("/"), "Set-Cookie: a=1; Path=/in\r\nSet-Cookie: b=2; Path=/\r\n"),
                HasSubstr("Cookie: own=1\r\n"));
    const std::string second = asked(TESSEL_W("/"), "");
    EXPECT_THAT(second, HasSubstr("Cookie: b=2\r\n"));
    EXPECT_THAT(second, Not(HasSubstr("own=1"))) << "the jar's takes its place";
    const std::string inside = asked(TESSEL_W("/in/x"), "Set-Cookie: a=3; Path=/in\r\n");
    EXPECT_THAT(inside, testing::AllOf(HasSubstr("a=1"), HasSubstr("b=2")));
    EXPECT_THAT(asked(TESSEL_W("/in"), "Set-Cookie: c=1\r\n", os::k_request_no_cookies),
                HasSubstr("Cookie: own=1\r\n"));
    EXPECT_THAT(asked(TESSEL_W("/in"), "Set-Cookie: a=; Path=/in; Max-Age=0\r\n"),
                testing::AllOf(HasSubstr("a=3"), Not(HasSubstr("c=1"))));
    EXPECT_THAT(asked(TESSEL_W("/"), "Set-Cookie: b=; Path=/; Max-Age=0\r\n"), Not(HasSubstr("a=3")));
    EXPECT_THAT(asked(TESSEL_W("/in"), ""), HasSubstr("Cookie: own=1\r\n")) << "they have gone";
}

TEST_P(InetContract, StaysSilentWithoutAContext) {
    const auto request = net().open_request(m_client.connection, {}, TESSEL_W("/"), 0, 0);
    ASSERT_NE(nullptr, request);
    EXPECT_TRUE(net().send(request, {}, nullptr, 0, os::inet_send_mode::whole, 0).pending());
    auto peer = m_server.accept_request();
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 0\r\nConnection: close\r\n\r\n");
    EXPECT_TRUE(peer.wait_for_close());
    EXPECT_TRUE(net().close(request).ok());
    EXPECT_THAT(m_client.log.codes(), testing::IsEmpty());
}

TEST_P(InetContract, CloseCompletesWhatIsPending) {
    const auto request = m_client.sent();
    auto peer = m_server.accept_request();
    ASSERT_TRUE(net().end(request, m_client.log.context()).pending());
    m_client.log.clear();
    EXPECT_TRUE(net().close(request).ok());
    const auto last = m_client.log.all();
    ASSERT_GE(last.size(), 2U);
    EXPECT_EQ(100U, last.front().code);
    EXPECT_EQ(12017U, last.front().result.error);
    EXPECT_EQ(70U, last.back().code);
    EXPECT_EQ(request, last.back().about);
    EXPECT_TRUE(peer.wait_for_close());
}

TEST_P(InetContract, CloseWaitsForACallbackOnAnotherThread) {
    const auto request = m_client.request();
    std::promise<void> inside;
    std::promise<void> released;
    std::atomic<bool> left{false};
    m_client.log.on_notice = [&](const notice& one) {
        if (one.code == os::k_notice_request_complete) {
            inside.set_value();
            released.get_future().wait();
            left = true;
        }
    };
    ASSERT_TRUE(m_client.begin(request).pending());
    auto peer = m_server.accept();
    ASSERT_EQ(std::future_status::ready, inside.get_future().wait_for(std::chrono::seconds(20)));
    std::thread closer([&] {
        net().close(request);
        EXPECT_TRUE(left) << "close came back while the callback was running";
    });
    released.set_value();
    closer.join();
    EXPECT_EQ(70U, m_client.log.codes().back());
}

TEST_P(InetContract, MayBeClosedFromItsOwnCallback) {
    const auto request = m_client.request();
    m_client.log.on_notice = [&](const notice& one) {
        if (one.code == os::k_notice_request_complete && one.result.result == 1) {
            EXPECT_TRUE(net().close(request).ok());
        }
    };
    ASSERT_TRUE(m_client.begin(request).pending());
    auto peer = m_server.accept();
    EXPECT_EQ(1U, m_client.log.wait().result);
    EXPECT_TRUE(!peer.read_head().empty() && peer.wait_for_close());
    EXPECT_EQ(70U, m_client.log.codes().back());
}

TEST_P(InetContract, KeepsAccountsOnTheConnection) {
    const auto one = m_client.request();
    const auto other = m_client.request();
    const kro::tessel::wide_string user = TESSEL_W("me");
    const kro::tessel::wide_string password = TESSEL_W("secret");
    EXPECT_TRUE(net().set_credentials(one, os::inet_credentials::proxy, &user, nullptr).ok());
    EXPECT_TRUE(net().set_credentials(one, os::inet_credentials::proxy, nullptr, &password).ok());
    for (const auto handle : {other, m_client.connection}) {
        kro::tessel::wide_string seen_user;
        kro::tessel::wide_string seen_password;
        EXPECT_TRUE(
            net().get_credentials(handle, os::inet_credentials::proxy, seen_user, seen_password).ok());
        EXPECT_EQ(user, seen_user);
        EXPECT_EQ(password, seen_password);
        EXPECT_TRUE(
            net().get_credentials(handle, os::inet_credentials::server, seen_user, seen_password).ok());
        EXPECT_TRUE(seen_user.empty());
    }
}

TEST_P(InetContract, StartsAnewWhenSentAgain) {
    const auto request = m_client.sent();
    auto first = m_server.accept_request();
    first.send("HTTP/1.1 401 No\r\nContent-Length: 1000000\r\n\r\nold");
    ASSERT_EQ(0U, m_client.end(request));
    EXPECT_EQ(401U, m_client.status(request));
    ASSERT_TRUE(m_client.begin(request, "b").pending());
    EXPECT_TRUE(first.wait_for_close()) << "the old response is given up";
    auto second = m_server.accept_request();
    second.answer("new");
    EXPECT_EQ(1U, m_client.log.wait().result);
    EXPECT_EQ(0U, m_client.end(request));
    EXPECT_EQ("new", m_client.body(request));
}

}  // namespace tessel_test
