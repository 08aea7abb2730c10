// The engine between a service and a host that do at each moment what dice say: every request ends as often
// as it should and as it should, whatever is removed, detached, started again or ended in whatever order.
//
// TESSEL_SEEDS says how many games are played (2000), TESSEL_SEED plays one of them again.
#include "http/engine_state.h"
#include "http/simulated_inet.h"
#include "support/manual_message_windows.h"
#include "tessel/http/engine.h"

#include <gtest/gtest.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <string>

namespace {

using namespace kro::tessel::http;
using kro::tessel::CTString;
using tessel_test::dice;
using tessel_test::manual_message_windows;
using tessel_test::simulated_inet;
using tessel_test::two_threads;

constexpr std::size_t k_most_requests = 12;
constexpr int k_deepest_nesting = 3;

class game final : public http_session_error_sink {
public:
    explicit game(std::uint32_t seed) : m_chance(seed), m_inet(m_chance, threads()) {
        s_self = this;
        m_inet.meanwhile = [] { s_self->nested_loop(); };
        http_init();
    }
    game(const game&) = delete;
    game& operator=(const game&) = delete;
    virtual ~game() { s_self = nullptr; }

    // Returns what went wrong, empty when nothing did.
    std::string play() {
        for (std::uint32_t moves = 20 + m_chance.below(150); moves != 0; --moves) {
            move();
        }
        if (m_chance.one_in(8)) {
            reset_engine_for_test();  // the process ends here
        } else {
            come_to_rest();
            expect_all_told();
            remove_all();
            reset_engine_for_test();
        }
        m_windows.deliver_all();
        check(!m_inet.complete_one(), "an operation is pending after the end");
        check(m_inet.simulated_handles() == 0, "handles are open after the end");
        for (const std::string& violation : m_inet.violations()) {
            m_faults += violation + "; ";
        }
        return m_faults;
    }

private:
    struct request {
        session_context* context = nullptr;
        bool live = false;             // neither removed nor detached
        int told = 0;                  // completions since its last start
        bool may_stay_silent = false;  // a sink wanted that, or it could not be started again
    };

    static two_threads& threads() {
        static two_threads both;
        return both;
    }

    void check(bool holds, const char* otherwise) {
        if (!holds) {
            m_faults += otherwise;
            m_faults += "; ";
        }
    }

    // ---- moves

    void move() {
        const std::uint32_t which = m_chance.below(100);
        if (which < 45) {
            m_windows.deliver_one();
        } else if (which < 75) {
            m_inet.complete_one();
        } else if (which < 90) {
            start_one();
        } else {
            on_either_thread([this] { act_on_any(); });
        }
    }

    void on_either_thread(const std::function<void()>& act) {
        if (m_chance.one_in(2)) {
            act();
        } else {
            threads().on_other(act);
        }
    }

    void nested_loop() {
        if (m_depth < k_deepest_nesting) {
            ++m_depth;
            for (std::uint32_t moves = m_chance.below(12); moves != 0; --moves) {
                move();
            }
            --m_depth;
        }
    }

    void start_one() {
        if (m_requests.size() < k_most_requests) {
            on_either_thread([this] { start_request(); });
        }
    }

    void start_request() {
        const unsigned long id = m_next_id++;
        const CTString url = m_chance.one_in(2) ? TESSEL_W("http://one/") : TESSEL_W("https://two:444/x?y");
        session_context* const context =
            prepare_session(url, {}, "body", 4, 0, completed, id, http_method_post);
        context->error_sink = m_chance.one_in(2) ? this : nullptr;
        m_requests[id] = {context, true, 0, false};
        const std::uint32_t error = init_session(context);
        // It may have run its whole life inside the call, and another one may have got its record's place.
        if (error != 0 && m_requests[id].live) {
            m_requests[id].live = false;
            delete context;
        }
    }

    void act_on_any() {
        if (!m_requests.empty()) {
            auto chosen = m_requests.begin();
            std::advance(chosen, m_chance.below(static_cast<std::uint32_t>(m_requests.size())));
            act_on(chosen->first);
        }
    }

    void act_on(unsigned long id) {
        switch (m_chance.below(8)) {
            case 0:
                remove(id);
                break;
            case 1:
                detach(id);
                break;
            case 2:
                start_again(id);
                break;
            case 3:
                end_itself(id);
                break;
            case 4:
                start_one();
                break;
            case 5:
                nested_loop_on_first();
                break;
            default:
                break;
        }
    }

    // A loop may only turn on the thread of http_init.
    void nested_loop_on_first() {
        if (threads().on_first()) {
            nested_loop();
        }
    }

    // The live request that this one's context belongs to: a stale pointer may be another's by now.
    request* owner_of(unsigned long id) {
        for (auto& [other, one] : m_requests) {
            if (one.live && one.context == m_requests[id].context) {
                return &one;
            }
        }
        return nullptr;
    }
    bool forget(unsigned long id) {
        request* const owner = owner_of(id);
        (owner != nullptr ? *owner : m_requests[id]).live = false;
        return owner != nullptr;
    }

    void remove(unsigned long id) {
        session_context* const context = m_requests[id].context;
        const bool live = forget(id);
        check(http_session::mgr().remove(context) == live, "remove answered wrongly");
    }

    void detach(unsigned long id) {
        session_context* const context = m_requests[id].context;
        const bool live = forget(id);
        const bool detached = http_session::mgr().detach(context);
        check(detached == live, "detach answered wrongly");
        if (detached) {
            delete context;
        }
    }

    void start_again(unsigned long id) {
        session_context* const context = m_requests[id].context;
        request* const one = owner_of(id);
        if (one != nullptr && !m_chance.one_in(2)) {
            one->told = 0;
            one->may_stay_silent = context->resolvent == default_;  // a decision stays through a new start
            if (reinvoke(context) && one->context == context) {
                one->may_stay_silent = true;
            }
        }
    }

    void end_itself(unsigned long id) {
        const request& one = m_requests[id];
        if (one.live && one.told == 0) {
            set_auto_delete(one.context, true);
        }
    }

    // ---- what the engine tells

    static void completed(unsigned long id, session_context* context) { s_self->on_completed(id, context); }

    void on_completed(unsigned long id, session_context* context) {
        check(threads().on_first(), "completed on another thread");
        request& one = m_requests[id];
        check(one.live && one.context == context, "a request that had ended was completed");
        check(++one.told == 1, "completed twice");
        if (context->state == state_done) {
            const std::string body = m_inet.body_of(context->request);
            const _buffer_content* const content = context->content;
            const std::string got = content == nullptr
                                        ? std::string()
                                        : std::string(static_cast<char*>(content->data), content->size);
            check(got == body, "a wrong body");
        }
        act_on(id);
        // Ended by itself once this returns, even when it has just been started again.
        if (one.live && context->auto_delete) {
            one.live = false;
        }
    }

    void on_send_error(session_context* context) override { decide(context); }
    void on_recv_error(session_context* context) override { decide(context); }

    void decide(session_context* context) {
        constexpr error_resolvent decisions[] = {failed, failed, retry, default_};
        const unsigned long id = context->user_context;
        context->resolvent = m_chance.one_of(decisions);
        m_requests[id].may_stay_silent = m_requests[id].may_stay_silent || context->resolvent == default_;
        act_on(id);
    }

    // ---- the end of a game

    void come_to_rest() {
        int turns = 0;
        while ((m_windows.deliver_one() || m_inet.complete_one()) && ++turns < 20000) {
        }
        check(turns < 20000, "no rest");
    }

    void expect_all_told() {
        for (const auto& [id, one] : m_requests) {
            if (one.live && http_session::mgr().is_session_valid(one.context)) {
                check(one.told == 1 || one.may_stay_silent, "a request was never completed");
            } else {
                check(!one.live, "a request is gone");
            }
        }
    }

    void remove_all() {
        for (auto& [id, one] : m_requests) {
            if (one.live) {
                remove(id);
            }
        }
    }

    static inline game* s_self = nullptr;
    dice m_chance;
    simulated_inet m_inet;
    manual_message_windows m_windows;
    std::map<unsigned long, request> m_requests;
    unsigned long m_next_id = 1;
    int m_depth = 0;
    std::string m_faults;
};

std::uint32_t number_from(const char* variable, std::uint32_t otherwise) {
    const char* const value = std::getenv(variable);
    return value == nullptr ? otherwise : static_cast<std::uint32_t>(std::strtoul(value, nullptr, 10));
}

volatile std::sig_atomic_t g_seed = 0;

// A crash says which game it was; played alone, the game leaves the signal to a sanitizer or debugger.
void tell_seed(int signal) {
    std::fprintf(stderr, "crashed, again: TESSEL_SEED=%d\n", static_cast<int>(g_seed));
    std::signal(signal, SIG_DFL);
}

TEST(EngineSimulation, EveryRequestEndsAsItShould) {
    const std::uint32_t only = number_from("TESSEL_SEED", 0);
    const std::uint32_t first = only != 0 ? only : 1;
    const std::uint32_t count = only != 0 ? 1 : number_from("TESSEL_SEEDS", 2000);
    if (only == 0) {
        std::signal(SIGSEGV, tell_seed);
        std::signal(SIGABRT, tell_seed);
    }
    for (std::uint32_t seed = first; seed != first + count; ++seed) {
        g_seed = static_cast<std::sig_atomic_t>(seed);
        const std::string faults = game(seed).play();
        ASSERT_EQ("", faults) << "again: TESSEL_SEED=" << seed;
    }
}

}  // namespace
