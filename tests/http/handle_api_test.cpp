// Hosts call the handle functions with handles that are live, gone, foreign or null, and from procedures.
#include "http/engine_fixture.h"
#include "support/ascii.h"

#include <memory>

namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using tessel_test::trace_recorder;

class HandleApi : public tessel_test::engine_fixture {};

TEST_F(HandleApi, WhatCannotStartGivesNullWithItsNumber) {
    const auto start = [](const wchar* url, const void* data, unsigned long size,
                          complete_procedure procedure) {
        kro::tessel::set_last_error(1);
        return invoke2(url, {}, data, size, 0, procedure, 0, http_method_post);
    };
    EXPECT_EQ(start(TESSEL_W("http://h/"), nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(start(TESSEL_W(""), nullptr, 0, on_complete), nullptr);
    EXPECT_EQ(kro::tessel::get_last_error(), 1U);  // refused without a number
    EXPECT_TRUE(trace_recorder::lines().empty());
    EXPECT_EQ(start(TESSEL_W("http://h/"), nullptr, 5, on_complete), nullptr);
    EXPECT_EQ(kro::tessel::get_last_error(), 87U);
    if constexpr (sizeof(unsigned long) > 4) {
        EXPECT_EQ(start(TESSEL_W("http://h/"), "x", ~0UL, on_complete), nullptr);
        EXPECT_EQ(kro::tessel::get_last_error(), 87U);
    }
}

TEST_F(HandleApi, MethodsCarryTheBodyButForThree) {
    const char body[] = "a=1";
    for (int method = 0; method < 25; ++method) {
        session_context* const record = invoke2(TESSEL_W("http://h/"), TESSEL_W("X: y"), body, 3, 0,
                                                on_complete, 0, static_cast<http_method_t>(method));
        windows.deliver_all();
        const bool none =
            method == http_method_get || method == http_method_head || method == http_method_delete;
        EXPECT_EQ(inet.calls().back(), none ? "send X: y|" : "send X: y|a=1") << "method " << method;
        remove(record);
    }
}

TEST_F(HandleApi, TextBodiesAreSentInUtf8) {
    session_context* const record =
        invoke2(L"http://h/", L"X: y", L"\u00e9\u4e2d\U0001F600", 0, on_complete, 0, http_method_post);
    unsigned long size = 0;
    const void* const sent = get_data(record, size);
    EXPECT_EQ(std::string(static_cast<const char*>(sent), size), "\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80");
    remove(record);
}

TEST_F(HandleApi, LiveHandlesAnswerAndStaleOnesAreTraced) {
    session_context* const record = get();
    EXPECT_EQ(get_complete_proc(record), &on_complete);
    EXPECT_EQ(get_user_context(record), 7U);
    EXPECT_TRUE(set_url(record, TESSEL_W("")));
    EXPECT_TRUE(record->url.empty());
    EXPECT_TRUE(reinvoke(record));  // no URL: an error
    EXPECT_TRUE(is_live(record));
    EXPECT_TRUE(remove(record));

    trace_recorder::clear();
    int foreign = 0;
    for (void* const handle :
         {static_cast<void*>(record), static_cast<void*>(nullptr), static_cast<void*>(&foreign)}) {
        unsigned long size = 99;
        EXPECT_FALSE(set_url(handle, TESSEL_W("http://h/")));
        set_auto_delete(handle, true);
        EXPECT_EQ(get_complete_proc(handle), nullptr);
        EXPECT_EQ(get_user_context(handle), 0U);
        EXPECT_EQ(get_data(handle, size), nullptr);
        EXPECT_EQ(size, 99U);
        EXPECT_FALSE(reinvoke(handle));
        EXPECT_FALSE(remove(static_cast<session_context*>(handle)));
        EXPECT_FALSE(http_session::mgr().detach(static_cast<session_context*>(handle)));
    }
    for (const char* const call :
         {"set_url", "set_auto_delete", "get_complete_proc", "get_user_context", "get_data", "reinvoke"}) {
        const std::string line = std::string("[httputil] ") + call + ", invalid session!! 0x";
        EXPECT_EQ(trace_recorder::count(tessel_test::wide(line)), 3U) << call;
    }
    EXPECT_EQ(trace_recorder::count(TESSEL_W("Debug: pcontext not found! has been detached? 0x")), 3U);
    EXPECT_EQ(trace_recorder::count(TESSEL_W("Debug: pcontext not found when try to detach!  0x")), 3U);
}

// Only the low byte of the code counts.
TEST_F(HandleApi, ARestartThatFailsIsUsuallyTrue) {
    session_context* const record = get_to_response();
    windows.deliver_all();
    inet.open_requests = {12029, 12032 & ~0xFFU};
    EXPECT_TRUE(reinvoke(record));
    EXPECT_FALSE(reinvoke(record));
    EXPECT_TRUE(is_live(record));
    remove(record);
}

TEST_F(HandleApi, APreparedContextStartsWhenTheHostHasFilledInTheRest) {
    std::unique_ptr<session_context> record(
        prepare_session(TESSEL_W("nonsense"), {}, nullptr, 0, 0, on_complete, 7, http_method_get));
    EXPECT_EQ(init_session(record.get()), 12005U);
    EXPECT_FALSE(is_live(record.get()));  // still the host's
    record->url = TESSEL_W("http://h/");
    record->proxy = proxy_info(proxy_http, TESSEL_W("gate"), 3128, TESSEL_W("me"), TESSEL_W(""));
    record->auto_delete = true;
    EXPECT_EQ(init_session(record.get()), 0U);
    session_context* const live = record.release();
    EXPECT_TRUE(is_live(live));
    EXPECT_EQ(inet.count("open 3 gate:3128 http.util async"), 1U);
    windows.deliver_all();
    EXPECT_EQ(inet.count("set_credentials proxy me -"), 1U);
    step();
    step();
    EXPECT_EQ(s_completions.size(), 1U);
    EXPECT_FALSE(is_live(live));
}

TEST_F(HandleApi, InitSucceedsAgainAndFailsWithoutAWindow) {
    EXPECT_TRUE(http_init());
    EXPECT_EQ(windows.windows().size(), 1U);
    EXPECT_EQ(windows.windows()[0].title, TESSEL_W("tessel.http.helper"));
    EXPECT_EQ(inet.count("set_timeout process 2 120000"), 2U);
    reset_engine_for_test();
    windows.refused_windows = 1;
    EXPECT_FALSE(http_init());
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("[httputil] Failed to create help wnd for http_session!!")));
}

TEST(Records, MethodsAreFoundByNameWithoutCase) {
    for (int method = 0; method < 25; ++method) {
        const auto value = static_cast<http_method_t>(method);
        EXPECT_EQ(get_http_method_by_name(get_http_method_name(value)), value);
    }
    EXPECT_EQ(get_http_method_by_name(L"x-ms-EnumAtts"), http_method_x_ms_enumatts);
    for (const wchar* name : {TESSEL_W(""), TESSEL_W("POS"), TESSEL_W("POSTS"), TESSEL_W("\u0130")}) {
        EXPECT_EQ(get_http_method_by_name(name), http_method_get);
    }
}

}  // namespace
