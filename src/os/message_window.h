// Hidden windows with a procedure, messages posted to them from any thread, and window timers.
#pragma once

#include <tessel/base/types.h>

#include <cstdint>
#include <functional>

namespace kro::tessel::os {

/// An opaque window handle; null for none. Never dereferenced, may be reused after the window is gone.
using window = void*;

/// Called for each message and tick of a window, on its thread. Must not throw: a loop of the host's is
/// what it would throw into.
using window_procedure = std::intptr_t (*)(window target, std::uint32_t message, std::uintptr_t wparam,
                                           std::intptr_t lparam);

inline constexpr std::uint32_t k_message_timer = 0x113;
inline constexpr std::uint32_t k_message_user = 0x400;
inline constexpr std::uint32_t k_timer_minimum_ms = 10;
inline constexpr std::uint32_t k_timer_maximum_ms = 0x7FFFFFFF;

// Errors.
inline constexpr std::uint32_t k_error_not_the_owner = 5;
inline constexpr std::uint32_t k_error_unknown_timer = 87;
inline constexpr std::uint32_t k_error_too_many_objects = 1158;
inline constexpr std::uint32_t k_error_no_window = 1400;
inline constexpr std::uint32_t k_error_no_window_class = 1407;
inline constexpr std::uint32_t k_error_window_class_exists = 1410;
inline constexpr std::uint32_t k_error_queue_full = 1816;

/// Windows, messages, timers and the loop that delivers them, in the published shape of the system's
/// window functions. A window belongs to the thread that created it: its procedure runs there, inside
/// the loop that this thread already runs (on Linux any loop that turns the GLib context which was the
/// thread's default at creation), and only the loop delivers, never a call of this class. A window ends with
/// its context, as one ends with its thread on Windows.
///
/// Failing calls set the thread's last error to the number given; others leave it alone.
class message_window_service {
public:
    virtual ~message_window_service() = default;

    /// Registers a class of windows. False: 1410 when the name is taken.
    virtual bool register_class(const wchar* name, window_procedure procedure) = 0;

    /// Creates a hidden window of a registered class, owned by the calling thread.
    /// Null: 1407 when there is no such class, 1158 when there are too many windows.
    virtual window create(const wchar* class_name, const wchar* title) = 0;

    /// Any thread; false for null, destroyed and foreign values.
    virtual bool is_window(window target) = 0;

    /// Destroys a window: its waiting messages are dropped, its timers end; nothing is delivered to it any
    /// more, whatever other threads post meanwhile. Its own procedure may do it. False: 1400 no window, 5
    /// from a thread that doesn't own it.
    virtual bool destroy(window target) = 0;

    /// A value of the owner's, null at first. Reading one of no window gives null (1400).
    virtual void set_user_data(window target, void* data) = 0;
    virtual void* user_data(window target) = 0;

    /// Queues a message; any thread, order per window kept. False: 1400 no window, 1816 the queue is full.
    virtual bool post(window target, std::uint32_t message, std::uintptr_t wparam, std::intptr_t lparam) = 0;

    /// Starts a periodic timer, or restarts the one with the same id, or changes its period; any thread.
    /// Each period puts k_message_timer with the id in wparam and 0 in lparam to the window, never early,
    /// at most one being due at a time (missed ones are lost, the next tick comes one period after a
    /// delivery), after all posted messages. Ticks go on inside a loop that a tick's procedure runs. Periods
    /// are clamped to [k_timer_minimum_ms, k_timer_maximum_ms].
    /// Returns: the id (1 for id 0), or 0 with 1400 when there is no such window, null included, or 1158
    /// when it has too many timers.
    virtual std::uintptr_t set_timer(window target, std::uintptr_t id, std::uint32_t milliseconds) = 0;

    /// Ends a timer; no message of it is delivered afterwards. False: 87 unknown id, 1400 no window.
    virtual bool kill_timer(window target, std::uintptr_t id) = 0;

    /// The window that a dialogue of the calling thread belongs over: the active one, else the desktop's.
    /// Never null.
    virtual window dialog_parent() = 0;

    // The loop of the calling thread: see kro::tessel::message_loop. A loop that ends, ends behind the
    // message that ended it; what waits behind that one stays for the next loop.
    virtual void run() = 0;
    /// milliseconds: k_infinite (os/thread.h) for no limit.
    virtual bool run_until(const std::function<bool()>& done, std::uint32_t milliseconds) = 0;
    virtual void quit() = 0;
    virtual bool pump() = 0;
};

message_window_service& message_windows();  ///< the one in force; the system's lives until unload
/// Puts another in force, null the system's again. Returns the one that was, null for the system's. Only
/// while nothing runs.
message_window_service* replace_message_windows_for_test(message_window_service* service);

}  // namespace kro::tessel::os
