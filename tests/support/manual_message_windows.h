// Message windows whose loop is turned by hand and whose clock stands still until it is told to move.
#pragma once

#include "os/message_window.h"

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <vector>

namespace tessel_test {

/// A message_window_service for tests. While it lives it is the one in force, and every window belongs to
/// one queue: what was posted first is delivered first, across windows, and due timers come after all of
/// it. Nothing is delivered but by `deliver_one`, `deliver_all`, `advance` and the loop functions.
///
/// One thread at a time may use it. A window belongs to the thread that made it only as far as `destroy`
/// looks.
class manual_message_windows final : public kro::tessel::os::message_window_service {
public:
    using window = kro::tessel::os::window;

    struct message {
        window target;
        std::uint32_t number;
        std::uintptr_t wparam;
        std::intptr_t lparam;
    };
    struct window_description {
        window handle;
        kro::tessel::wide_string class_name;
        kro::tessel::wide_string title;
    };

    manual_message_windows();
    ~manual_message_windows() override;
    manual_message_windows(const manual_message_windows&) = delete;
    manual_message_windows& operator=(const manual_message_windows&) = delete;

    // Turning the loop.

    /// Delivers the oldest posted message, else the tick that is due longest. False when nothing waits.
    bool deliver_one();
    /// Delivers until nothing waits, what is posted meanwhile included. Returns how many there were; throws
    /// std::runtime_error when there is no end to it (100,000 deliveries).
    std::size_t deliver_all();
    /// Moves the clock and delivers everything that waits at each moment at which a timer becomes due, and at
    /// the end. Returns how many messages and ticks were delivered.
    std::size_t advance(std::uint32_t milliseconds);
    /// Moves the clock only: timers become due, once each, and wait.
    void skip(std::uint32_t milliseconds) { m_now += milliseconds; }

    // Looking and meddling.

    const std::deque<message>& waiting() const { return m_waiting; }  ///< not delivered yet, oldest first
    std::vector<window_description> windows() const;                  ///< in the order of their creation
    std::uint64_t now() const { return m_now; }                       ///< milliseconds since the construction
    /// So many of the next windows and timers aren't made, with k_error_too_many_objects.
    int refused_windows = 0;
    int refused_timers = 0;
    /// So many of the next messages find their queue full.
    int refused_posts = 0;
    /// Ends a window as its thread's end would, whoever calls.
    bool vanish(window target);

    // The service. `run_until` moves the clock to the next due timer, or to its end, when nothing waits;
    // `run` throws std::runtime_error when nothing can ever come any more. `pump` is deliver_all.
    bool register_class(const wchar* name, kro::tessel::os::window_procedure procedure) override;
    window create(const wchar* class_name, const wchar* title) override;
    bool is_window(window target) override;
    bool destroy(window target) override;
    void set_user_data(window target, void* data) override;
    void* user_data(window target) override;
    bool post(window target, std::uint32_t number, std::uintptr_t wparam, std::intptr_t lparam) override;
    std::uintptr_t set_timer(window target, std::uintptr_t id, std::uint32_t milliseconds) override;
    bool kill_timer(window target, std::uintptr_t id) override;
    window dialog_parent() override;
    void run() override;
    bool run_until(const std::function<bool()>& done, std::uint32_t milliseconds) override;
    void quit() override { m_quit = true; }
    bool pump() override { return deliver_all() != 0; }

private:
    struct timer {
        std::uint32_t period;
        std::uint64_t due;
        std::uint64_t order;
    };
    struct window_state {
        window_description description;
        kro::tessel::os::window_procedure procedure;
        std::uint32_t owner;
        void* user_data;
        std::map<std::uintptr_t, timer> timers;
    };
    window_state* find(window target);
    std::optional<message> take_tick();
    std::optional<std::uint64_t> next_due() const;
    static bool refuses(int& left);

    std::map<kro::tessel::wide_string, kro::tessel::os::window_procedure> m_classes;
    std::map<std::uintptr_t, window_state> m_windows;
    std::deque<message> m_waiting;
    std::uintptr_t m_next_window = 0x10000;
    std::uint64_t m_now = 0;
    std::uint64_t m_next_order = 0;
    bool m_quit = false;
    kro::tessel::os::message_window_service* m_before = nullptr;
};

}  // namespace tessel_test
