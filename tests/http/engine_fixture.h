// The engine between a scripted service and a loop turned by hand.
#pragma once

#include "http/buffer_chain.h"
#include "http/engine_state.h"
#include "support/manual_message_windows.h"
#include "support/scripted_inet.h"
#include "support/trace_recorder.h"
#include "tessel/http/engine.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

namespace tessel_test {

class engine_fixture : public testing::Test {
public:
    using context = kro::tessel::http::session_context;

    struct completion {
        unsigned long user_context;
        std::int32_t state;
        std::uint32_t status_code;
        std::uint32_t async_error;
        std::string content;
        bool is_flat;
        bool operator==(const completion& other) const {
            return user_context == other.user_context && state == other.state &&
                   status_code == other.status_code && async_error == other.async_error &&
                   content == other.content && is_flat == other.is_flat;
        }
    };

    engine_fixture() {
        s_completions.clear();
        s_in_completion = nullptr;
        kro::tessel::http::http_init();
    }
    ~engine_fixture() override {
        kro::tessel::http::reset_engine_for_test();
        kro::tessel::http::fail_chunks_for_test(-1);
        EXPECT_EQ(inet.open_handles(), 0U);
        EXPECT_EQ(inet.count("close of a handle that isn't open"), 0U);
    }

    static void on_complete(unsigned long user_context, context* record) {
        const auto* content = record->content;
        s_completions.push_back({user_context, record->state, record->status_code, record->async_error,
                                 content == nullptr
                                     ? "(null)"
                                     : std::string(static_cast<const char*>(content->data), content->size),
                                 content == nullptr || content->next == nullptr});
        if (s_in_completion) {
            s_in_completion(record);
        }
    }

    context* get(const wchar* url = TESSEL_W("http://h/a?b")) {
        return kro::tessel::http::invoke2(url, {}, nullptr, 0, 0, on_complete, 7, http_method_get);
    }
    /// Runs a request up to the point where its response's headers are there.
    context* get_to_response(const wchar* url = TESSEL_W("http://h/a?b")) {
        context* const record = get(url);
        windows.deliver_all();
        step();           // sent
        inet.complete();  // ended
        return record;
    }
    /// The notice of what is pending, and the messages that it brings.
    void step(bool result = true, std::uint32_t error = 0, std::uint32_t bytes = 0) {
        inet.complete(result, error, bytes);
        windows.deliver_all();
    }
    /// The same for a whole request. Its first step has been taken.
    void finish() {
        windows.deliver_all();
        step();
        step();
    }
    static bool is_live(context* record) {
        return kro::tessel::http::http_session::mgr().is_session_valid(record);
    }
    static bool remove(context* record) { return kro::tessel::http::http_session::mgr().remove(record); }

    scripted_inet inet;
    manual_message_windows windows;
    trace_recorder traces;

    static inline std::vector<completion> s_completions;
    static inline std::function<void(context*)> s_in_completion;
};

}  // namespace tessel_test
