// Every row of the request machine's transitions, in the orders and with the failures that no server can be
// made to produce, and the oddities that hosts rely on.
#include "os/thread.h"

#include "http/engine_fixture.h"
#include "http/helper_window.h"

#include <algorithm>
#include <atomic>
#include <thread>

namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using kro::tessel::wide_string;
using tessel_test::scripted_inet;
using tessel_test::trace_recorder;

constexpr auto k_pending = scripted_inet::k_pending;

class RequestMachine : public tessel_test::engine_fixture {
public:
    struct recording_sink final : http_session_error_sink {
        virtual ~recording_sink() = default;
        void on_send_error(session_context* record) override { told("send", record); }
        void on_recv_error(session_context* record) override { told("recv", record); }
        void told(const char* what, session_context* record) {
            calls.push_back(what);
            if (last_error != 0) {
                kro::tessel::os::set_last_error(last_error);
            }
            if (!answers.empty()) {
                record->resolvent = answers.front();
                answers.erase(answers.begin());
            }
            if (act) {
                act(record);
            }
        }
        std::vector<std::string> calls;
        std::vector<error_resolvent> answers;
        std::uint32_t last_error = 0;
        std::function<void(session_context*)> act;
    };
    recording_sink sink;

    session_context* get_with_sink() {
        session_context* const record = get();
        record->error_sink = &sink;
        return record;
    }
};

TEST_F(RequestMachine, AFirstRequestTakesOneStepPerNotice) {
    inet.content_length = 5;
    inet.body = "hello";
    session_context* const record = get();
    EXPECT_EQ(record->state, state_opening);  // connected inside the call
    EXPECT_EQ(windows.waiting().size(), 1U);
    windows.deliver_one();
    EXPECT_EQ(record->state, state_sending);
    windows.deliver_one();
    EXPECT_EQ(windows.waiting().size(), 0U);  // waits for the send
    inet.complete();
    EXPECT_EQ(record->state, state_ending);
    windows.deliver_one();
    inet.complete();
    EXPECT_EQ(record->state, state_reading);
    EXPECT_TRUE(s_completions.empty());
    windows.deliver_one();
    const std::vector<completion> expected = {{7, state_done, 200, 0, "hello", true}};
    EXPECT_EQ(s_completions, expected);
    EXPECT_TRUE(is_live(record));  // stays until it's removed
    EXPECT_EQ(inet.calls(),
              (std::vector<std::string>{"set_timeout process 2 120000", "open 1  http.util async",
                                        "connect h:80  ", "open_request GET /a?b 8040f000",
                                        "send Content-Type: application/x-www-form-urlencoded;charset:utf-8|",
                                        "end", "read 5", "read 10239"}));
    EXPECT_TRUE(remove(record));
}

TEST_F(RequestMachine, ACachedConnectionOpensOnTheCallersThread) {
    remove(get_to_response());
    const std::size_t connects = inet.count("connect");
    session_context* const record = get();
    EXPECT_EQ(inet.count("connect"), connects);
    EXPECT_EQ(record->state, state_sending);  // opened inside invoke2
    session_context* const other = get(TESSEL_W("https://h/"));
    EXPECT_EQ(inet.count("connect h:443"), 1U);
    EXPECT_EQ(inet.count("open 1"), 1U);  // one session for all
    windows.deliver_all();
    EXPECT_EQ(inet.count("open_request GET / 80c0f000"), 1U);
    remove(record);
    remove(other);
}

TEST_F(RequestMachine, HandlesThatAreAnnouncedLaterWork) {
    inet.announces_inside = false;
    inet.connects = {k_pending};
    inet.open_requests = {k_pending};
    session_context* const record = get();
    EXPECT_EQ(record->state, state_connecting);
    EXPECT_EQ(windows.deliver_all(), 0U);
    inet.announce();
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("Connect handle created")));
    EXPECT_EQ(windows.deliver_all(), 1U);
    EXPECT_EQ(record->state, state_opening);
    inet.announce();
    EXPECT_EQ(record->state, state_sending);
    windows.deliver_all();
    EXPECT_EQ(inet.count("send"), 1U);
    remove(record);
}

TEST_F(RequestMachine, ASendThatFinishesAtOnceIsEndedAtOnce) {
    inet.sends = {0};
    session_context* const record = get();
    windows.deliver_all();
    EXPECT_EQ(record->state, state_ending);
    EXPECT_EQ(inet.count("end"), 1U);
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("(this may be an error.)")));
    step();
    EXPECT_EQ(s_completions.size(), 1U);
    remove(record);
}

// Failures that a call reports itself: through invoke2 while it runs on the caller's thread, through the
// completion procedure from then on.
TEST_F(RequestMachine, StartsThatFailGiveTheirNumberAndLeaveNothing) {
    const struct {
        const char* what;
        const wchar* url;
        std::deque<std::uint32_t> opens, connects;
        unsigned long error;
    } rows[] = {{"no URL at all", TESSEL_W("nonsense"), {}, {}, 12005},
                {"no host", TESSEL_W("http:///p"), {}, {}, 12005},
                {"no session", TESSEL_W("http://h/"), {12001}, {}, 12001},
                {"no connection, after it joined the list", TESSEL_W("http://h/"), {}, {12007}, 12007}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        inet.opens = row.opens;
        inet.connects = row.connects;
        EXPECT_EQ(get(row.url), nullptr);
        EXPECT_EQ(kro::tessel::get_last_error(), row.error);
        EXPECT_EQ(windows.deliver_all(), 0U);
    }
    remove(get_to_response());
    inet.open_requests = {12016};
    EXPECT_EQ(get(), nullptr);
    EXPECT_EQ(kro::tessel::get_last_error(), 12016U);
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("HttpOpenRequest failed, error 12016")));
}

TEST_F(RequestMachine, CallsThatFailLaterFinishTheRequest) {
    const struct {
        const char* what;
        std::deque<std::uint32_t> open_requests, sends, ends, status_queries, reads;
        const wchar* trace;
        std::int32_t state;
    } rows[] = {
        {"open", {12016}, {}, {}, {}, {}, TESSEL_W("HttpOpenRequest failed, error 12016"), state_opening},
        {"send", {}, {12016}, {}, {}, {}, TESSEL_W("HttpSendRequestEx failed, error 12016"), state_sending},
        {"end", {}, {}, {12016}, {}, {}, TESSEL_W("HttpEndRequest failed, error 12016"), state_ending},
        {"status", {}, {}, {}, {12016}, {}, TESSEL_W("Failed to get http status code"), state_reading},
        {"read", {}, {}, {}, {}, {12016}, TESSEL_W("InternetReadFileEx failed, error 12016"), state_reading}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        reset_engine_for_test();  // no cached connection: each step is a message's
        http_init();
        s_completions.clear();
        trace_recorder::clear();
        inet.open_requests = row.open_requests;
        inet.sends = row.sends;
        inet.ends = row.ends;
        inet.status_queries = row.status_queries;
        inet.reads = row.reads;
        session_context* const record = get();
        windows.deliver_all();
        for (int notice = 0; notice < 2 && s_completions.empty(); ++notice) {
            step();
        }
        ASSERT_EQ(s_completions.size(), 1U);
        EXPECT_EQ(s_completions[0].state, row.state);
        EXPECT_TRUE(trace_recorder::has(row.trace));
        EXPECT_TRUE(trace_recorder::has(TESSEL_W("[httputil] state_processor failed. ret: 12016")));
        remove(record);
    }
}

TEST_F(RequestMachine, AFailedSendFollowsTheSinksDecision) {
    const struct {
        const char* what;
        std::vector<error_resolvent> answers;
        std::uint32_t last_error;
        std::deque<std::uint32_t> dialogs;
        std::size_t sends, asked, completions;
    } rows[] = {{"no decision", {}, 0, {}, 1, 0, 1},
                {"retry", {retry}, 0, {}, 2, 0, 0},
                {"default", {default_}, 0, {}, 1, 0, 1},
                {"prompt says again", {failed}, 12013, {12032}, 2, 1, 0},
                {"prompt cancelled", {failed}, 12014, {1223}, 1, 1, 1},
                {"retry asks nobody", {retry}, 12014, {12032}, 2, 0, 0}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const std::size_t sends = inet.count("send ");
        const std::size_t asked = inet.count("dialog");
        s_completions.clear();
        sink.answers = row.answers;
        sink.last_error = row.last_error;
        inet.dialogs = row.dialogs;
        session_context* const record = get_with_sink();
        windows.deliver_all();
        step(false, 12029);
        EXPECT_EQ(inet.count("send ") - sends, row.sends);
        EXPECT_EQ(inet.count("dialog") - asked, row.asked);
        ASSERT_EQ(s_completions.size(), row.completions);
        if (row.completions != 0) {
            EXPECT_EQ(s_completions[0].async_error, 12029U);
            EXPECT_EQ(s_completions[0].state, state_ending);
        }
        remove(record);
    }
    EXPECT_EQ(inet.count("dialog over nothing"), 0U);
    EXPECT_EQ(inet.count("dialog 12013 7"), 1U);
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("[httputil] resolvent_ (enum{failed, retry, default}): 2")));
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("InternetErrorDlg return 1223")));
}

TEST_F(RequestMachine, AFailedReceiveTellsTheSinkAndFinishes) {
    session_context* const record = get_with_sink();
    sink.answers = {retry};  // counts for statuses only
    windows.deliver_all();
    step();
    step(false, 12002);
    EXPECT_EQ(sink.calls, std::vector<std::string>{"recv"});
    const std::vector<completion> expected = {{7, state_reading, 0, 12002, "(null)", true}};
    EXPECT_EQ(s_completions, expected);
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("[httputil] Recv Error: 12002")));
    remove(record);
}

TEST_F(RequestMachine, AnErrorStatusWithoutASinkIsReadOn) {
    for (const std::uint32_t code : {404U, 403U, 199U, 300U}) {
        SCOPED_TRACE(code);
        s_completions.clear();
        inet.status_code = code;
        inet.body = "gone";
        session_context* const record = get_to_response();
        windows.deliver_all();
        const std::vector<completion> expected = {{7, state_done, code, 0, "gone", true}};
        EXPECT_EQ(s_completions, expected);
        remove(record);
    }
    // Only a challenge, and a 403 as one, asks the user.
    EXPECT_EQ(inet.count("dialog 12014 7"), 1U);
    EXPECT_EQ(trace_recorder::count(TESSEL_W("[httputil] Recv Error: 0\tHttpcode: ")), 4U);
}

TEST_F(RequestMachine, AChallengeThatTheUserAnswersIsSentAgainAndRemembered) {
    inet.status_code = 407;
    inet.dialogs = {12032};
    inet.proxy_user = TESSEL_W("me");
    inet.proxy_password = TESSEL_W("secret");
    session_context* const record = get_to_response();
    record->proxy.server = TESSEL_W("p");
    windows.deliver_all();
    EXPECT_EQ(record->state, state_sending);
    EXPECT_EQ(record->proxy.user, TESSEL_W("me"));
    EXPECT_EQ(record->proxy.password, TESSEL_W("secret"));
    EXPECT_EQ(inet.count("set_credentials proxy me secret"), 1U);
    EXPECT_EQ(inet.count("send "), 2U);
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("[httputil] InternetErrorDlg return 12032")));
    remove(record);
}

// The decision is never reset: a sink that said "again" once gets its 200 sent again, one that said "default"
// leaves the request waiting without a completion.
TEST_F(RequestMachine, ADecisionOutlivesTheErrorItWasMadeFor) {
    session_context* record = get_with_sink();
    sink.answers = {retry};
    windows.deliver_all();
    step();
    inet.status_code = 500;
    step();
    EXPECT_EQ(inet.count("send "), 2U);
    step();
    inet.status_code = 200;
    step();
    EXPECT_EQ(inet.count("send "), 3U);
    EXPECT_EQ(sink.calls.size(), 1U);
    remove(record);

    record = get_with_sink();
    sink.answers = {default_};
    windows.deliver_all();
    step();
    inet.status_code = 404;
    step();
    EXPECT_EQ(inet.count("read"), 0U);
    EXPECT_TRUE(s_completions.empty());
    EXPECT_TRUE(is_live(record));
    remove(record);
}

TEST_F(RequestMachine, EachCompletionInTheBodyChecksTheStatusAgain) {
    inet.status_code = 404;
    inet.body = "abcdef";
    inet.reads = {k_pending, k_pending};
    session_context* const record = get_with_sink();
    windows.deliver_all();
    step();
    step();
    step(true, 0, 2);
    step(true, 0, 2);
    EXPECT_EQ(sink.calls.size(), 3U);
    ASSERT_EQ(s_completions.size(), 1U);
    EXPECT_EQ(s_completions[0].content, "abcdef");
    remove(record);
}

TEST_F(RequestMachine, BodiesArriveInOneFlatChunkWithAZeroBehindThem) {
    const struct {
        const char* what;
        std::size_t size;
        bool known;
        std::size_t read_limit;
        std::vector<std::string> last_calls;
    } rows[] = {
        {"known and empty: no read", 0, true, SIZE_MAX, {"end"}},
        {"unknown and empty", 0, false, SIZE_MAX, {"read 10239"}},
        {"known, in pieces", 5, true, 2, {"read 5", "read 3", "read 1", "read 10239"}},
        {"known, large", 3000000, true, SIZE_MAX, {"read 3000000", "read 10239"}},
        {"unknown, just one chunk", 10239, false, SIZE_MAX, {"read 10239", "read 10239"}},
        {"unknown, one byte more", 10240, false, SIZE_MAX, {"read 10239", "read 10239", "read 10238"}},
        {"unknown, three chunks in pieces", 25000, false, 1000, {}}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        s_completions.clear();
        std::string body(row.size, ' ');
        for (std::size_t i = 0; i < row.size; ++i) {
            body[i] = static_cast<char>('a' + i % 23);
        }
        inet.body = body;
        inet.content_length = row.known ? std::optional(static_cast<std::uint32_t>(row.size)) : std::nullopt;
        inet.read_limit = row.read_limit;
        session_context* const record = get_to_response();
        windows.deliver_all();
        ASSERT_EQ(s_completions.size(), 1U);
        EXPECT_EQ(s_completions[0].state, state_done);
        EXPECT_TRUE(s_completions[0].is_flat);
        if (row.size == 0) {
            EXPECT_EQ(record->content, nullptr);
        } else {
            EXPECT_TRUE(s_completions[0].content == body);
            EXPECT_EQ(static_cast<const char*>(record->content->data)[row.size], 0);
        }
        EXPECT_EQ(record->current_chunk, nullptr);
        const auto calls = inet.calls();
        EXPECT_TRUE(std::equal(row.last_calls.rbegin(), row.last_calls.rend(), calls.rbegin()));
        remove(record);
    }
}

// The server may lie about the length, and memory may be short: then the number says so.
TEST_F(RequestMachine, ShortBodiesKeepTheirBytesAndLackOfMemoryIsAnError) {
    inet.content_length = 40000000U;
    inet.body = "short";
    remove(get_to_response());
    session_context* record = get_to_response();
    windows.deliver_all();
    ASSERT_EQ(s_completions.size(), 1U);
    EXPECT_EQ(s_completions[0].content, "short");
    remove(record);

    for (const int chunks : {0, 1, 2, 3}) {
        SCOPED_TRACE(chunks);
        s_completions.clear();
        inet.content_length = std::nullopt;
        inet.body = std::string(25000, 'x');
        fail_chunks_for_test(chunks);
        record = get_to_response();
        windows.deliver_all();
        fail_chunks_for_test(-1);
        ASSERT_EQ(s_completions.size(), 1U);
        EXPECT_EQ(s_completions[0].state, state_reading);
        EXPECT_TRUE(trace_recorder::has(TESSEL_W("state_processor failed. ret: 8")));
        remove(record);
    }
    inet.content_length = 0xFFFFFFFFU;  // no room for the zero in 32 bits
    inet.body.clear();
    s_completions.clear();
    record = get_to_response();
    windows.deliver_all();
    ASSERT_EQ(s_completions.size(), 1U);
    EXPECT_EQ(s_completions[0].state, state_reading);
    remove(record);
}

TEST_F(RequestMachine, AReadThatFailsKeepsWhatCame) {
    inet.body = std::string(10239, 'x') + "yz";
    inet.reads = {0, k_pending, 12031};
    session_context* const record = get_to_response();
    windows.deliver_all();
    step(true, 0, 2);
    ASSERT_EQ(s_completions.size(), 1U);
    EXPECT_EQ(s_completions[0].state, state_reading);
    EXPECT_FALSE(s_completions[0].is_flat);
    EXPECT_EQ(get_buffer_content_count(record->content), 2U * 10239U);
    remove(record);
}

TEST_F(RequestMachine, AReadThatFailsKeepsTheBytesThatCameWithIt) {
    inet.body = std::string(10239, 'x') + "yz";
    inet.reads = {0, k_pending};
    session_context* const record = get_to_response();
    windows.deliver_all();
    ASSERT_EQ(get_buffer_content_count(record->content), 10239U);
    static_cast<char*>(record->buffers.lpvBuffer)[0] = 'y';
    step(false, 12031, 1);
    ASSERT_EQ(s_completions.size(), 1U);
    ASSERT_NE(record->content->next, nullptr);
    EXPECT_STREQ(static_cast<const char*>(record->content->next->data), "y");
    remove(record);
}

// The system's queue has room for 10,000 messages, mostly.
TEST_F(RequestMachine, AStepThatFindsTheQueueFullRunsWithTheNextMessage) {
    session_context* const first = get();
    session_context* const second = get(TESSEL_W("http://other/"));
    windows.deliver_all();
    windows.refused_posts = 2;  // the second one is what has those that wait looked at
    inet.complete();
    EXPECT_EQ(second->state, state_ending);
    windows.deliver_all();
    EXPECT_EQ(inet.count("end"), 0U);
    post_step(first);
    windows.deliver_all();
    EXPECT_EQ(inet.count("end"), 1U);
    remove(first);
    remove(second);
}

// The thread that runs a step waits for a start on another one: the step of the start before it is gone then.
TEST_F(RequestMachine, AStepIsNotRunOnceMoreBehindAStartInBetween) {
    static session_context* s_record = nullptr;
    static std::atomic<bool> s_holds{false};
    s_record = get();
    const auto write = [](int, const wchar* text) {
        const auto users = [] { return engine().live.find(s_record).use_count(); };
        if (!s_holds && wide_string(text).find(TESSEL_W("init_session")) != wide_string::npos) {
            const long before = users();
            s_holds = true;
            while (users() == before) {  // until the other thread has found it, too
                std::this_thread::yield();
            }
        }
    };
    kro::tessel::set_trace_sink({write, [] { return static_cast<int>(kro::tessel::trace_debug); }});
    std::thread starts([] { reinvoke(s_record); });
    while (!s_holds) {
        std::this_thread::yield();
    }
    windows.deliver_one();
    starts.join();
    kro::tessel::set_trace_sink({nullptr, nullptr});
    windows.deliver_all();
    EXPECT_EQ(inet.count("send "), 1U);
    remove(s_record);
}

// The host has it now, with a transfer that reads into it.
TEST_F(RequestMachine, ADetachedContextMayBeStartedAgain) {
    inet.reads = {k_pending};
    inet.body = "old";
    session_context* const record = get_to_response();
    windows.deliver_all();
    http_session::mgr().detach(record);
    const std::size_t closed = inet.count("close");
    EXPECT_EQ(init_session(record), 0U);
    EXPECT_EQ(inet.count("close"), closed + 1);
    remove(record);
}

TEST_F(RequestMachine, AGzipBodyIsDecodedOnlyWhenAskedFor) {
    for (const unsigned long flags :
         {0UL, k_invoke_decode_gzip, k_invoke_accept_gzip | k_invoke_decode_gzip}) {
        s_completions.clear();
        inet.body = tessel_test::k_packed_hello;
        inet.content_encoding = TESSEL_W("gzip");
        session_context* const record = invoke2(TESSEL_W("http://h/"), TESSEL_W("X: y"), nullptr, 0, flags,
                                                on_complete, 7, http_method_get);
        windows.deliver_all();
        step();
        step();
        ASSERT_EQ(s_completions.size(), 1U);
        EXPECT_EQ(s_completions[0].content,
                  (flags & k_invoke_decode_gzip) != 0 ? "hello" : tessel_test::k_packed_hello);
        remove(record);
    }
    EXPECT_EQ(inet.count("send X: y\r\nAccept-Encoding: gzip, deflate|"), 1U);
}

TEST_F(RequestMachine, ARestartClosesTheOldRequestAndDropsItsNotices) {
    inet.reads = {k_pending};
    inet.body = "old";
    session_context* const record = get_to_response();
    windows.deliver_all();
    const auto old_request = inet.last_request();
    EXPECT_TRUE(set_url(record, TESSEL_W("http://h/new")));
    EXPECT_FALSE(reinvoke(record));
    EXPECT_EQ(record->content, nullptr);
    EXPECT_EQ(inet.count("open_request GET /new"), 1U);
    inet.complete_on(old_request, false, 12017);
    EXPECT_EQ(record->state, state_sending);
    windows.deliver_all();
    inet.complete_on(old_request, false, 12017);
    EXPECT_EQ(record->state, state_sending);
    inet.complete();
    EXPECT_EQ(record->state, state_ending);
    remove(record);
}

}  // namespace
