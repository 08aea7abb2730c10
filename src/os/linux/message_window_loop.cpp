#include "os/linux/message_window_loop.h"

#include "os/thread.h"

#include <glib.h>

#include <utility>

namespace kro::tessel::os {
namespace {

/// Turns of one `pump`: sources that are always ready again can't hold it for ever. A turn delivers up to 64
/// messages or 2 ms of them.
constexpr int k_max_pump_turns = 1000;

/// The calling thread's context, held for the length of a loop. While another thread turns that one,
/// nothing can be delivered here, and an empty context of this loop's own takes its place.
class turned_context {
public:
    turned_context() : m_context(g_main_context_ref_thread_default()) {
        if (g_main_context_acquire(m_context) == FALSE) {
            g_main_context_unref(m_context);
            m_context = g_main_context_new();
            g_main_context_acquire(m_context);
        }
    }
    ~turned_context() {
        g_main_context_release(m_context);
        g_main_context_unref(m_context);
    }
    turned_context(const turned_context&) = delete;
    turned_context& operator=(const turned_context&) = delete;

    bool turn(bool may_block) {
        return g_main_context_iteration(m_context, may_block ? TRUE : FALSE) != FALSE;
    }
    void attach(GSource* source) { g_source_attach(source, m_context); }

private:
    GMainContext* m_context;
};

/// Ends the wait of a context at a given moment; it has nothing to deliver.
class alarm_clock {
public:
    alarm_clock(turned_context& context, std::int64_t when)
        : m_source(g_source_new(&s_functions, sizeof(GSource))) {
        g_source_set_can_recurse(m_source, TRUE);
        g_source_set_ready_time(m_source, when);
        context.attach(m_source);
    }
    ~alarm_clock() {
        g_source_destroy(m_source);
        g_source_unref(m_source);
    }
    alarm_clock(const alarm_clock&) = delete;
    alarm_clock& operator=(const alarm_clock&) = delete;

private:
    static gboolean ring(GSource* source, GSourceFunc /*callback*/, gpointer /*data*/) {
        g_source_set_ready_time(source, -1);
        return G_SOURCE_CONTINUE;
    }

    static inline GSourceFuncs s_functions{nullptr, nullptr, ring, nullptr, nullptr, nullptr};
    GSource* m_source;
};

thread_local running_loop* t_innermost = nullptr;

class endless_loop final : public running_loop {
public:
    void run() {
        turned_context context;
        while (!m_quit) {
            context.turn(true);
        }
    }
    void quit() noexcept { m_quit = true; }
    bool ends_here() override { return m_quit; }

private:
    bool m_quit = false;
};

thread_local endless_loop* t_innermost_run = nullptr;
thread_local bool t_quit_waits = false;  // `quit` came while nothing ran

class limited_loop final : public running_loop {
public:
    explicit limited_loop(const std::function<bool()>& done) : m_done(done) {}

    bool run(std::uint32_t milliseconds) {
        const bool limited = milliseconds != k_infinite;
        const std::int64_t end =
            limited ? g_get_monotonic_time() + std::int64_t{milliseconds} * 1000 : INT64_MAX;
        turned_context context;
        const alarm_clock alarm(context, limited ? end : -1);
        while (!m_is_done && !m_done()) {
            if (limited && g_get_monotonic_time() >= end) {
                return false;
            }
            context.turn(true);
        }
        return true;
    }
    bool ends_here() override {
        m_is_done = m_is_done || m_done();
        return m_is_done;
    }

private:
    const std::function<bool()>& m_done;
    bool m_is_done = false;
};

thread_local bool t_another_turn = false;

class waiting_only_loop final : public running_loop {
public:
    static bool run() {
        // A loop like the others: what it delivers isn't an enclosing loop's delivery.
        const waiting_only_loop loop;
        turned_context context;
        bool delivered = false;
        for (int turn = 0; turn < k_max_pump_turns; ++turn) {
            t_another_turn = false;
            if (context.turn(false)) {
                delivered = true;
            } else if (!t_another_turn) {
                break;
            }
        }
        return delivered;
    }
    bool ends_here() override { return false; }

private:
    waiting_only_loop() = default;
};

}  // namespace

running_loop::running_loop() noexcept : m_outer(std::exchange(t_innermost, this)), m_depth(g_main_depth()) {}

running_loop::~running_loop() {
    t_innermost = m_outer;
}

running_loop* running_loop::of_this_dispatch() noexcept {
    const bool ours = t_innermost != nullptr && t_innermost->m_depth + 1 == g_main_depth();
    return ours ? t_innermost : nullptr;
}

void run_loop() {
    if (std::exchange(t_quit_waits, false)) {
        return;
    }
    endless_loop loop;
    endless_loop* const outer = std::exchange(t_innermost_run, &loop);
    loop.run();
    t_innermost_run = outer;
}

bool run_loop_until(const std::function<bool()>& done, std::uint32_t milliseconds) {
    return limited_loop(done).run(milliseconds);
}

void quit_loop() noexcept {
    if (t_innermost_run != nullptr) {
        t_innermost_run->quit();
    } else {
        t_quit_waits = true;
    }
}

bool pump_loop() {
    return waiting_only_loop::run();
}

void expect_another_turn() noexcept {
    t_another_turn = true;
}

}  // namespace kro::tessel::os
