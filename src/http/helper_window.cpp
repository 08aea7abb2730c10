#include "http/helper_window.h"

#include "os/inet.h"
#include "os/message_window.h"
#include "os/thread.h"

#include "http/engine_state.h"
#include "http/request_machine.h"
#include "tessel/base/trace.h"
#include "tessel/http/engine.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <new>

namespace kro::tessel::http {
namespace {

constexpr const wchar* k_class_name = TESSEL_W("tessel.http.helper.class");
constexpr const wchar* k_title = TESSEL_W("tessel.http.helper");
constexpr std::uint32_t k_message_step = os::k_message_user + 1;
constexpr std::uint32_t k_message_data_received = os::k_message_user;
constexpr std::uintptr_t k_data_received_mark = 0x12345678;
constexpr std::uint32_t k_receive_timeout_ms = 120000;

std::mutex g_init_mutex;                            // guards the making of the window
std::atomic<os::window> g_window{nullptr};          // the helper window
std::atomic<os::window> g_posting_window{nullptr};  // where the status callback posts to

/// Steps that the window's queue had no room for: it takes 10,000 messages, mostly.
class waiting_steps {
public:
    // Never destroyed: the network's thread may post while the process ends.
    static waiting_steps& instance() {
        static auto* const all = new waiting_steps;
        return *all;
    }
    void add(session_context* context) {
        const std::lock_guard lock(m_mutex);
        m_steps.push_back(context);
    }
    /// Those that wait now, one by one: a step's host may turn the loop until another one is done.
    void run() {
        for (std::size_t left = count(); left != 0; --left) {
            if (session_context* const next = take()) {
                run_due_step(next);
            }
        }
    }

private:
    std::size_t count() {
        const std::lock_guard lock(m_mutex);
        return m_steps.size();
    }
    session_context* take() {
        const std::lock_guard lock(m_mutex);
        if (m_steps.empty()) {
            return nullptr;
        }
        session_context* const next = m_steps.front();
        m_steps.pop_front();
        return next;
    }

    std::mutex m_mutex;  // guards m_steps
    std::deque<session_context*> m_steps;
};

std::intptr_t window_procedure(os::window /*target*/, std::uint32_t message, std::uintptr_t wparam,
                               std::intptr_t /*lparam*/) noexcept {
    if (message == k_message_step) {
        // The address is only looked up: the context may be gone, or be another one's by now.
        run_due_step(reinterpret_cast<session_context*>(wparam));  // NOLINT(performance-no-int-to-ptr)
        waiting_steps::instance().run();
    }
    return 0;
}

bool post_message(session_context* context) {
    const auto wparam = reinterpret_cast<std::uintptr_t>(context);
    return os::message_windows().post(g_posting_window, k_message_step, wparam, 0);
}

bool make_window() {
    os::message_window_service& windows = os::message_windows();
    if (windows.is_window(g_window)) {
        return true;
    }
    windows.register_class(k_class_name, window_procedure);  // refused when it is there already
    g_window = windows.create(k_class_name, k_title);
    return g_window != nullptr;
}

}  // namespace

bool http_init() {
    const std::lock_guard lock(g_init_mutex);
    if (!make_window()) {
        trace_message(trace_debug) << TESSEL_W("[httputil] Failed to create help wnd for http_session!!");
        return false;
    }
    std::srand(os::tick_count());
    g_posting_window = g_window.load();
    os::inet().set_timeout(nullptr, os::inet_timeout::receive, k_receive_timeout_ms);
    return true;
}

void post_step(session_context* context) {
    if (post_message(context)) {
        return;
    }
    if (!os::message_windows().is_window(g_posting_window)) {
        trace_message(trace_error) << TESSEL_W("[httputil] no helper window takes the step of ")
                                   << static_cast<const void*>(context)
                                   << TESSEL_W(": was http_init called?");
        return;
    }
    try {
        waiting_steps::instance().add(context);
    } catch (const std::bad_alloc&) {
        trace_message(trace_error) << TESSEL_W("[httputil] no memory for a step");
        return;
    }
    post_message(nullptr);  // has those that wait looked at; refused again, a message of ours will, mostly
}

void post_data_received(session_context* context) {
    os::message_windows().post(g_posting_window, k_message_data_received, k_data_received_mark,
                               reinterpret_cast<std::intptr_t>(context));
}

void reset_engine_for_test() {
    engine().shut_down(false);
    if (g_window != nullptr) {
        os::message_windows().destroy(g_window);
    }
    g_window = nullptr;
    g_posting_window = nullptr;
}

}  // namespace kro::tessel::http
