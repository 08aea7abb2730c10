// Synchronous sessions against a scripted service: what is asked of it, what the sink and the user decide,
// and what the host gets.
#include "support/scripted_inet.h"
#include "support/trace_recorder.h"
#include "tessel/tessel.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using kro::tessel::get_last_error;
using kro::tessel::set_last_error;
using kro::tessel::wide_string;
using testing::Contains;
using testing::ElementsAre;

constexpr unsigned long k_no_error = 0;

std::vector<error_resolvent> decisions(std::string_view letters) {
    std::vector<error_resolvent> all;
    all.reserve(letters.size());
    for (const char letter : letters) {
        all.push_back(letter == 'r' ? retry : letter == 'd' ? default_ : failed);
    }
    return all;
}

// Records what it is told, as "send 12002", and answers from the lists.
class recording_sink final : public http_session_sink {
public:
    void on_send_data_error(http_session* session, void*, unsigned long error,
                            error_resolvent& resolvent) override {
        note("send", session, error);
        resolvent = next(send_decisions, resolvent);
    }
    void on_response_error(http_session* session, void*, unsigned long error,
                           error_resolvent& resolvent) override {
        note("response", session, error);
        resolvent = next(response_decisions, resolvent);
    }
    void on_completed(http_session* session, unsigned long action, const http_response* response) override {
        told +=
            "completed " + std::to_string(action) + " " + std::to_string(response->get_status_code()) + "; ";
        EXPECT_TRUE(session->get_response() == nullptr || session->get_response() == response);
        if (on_end) {
            on_end();
        }
    }

    std::vector<error_resolvent> send_decisions, response_decisions;
    std::function<void()> on_error, on_end;
    std::string told;

private:
    void note(const char* what, http_session* session, unsigned long error) {
        const auto* response = session->get_response();
        const int status = response == nullptr ? 0 : response->get_status_code();
        told += what + (" " + std::to_string(error)) + "/" + std::to_string(status) + "; ";
        if (on_error) {
            on_error();
        }
    }
    static error_resolvent next(std::vector<error_resolvent>& decisions, error_resolvent otherwise) {
        if (decisions.empty()) {
            return otherwise;
        }
        const error_resolvent first = decisions.front();
        decisions.erase(decisions.begin());
        return first;
    }
};

std::string content(const http_session& session) {
    const auto* response = session.get_response();
    const auto* chunk = response == nullptr ? nullptr : response->get_buffer_content();
    if (chunk == nullptr) {
        return "(null)";
    }
    EXPECT_EQ(nullptr, chunk->next);
    EXPECT_EQ(0, static_cast<const char*>(chunk->data)[chunk->size]);
    return {static_cast<const char*>(chunk->data), chunk->size};
}

bool set_headers(http_session& session, const wide_string& lines) {
    return session.set_data_to_header(lines.data(), static_cast<unsigned>(lines.size() * sizeof(wchar)));
}

bool set_text(http_session& session, const wide_string& text) {
    return session.set_data_to_post(text.data(), static_cast<unsigned>(text.size() * sizeof(wchar)));
}

class HttpSession : public testing::Test {
public:
    HttpSession() {
        session.set_url(TESSEL_W("http://user:secret@h/a?b"));
        session.set_sync(true);
        session.set_sink(&sink);
    }
    ~HttpSession() override {
        EXPECT_EQ(inet.open_handles(), 0U);
        EXPECT_EQ(inet.count("close of a handle that isn't open"), 0U);
    }

    /// 0 when the call succeeded.
    unsigned long invoke() {
        set_last_error(4711);
        const bool ok = session.invoke();
        EXPECT_TRUE(!ok || get_last_error() == 0);
        return ok ? k_no_error : get_last_error();
    }

    tessel_test::scripted_inet inet;
    tessel_test::trace_recorder traces;
    recording_sink sink;
    http_session session;
};

TEST_F(HttpSession, KeepsItsBuffers) {
    unsigned len = 7;
    EXPECT_TRUE(session.get_data_to_post(nullptr, &len));
    EXPECT_EQ(0U, len);
    EXPECT_TRUE(session.set_data_to_post("abcde", 5));
    EXPECT_FALSE(session.get_data_to_post(nullptr, &(len = 9)));
    EXPECT_EQ(122U, get_last_error());
    EXPECT_EQ(5U, len);
    char got[8] = "-------";
    EXPECT_FALSE(session.get_data_to_post(got, &(len = 4)));
    EXPECT_EQ(122U, get_last_error());
    EXPECT_EQ("abcd---", std::string(got));
    EXPECT_FALSE(session.set_data_to_post(nullptr, 5));
    EXPECT_EQ(87U, get_last_error());
    EXPECT_FALSE(session.set_data_to_header(nullptr, 5));
    EXPECT_FALSE(session.get_data_to_post(got, nullptr));
    EXPECT_FALSE(session.get_data_to_post(nullptr, &(len = 0))) << "a refused call changes nothing";
    EXPECT_EQ(5U, len);

    // A copy has the same buffers; it is never destroyed, and has no long text that would leak with it.
    session.set_url(TESSEL_W("x:"));
    alignas(http_session) unsigned char room[sizeof(http_session)];
    auto* const copy = new (room) http_session;
    *copy = session;
    EXPECT_TRUE(copy->get_data_to_post(got, &(len = 5)));
    EXPECT_EQ("abcde--", std::string(got));
    EXPECT_EQ(&sink, copy->get_sink());
}

TEST_F(HttpSession, RefusesWhatItCannotPerform) {
    EXPECT_EQ(nullptr, session.get_response());
    session.set_url({});
    EXPECT_EQ(13U, invoke());
    session.set_url(TESSEL_W("http://h/"));
    session.set_sync(false);
    EXPECT_EQ(4711U, invoke()) << "false, and nothing else";
    session.set_sink(nullptr);
    EXPECT_EQ(13U, invoke());
    EXPECT_TRUE(inet.calls().empty() && sink.told.empty());
    session.set_sync(true);
    session.set_url(TESSEL_W("no scheme"));
    EXPECT_EQ(12006U, invoke());
    session.set_url(TESSEL_W("http://h/"));
    inet.opens = {8};
    EXPECT_EQ(8U, invoke());
    inet.connects = {87};
    EXPECT_EQ(87U, invoke());
    inet.open_requests = {12016};
    EXPECT_EQ(12016U, invoke());
}

TEST_F(HttpSession, DecidesWithItsSinkAndItsUserWhatFollows) {
    const struct {
        const char* what;
        std::vector<std::uint32_t> sends;
        std::uint32_t status;
        const char *on_send, *on_response;  // "r", "d", "f" for retry, default, failed
        std::vector<std::uint32_t> dialogs;
        const char* told;  // without the end
        unsigned long result;
    } rows[] = {
        {"success", {0}, 204, "", "", {}, "", 0},
        {"send, retry", {12002, 0}, 200, "r", "", {}, "send 12002/0; ", 0},
        {"send, default", {12002}, 200, "d", "", {}, "send 12002/0; ", 12002},
        {"send, undecided", {12002}, 200, "", "", {}, "send 12002/0; response 12002/0; ", 12002},
        {"send, retry second", {12002, 0}, 200, "f", "r", {}, "send 12002/0; response 12002/0; ", 0},
        {"send, default second", {12007}, 200, "f", "d", {}, "send 12007/0; response 12007/0; ", 12007},
        {"other error", {12002, 12029}, 200, "rd", "", {}, "send 12002/0; send 12029/0; ", 12029},
        {"status, undecided", {0}, 404, "", "", {}, "send 12000/404; response 12000/404; ", 0},
        {"status, default", {0}, 404, "d", "", {}, "send 12000/404; ", 0},
        {"status, default second", {0}, 407, "f", "d", {}, "send 12000/407; response 12000/407; ", 0},
        {"status, retry, send fails",
         {0, 12031},
         500,
         "rf",
         "d",
         {},
         "send 12000/500; send 12031/0; response 12031/0; ",
         12031},
        {"no status", {0}, 0, "", "", {}, "send 12000/0; response 12000/0; ", 0},
        {"407, cancelled", {0}, 407, "", "", {1223}, "send 12000/407; response 12000/407; ", 0},
        {"401, again",
         {0, 0},
         401,
         "",
         "",
         {12032, 0},
         "send 12000/401; response 12000/401; send 12000/401; response 12000/401; ",
         0},
        {"403", {0}, 403, "", "", {0}, "send 12000/403; response 12000/403; ", 0},
        {"bad password", {12014, 0}, 200, "", "", {12032}, "send 12014/0; response 12014/0; ", 0},
        {"and cancelled", {12014}, 200, "", "", {1223}, "send 12014/0; response 12014/0; ", 12014},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        for (const auto action : {http_session::action_run, http_session::action_upload}) {
            const std::size_t sent = inet.count("send ");
            const std::size_t shown = inet.count("dialog ");
            session.set_action_data(action);
            inet.sends = {row.sends.begin(), row.sends.end()};
            inet.dialogs = {row.dialogs.begin(), row.dialogs.end()};
            inet.status_code = row.status;
            inet.body = "the page";
            sink.send_decisions = decisions(row.on_send);
            sink.response_decisions = decisions(row.on_response);
            sink.told.clear();
            EXPECT_EQ(row.result, invoke());
            EXPECT_EQ(row.sends.size(), inet.count("send ") - sent);
            EXPECT_EQ(row.dialogs.size(), inet.count("dialog ") - shown);
            const auto status = row.result == 0 ? row.status : 0;
            EXPECT_EQ(
                row.told + ("completed " + std::to_string(action)) + " " + std::to_string(status) + "; ",
                sink.told);
            EXPECT_EQ(status == 0 ? "(null)" : "the page", content(session));
        }
    }
    EXPECT_THAT(inet.calls(), Contains("dialog 12014 7"));
    EXPECT_EQ(0U, inet.count("dialog over nothing"));

    inet.status_queries = {12019};
    sink.told.clear();
    EXPECT_EQ(12019U, invoke());
    EXPECT_EQ("completed 8 0; ", sink.told);
    session.set_sink(nullptr);
    session.set_action_data(77);
    inet.status_code = 404;
    EXPECT_EQ(0U, invoke()) << "it needs no sink";
    for (const auto* line : {TESSEL_W("---->>>> Enter http_session::run()"),
                             TESSEL_W("<<<<---- Leave http_session::runUpload()"),
                             TESSEL_W("[httputil] err/result/code (before on_send_data_error) is "),
                             TESSEL_W("[httputil] \terr/result (after on_send_data_error) is "),
                             TESSEL_W("showdlg is 1"), TESSEL_W("InternetErrorDlg return 12032")}) {
        EXPECT_TRUE(traces.has(line)) << std::string(line, line + wide_string(line).size());
    }
}

TEST_F(HttpSession, AHostsExceptionEndsTheRunAndGoesNoFurther) {
    const struct {
        const char* what;
        std::function<void()> doing;
        unsigned long error;
    } throwers[] = {{"of its own", [] { throw std::string("host"); }, 1359},
                    {"no memory", [] { throw std::bad_alloc(); }, 8}};
    for (const auto& thrower : throwers) {
        SCOPED_TRACE(thrower.what);
        inet.sends = {12002};
        sink.on_error = thrower.doing;
        EXPECT_EQ(thrower.error, invoke());
        sink.on_error = nullptr;
        sink.on_end = [&] {
            EXPECT_EQ(0U, inet.open_handles()) << "all is over when the end is told";
            thrower.doing();
        };
        EXPECT_EQ(thrower.error, invoke());
        sink.on_end = nullptr;
        inet.body = "bytes";
        transfer_watch watch;
        watch.progress = [&](const transfer_progress&) { thrower.doing(); };
        session.set_watch(watch);
        EXPECT_EQ(thrower.error, invoke());
        session.set_watch({});
    }
    struct throwing_session final : http_session {
        std::uint32_t run() override { throw 1; }
    } own;
    own.set_url(TESSEL_W("http://h/"));
    own.set_sync(true);
    EXPECT_FALSE(own.invoke());
    EXPECT_EQ(1359U, get_last_error());
}

TEST_F(HttpSession, RunComposesTheRequest) {
    const std::string type = "Content-Type: application/x-www-form-urlencoded";
    const std::string close = "\r\nConnection: close";
    http_client client;
    client.set_agent(TESSEL_W("agent/1"));
    const std::unique_ptr<http_session> made(client.open_session());
    http_session& own = *made;
    own.set_sync(true);
    own.set_url(TESSEL_W("https://user:secret@h:8443/a?b=c"));
    own.set_method(http_method_post);
    own.set_proxy_info({proxy_http, TESSEL_W("proxy"), 3128, TESSEL_W("me"), TESSEL_W("word")});
    set_text(own, TESSEL_W("\u00E4=1"));
    EXPECT_TRUE(own.invoke());
    const std::string requests = "open_request POST /a?b=c 8480c000";
    EXPECT_THAT(inet.calls(), ElementsAre("open 3 proxy:3128 agent/1", "connect h:8443 user secret", requests,
                                          "set_credentials proxy me word",
                                          "send " + type + ";charset:utf-8" + close + "|\xC3\xA4=1",
                                          testing::_, "close", "close", "close"));

    const auto sent = [&] {
        EXPECT_TRUE(own.invoke());
        const auto calls = inet.calls();
        const auto last = std::find_if(calls.rbegin(), calls.rend(), [](const std::string& call) {
            return call.compare(0, 5, "send ") == 0;
        });
        return last->substr(5);
    };
    own.set_raw_data(true);
    own.set_data_to_post("\xFF\0z", 3);
    EXPECT_EQ(type + close + "|" + std::string("\xFF\0z", 3), sent());
    own.set_accept_gzip_header(true);
    set_headers(own, TESSEL_W("X-One: 1\r\nContent-Types: a\r\n\r\n"));
    EXPECT_EQ("X-One: 1\r\nContent-Types: a\r\n" + type + "\r\nAccept-Encoding: gzip, deflate" + close + "|" +
                  std::string("\xFF\0z", 3),
              sent());
    set_headers(own, wide_string(TESSEL_W("X: 1\ncontent-TYPE : text/xml")) + wchar{0});
    own.set_method(http_method_delete);
    EXPECT_EQ("X: 1\ncontent-TYPE : text/xml\r\nAccept-Encoding: gzip, deflate" + close + "|", sent());

    own.set_proxy_info({});
    sent();
    EXPECT_THAT(inet.calls(), Contains("open 1  agent/1"));
    own.set_preconfig(true);
    sent();
    EXPECT_THAT(inet.calls(), Contains("open 0  agent/1"));
}

TEST_F(HttpSession, UploadsAndDownloadsGoByTheSystemsSettings) {
    const std::string opened = "open 0  Mozilla/4.0 (compatible; MSIE 6.0; Win32)";
    session.set_proxy_info({proxy_http, TESSEL_W("proxy"), 3128, {}, {}});
    set_text(session, TESSEL_W("ab"));
    set_headers(session, TESSEL_W("X: 1"));
    session.set_accept_gzip_header(true);
    session.set_method(http_method_put);
    session.set_action_data(http_session::action_upload);
    EXPECT_EQ(0U, invoke());
    EXPECT_THAT(inet.calls(),
                testing::IsSupersetOf({opened, std::string("open_request PUT /a?b 8400c000"),
                                       std::string("set_timeout handle 2 360000"),
                                       "send X: 1\r\nAccept-Encoding: gzip, deflate|" +
                                           std::string(reinterpret_cast<const char*>(TESSEL_W("ab")), 4)}));

    session.set_action_data(http_session::action_download);
    for (const std::uint32_t before : {120000U, 360000U, 4000000U, 0U}) {  // 0: no limit
        const std::size_t sets = before == 120000 ? 1 : 0;
        const std::size_t count = inet.count("set_timeout handle 2 360000");
        inet.receive_timeout = before;
        inet.body = "0123456789";
        inet.read_limit = 4;
        EXPECT_EQ(0U, invoke());
        EXPECT_EQ(count + sets, inet.count("set_timeout handle 2 360000"));
        EXPECT_EQ("0123456789", content(session));
    }
    EXPECT_EQ("send |", inet.calls().at(inet.calls().size() - 7));

    // A download's failures: an empty response, or what came of it; the sink hears of the end alone.
    sink.told.clear();
    inet.sends = {12029};
    EXPECT_EQ(0U, invoke());
    EXPECT_EQ(nullptr, session.get_response());
    inet.status_code = 404;
    inet.body = "0123456789";
    inet.reads = {0, 12031};
    EXPECT_EQ(0U, invoke());
    EXPECT_EQ("0123", content(session));
    EXPECT_EQ("completed 16 0; completed 16 404; ", sink.told);
}

TEST_F(HttpSession, ReadsEachKindOfBody) {
    const std::string long_body(25000, 'x');
    for (const auto action : {http_session::action_run, http_session::action_download}) {
        session.set_action_data(action);
        const struct {
            const char* what;
            std::optional<std::uint32_t> length;
            std::string body, content;
        } rows[] = {
            {"known", 5, "hello", "hello"},
            {"unknown", {}, long_body, long_body},
            {"empty", 0, "", "(null)"},
            {"shorter than said", 50000, "hello", "hello"},
            {"longer than said", 2, long_body, long_body},
        };
        for (const auto& row : rows) {
            for (const std::size_t limit : {SIZE_MAX, std::size_t{1000}}) {
                SCOPED_TRACE(row.what);
                inet.content_length = row.length;
                inet.body = row.body;
                inet.read_limit = limit;
                EXPECT_EQ(0U, invoke());
                EXPECT_TRUE(row.content == content(session));
            }
        }
    }
    inet.content_length = 0xFFFFFFFE;
    inet.body = "hello";
    EXPECT_EQ(0U, invoke());
    EXPECT_EQ("hello", content(session)) << "of all that a length can say";
    session.set_action_data(http_session::action_run);
    for (const auto length : {std::optional<std::uint32_t>(), std::optional<std::uint32_t>(10)}) {
        inet.content_length = length;
        inet.body = "0123456789";
        inet.read_limit = 4;
        inet.reads = {0, 12031};
        EXPECT_EQ(12031U, invoke());
        EXPECT_EQ("0123", content(session)) << "what had come before";
    }
}

TEST_F(HttpSession, InflatesAGzipBodyWhenAskedTo) {
    const std::string packed = tessel_test::k_packed_hello;
    inet.content_encoding = TESSEL_W("gzip");
    for (const auto action : {http_session::action_run, http_session::action_upload}) {
        session.set_action_data(action);
        session.set_auto_decode_gzip(true);
        inet.body = packed;
        EXPECT_EQ(0U, invoke());
        EXPECT_EQ("hello", content(session));
        inet.body = "not packed at all";
        EXPECT_EQ(0U, invoke());
        EXPECT_EQ("not packed at all", content(session));
        session.set_auto_decode_gzip(false);
        inet.body = packed;
        EXPECT_EQ(0U, invoke());
        EXPECT_EQ(packed, content(session));
    }
}

TEST_F(HttpSession, ACancelledOneIsNotTriedAgain) {
    transfer_watch watch;
    session.set_watch(watch);
    sink.on_error = [&] { watch.cancel.cancel(); };
    inet.sends.assign(5, 12002);
    sink.send_decisions.assign(5, retry);
    EXPECT_EQ(12017U, invoke());
    EXPECT_EQ(2U, inet.count("send "));
    EXPECT_EQ(12017U, invoke()) << "until the flag is taken back";
    EXPECT_EQ(2U, inet.count("send "));
    watch.cancel.reset();
    sink.on_error = nullptr;
    inet.sends.clear();
    EXPECT_EQ(0U, invoke());

    // A download, too, which forgives other failures; from its progress function.
    watch.progress = [&](const transfer_progress& how) {
        EXPECT_EQ(10U, how.total);
        EXPECT_LE(how.done, 4U);
        watch.cancel.cancel();
    };
    session.set_watch(watch);
    session.set_action_data(http_session::action_download);
    inet.content_length = 10;
    inet.body = "0123456789";
    inet.read_limit = 4;
    inet.reads = {0, 12018};
    EXPECT_EQ(12017U, invoke());
    EXPECT_EQ("0123", content(session));
}

}  // namespace
