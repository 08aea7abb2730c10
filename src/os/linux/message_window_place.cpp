#include "os/linux/message_window_place.h"

#include "os/linux/message_window_loop.h"
#include "os/thread.h"

#include <time.h>

#include <algorithm>
#include <memory>
#include <string>
#include <utility>

namespace kro::tessel::os {
namespace {

// A window's value is its place, its generation and a mark that no address of a process begins with, so
// that no pointer can be mistaken for a window.
constexpr std::uintptr_t k_mark = 0x5457;
constexpr unsigned k_mark_shift = 48;
constexpr unsigned k_generation_shift = 16;
constexpr std::uintptr_t k_place_mask = (std::uintptr_t{1} << k_generation_shift) - 1;
static_assert(sizeof(std::uintptr_t) == 8);

// Posted messages come before timers, as everywhere in the system of this interface: a larger number is
// a lower rank. GTK draws at 120 and is idle at 200.
constexpr int k_message_priority = G_PRIORITY_DEFAULT;
constexpr int k_tick_priority = G_PRIORITY_DEFAULT + 1;

/// A dispatch ends after so many deliveries or so much time, so that the host's own sources get their turns.
constexpr int k_deliveries_at_once = 64;
constexpr std::int64_t k_microseconds_at_once = 2000;

constexpr std::int64_t k_never = -1;  // as a source's wake-up time

/// Counts the queues that stopped being empty, all windows together: what was posted from inside a tick comes
/// before the next tick, whichever window it was posted to.
std::atomic<std::uint32_t> g_queues_filled{0};

std::string source_name(const wchar* title, const char* what) {
    gchar* const text = title == nullptr ? nullptr
                                         : g_utf16_to_utf8(reinterpret_cast<const gunichar2*>(title), -1,
                                                           nullptr, nullptr, nullptr);
    std::string name = text == nullptr ? what : std::string(text) + what;
    g_free(text);
    return name;
}

/// A window as its deliverers know it.
struct target_window {
    window_place& place;
    std::uint32_t generation;
    window value;
    window_procedure procedure;
};

/// The kernel's last tick: a few milliseconds coarse, and a fraction of the exact clock's cost, which would
/// be most of the cost of a message.
std::int64_t coarse_microseconds() {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC_COARSE, &now);
    return std::int64_t{now.tv_sec} * 1'000'000 + now.tv_nsec / 1000;
}

/// Whether a dispatch goes on after a delivery.
class batch_limits {
public:
    batch_limits()
        : m_loop(running_loop::of_this_dispatch()), m_end(coarse_microseconds() + k_microseconds_at_once) {}

    bool reached() {
        return ++m_delivered >= k_deliveries_at_once || (m_loop != nullptr && m_loop->ends_here()) ||
               coarse_microseconds() >= m_end;
    }

private:
    running_loop* const m_loop;
    const std::int64_t m_end;
    int m_delivered = 0;
};

}  // namespace

window to_window(const window_id& id) {
    const std::uintptr_t value =
        (k_mark << k_mark_shift) | (std::uintptr_t{id.generation} << k_generation_shift) | id.place;
    return reinterpret_cast<window>(value);  // NOLINT(performance-no-int-to-ptr)
}

std::optional<window_id> to_window_id(window target) {
    const auto value = reinterpret_cast<std::uintptr_t>(target);
    if (value >> k_mark_shift != k_mark) {
        return std::nullopt;
    }
    return window_id{value & k_place_mask, static_cast<std::uint32_t>(value >> k_generation_shift)};
}

window desktop_window() {
    return to_window({k_place_mask, 0});
}

/// Delivers what was posted. Its members belong to whoever turns the context.
///
/// The sender of a message wakes the context only if its loop may be asleep: a wake-up costs a hundred times
/// as much as a message. The loop is taken to be asleep from a `prepare` or `check` that found nothing.
class window_place::message_deliverer {
public:
    explicit message_deliverer(const target_window& target) : m_target(target) {}

    bool prepare(int& timeout) noexcept {
        const bool waiting = check();
        timeout = waiting ? 0 : -1;
        return waiting;
    }

    bool check() noexcept { return !m_batch.empty() || m_target.place.has_posted(m_target.generation); }

    /// Takes one batch, and what the procedure posts to its own window meanwhile: that saves the loop a turn
    /// for each. To look again for other threads' messages would find the few that have just come, and keep
    /// getting into the senders' way for them.
    void dispatch() noexcept {
        if (m_batch.empty()) {
            m_target.place.take_posted(m_target.generation, m_batch);
        }
        batch_limits limits;
        while (!m_batch.empty()) {
            // Taken off before the call: the procedure may run a loop that goes on with the batch.
            const posted_message next = m_batch.pop();
            m_target.procedure(m_target.value, next.number, next.wparam, next.lparam);
            if (!m_target.place.is_open(m_target.generation) || limits.reached()) {
                return;
            }
            if (m_batch.empty()) {
                m_target.place.take_own_posts(m_target.generation, m_batch);
            }
        }
    }

    void destroyed() noexcept { m_target.place.lose_context(m_target.generation); }

private:
    const target_window m_target;
    message_queue m_batch;
};

/// Delivers ticks: one source for all timers of a window, since a context looks at each of its sources in
/// each of its turns.
class window_place::tick_deliverer {
public:
    explicit tick_deliverer(const target_window& target) : m_target(target) {}

    bool prepare(int& timeout) noexcept {
        timeout = -1;
        if (m_pause == pause::begins) {
            timeout = 0;
            m_pause = pause::ends;
            expect_another_turn();
        } else if (m_pause == pause::ends) {
            m_pause = pause::none;
            m_target.place.resume_ticks(m_target.generation);
        }
        return false;
    }

    bool check() noexcept { return false; }  // its wake-up time says it all

    void dispatch() noexcept {
        m_pause = pause::none;
        batch_limits limits;
        const std::uint32_t filled_before = g_queues_filled.load(std::memory_order_relaxed);
        do {
            const auto id = m_target.place.take_tick(m_target.generation, g_get_monotonic_time());
            if (!id) {
                return;
            }
            m_target.procedure(m_target.value, k_message_timer, *id, 0);
        } while (m_target.place.is_open(m_target.generation) && !limits.reached() &&
                 g_queues_filled.load(std::memory_order_relaxed) == filled_before);
        if (m_target.place.pause_ticks(m_target.generation)) {
            m_pause = pause::begins;
        }
    }

    void destroyed() noexcept { m_target.place.lose_context(m_target.generation); }

private:
    /// Timers that can't keep up would always be due and starve whatever ranks below them, drawing above
    /// all: after a batch that left some due they sit out one turn.
    enum class pause { none, begins, ends };

    const target_window m_target;
    pause m_pause = pause::none;
};

window window_place::open(window_procedure procedure, const wchar* title) {
    const std::string message_name = source_name(title, " messages");
    const std::string tick_name = source_name(title, " timers");
    GMainContext* const context = g_main_context_get_thread_default();
    const std::lock_guard lock(m_mutex);
    const std::uint32_t generation = m_generation.load(std::memory_order_relaxed) + 1;
    const window value = to_window({m_index, generation});
    const target_window target{*this, generation, value, procedure};
    contents made;
    made.owner = current_thread_id();
    made.messages = context_source::attach(std::make_unique<message_deliverer>(target), k_message_priority,
                                           message_name.c_str(), context);
    made.ticks = context_source::attach(std::make_unique<tick_deliverer>(target), k_tick_priority,
                                        tick_name.c_str(), context);
    m_contents = std::move(made);
    m_generation.store(generation, std::memory_order_release);
    return value;
}

std::uint32_t window_place::close(std::uint32_t generation) {
    contents taken;
    {
        const std::lock_guard lock(m_mutex);
        if (!is_open(generation)) {
            return k_error_no_window;
        }
        if (m_contents.owner != current_thread_id()) {
            return k_error_not_the_owner;
        }
        taken = take_out();
    }
    m_owner.is_empty(*this);
    return 0;
}

void window_place::close_at_exit() {
    contents taken;
    {
        const std::lock_guard lock(m_mutex);
        if (m_generation.load(std::memory_order_relaxed) % 2 == 0) {
            return;
        }
        taken = take_out();
    }
    m_owner.is_empty(*this);
}

void window_place::lose_context(std::uint32_t generation) noexcept {
    contents taken;
    {
        const std::lock_guard lock(m_mutex);
        if (!is_open(generation)) {
            return;  // by far the usual case: the window's end is what destroyed the source
        }
        taken = take_out();
    }
    taken.messages.leave_to_context();
    taken.ticks.leave_to_context();
    m_owner.is_empty(*this);
}

window_place::contents window_place::take_out() {
    m_generation.store(m_generation.load(std::memory_order_relaxed) + 1, std::memory_order_release);
    return std::exchange(m_contents, {});
}

std::uint32_t window_place::set_user_data(std::uint32_t generation, void* data) {
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return k_error_no_window;
    }
    m_contents.user_data = data;
    return 0;
}

std::uint32_t window_place::user_data(std::uint32_t generation, void*& data) {
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return k_error_no_window;
    }
    data = m_contents.user_data;
    return 0;
}

std::uint32_t window_place::post(std::uint32_t generation, const posted_message& message) {
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return k_error_no_window;
    }
    if (m_contents.posted.size() >= k_max_waiting) {
        return k_error_queue_full;
    }
    if (m_contents.posted.empty()) {
        g_queues_filled.fetch_add(1, std::memory_order_relaxed);
    }
    m_contents.posted.push(message);
    m_contents.has_own_posts = m_contents.has_own_posts || m_contents.owner == current_thread_id();
    if (!m_contents.is_looked_after) {
        m_contents.is_looked_after = true;
        m_contents.messages.wake();
    }
    return 0;
}

std::uint32_t window_place::set_timer(std::uint32_t generation, std::uintptr_t id,
                                      std::uint32_t milliseconds) {
    const std::int64_t period =
        std::int64_t{1000} * std::clamp(milliseconds, k_timer_minimum_ms, k_timer_maximum_ms);
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return k_error_no_window;
    }
    if (!m_contents.timers.set(id, period, g_get_monotonic_time())) {
        return k_error_too_many_objects;
    }
    set_alarm();
    return 0;
}

std::uint32_t window_place::kill_timer(std::uint32_t generation, std::uintptr_t id) {
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return k_error_no_window;
    }
    if (!m_contents.timers.kill(id)) {
        return k_error_unknown_timer;
    }
    set_alarm();
    return 0;
}

void window_place::set_alarm() {
    m_contents.ticks.wake_at(m_contents.timers.next_due().value_or(k_never));
}

bool window_place::has_posted(std::uint32_t generation) {
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return false;
    }
    m_contents.is_looked_after = !m_contents.posted.empty();
    return m_contents.is_looked_after;
}

void window_place::take_posted(std::uint32_t generation, message_queue& batch) {
    const std::lock_guard lock(m_mutex);
    if (is_open(generation)) {
        batch.swap(m_contents.posted);
        m_contents.has_own_posts = false;
    }
}

void window_place::take_own_posts(std::uint32_t generation, message_queue& batch) {
    const std::lock_guard lock(m_mutex);
    if (is_open(generation) && std::exchange(m_contents.has_own_posts, false)) {
        batch.swap(m_contents.posted);
    }
}

std::optional<std::uintptr_t> window_place::take_tick(std::uint32_t generation, std::int64_t now) {
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return std::nullopt;
    }
    const auto id = m_contents.timers.take_due(now);
    // Before the procedure runs: it may run a loop in which the other timers, and this one, tick on.
    set_alarm();
    return id;
}

bool window_place::pause_ticks(std::uint32_t generation) {
    const std::lock_guard lock(m_mutex);
    if (!is_open(generation)) {
        return false;
    }
    const auto due = m_contents.timers.next_due();
    const bool left_some = due && *due <= g_get_monotonic_time();
    if (left_some) {
        m_contents.ticks.wake_at(k_never);
    }
    return left_some;
}

void window_place::resume_ticks(std::uint32_t generation) {
    const std::lock_guard lock(m_mutex);
    if (is_open(generation)) {
        set_alarm();
    }
}

}  // namespace kro::tessel::os
