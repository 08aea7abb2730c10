// One place in the table of windows: a window's queue, timers and sources while there is a window in it.
#pragma once

#include "os/linux/message_window_queue.h"
#include "os/linux/message_window_source.h"
#include "os/linux/message_window_timers.h"
#include "os/message_window.h"

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <optional>

namespace kro::tessel::os {

/// What a window's value says: which place, and which of the windows that this place has had.
struct window_id {
    std::size_t place;
    std::uint32_t generation;
};
window to_window(const window_id& id);
/// Nothing for a value that never was a window.
std::optional<window_id> to_window_id(window target);
/// The desktop: a dialogue's parent, not a window that could be posted to.
window desktop_window();

class window_place;

class window_place_owner {
public:
    /// The place may be given to another window. Any thread, outside the place's lock.
    virtual void is_empty(window_place& place) noexcept = 0;

protected:
    ~window_place_owner() = default;
};

/// Places are used again and never freed, so whoever holds a stale window can still ask its place: each
/// window has a generation of its own, an odd number, and every call for another one fails with 1400.
///
/// Calls return an error number, 0 for success, and may come from any thread.
// NOLINTNEXTLINE(clang-analyzer-optin.performance.Padding): the padding is wanted, see the members
class window_place {
public:
    /// Messages that one window can have waiting: 24 MB. A window so far behind isn't being served.
    static constexpr std::size_t k_max_waiting = 1'000'000;

    window_place(window_place_owner& owner, std::size_t index) : m_owner(owner), m_index(index) {}
    window_place(const window_place&) = delete;
    window_place& operator=(const window_place&) = delete;

    /// Puts a window of the calling thread into the empty place; its sources go to the context that is this
    /// thread's default.
    window open(window_procedure procedure, const wchar* title);
    /// Takes the window out; 5 for a thread that doesn't own it. A window whose context is freed is taken out
    /// too: nobody could deliver to it any more.
    std::uint32_t close(std::uint32_t generation);
    /// Takes out whatever window is there, at the end of the process.
    void close_at_exit();

    bool is_open(std::uint32_t generation) const noexcept {
        return m_generation.load(std::memory_order_acquire) == generation && generation % 2 == 1;
    }
    std::uint32_t set_user_data(std::uint32_t generation, void* data);
    std::uint32_t user_data(std::uint32_t generation, void*& data);
    std::uint32_t post(std::uint32_t generation, const posted_message& message);
    std::uint32_t set_timer(std::uint32_t generation, std::uintptr_t id, std::uint32_t milliseconds);
    std::uint32_t kill_timer(std::uint32_t generation, std::uintptr_t id);

private:
    struct contents {
        std::uint32_t owner = 0;
        void* user_data = nullptr;
        message_queue posted;
        bool has_own_posts = false;    // the owner put some of `posted` there
        bool is_looked_after = false;  // the owner looks at `posted` before its loop sleeps again
        window_timers timers;
        context_source messages;
        context_source ticks;  // its wake-up time is the next tick's
    };
    class message_deliverer;
    class tick_deliverer;

    contents take_out();
    void set_alarm();
    // For the deliverers.
    void lose_context(std::uint32_t generation) noexcept;
    bool has_posted(std::uint32_t generation);
    void take_posted(std::uint32_t generation, message_queue& batch);
    void take_own_posts(std::uint32_t generation, message_queue& batch);
    std::optional<std::uintptr_t> take_tick(std::uint32_t generation, std::int64_t now);
    bool pause_ticks(std::uint32_t generation);
    void resume_ticks(std::uint32_t generation);

    window_place_owner& m_owner;
    const std::size_t m_index;
    std::atomic<std::uint32_t> m_generation{0};
    // A cache line further: the owner reads the generation after each delivery, senders write what follows.
    alignas(64) std::mutex m_mutex;  // guards m_contents and the changes of m_generation
    contents m_contents;
};

}  // namespace kro::tessel::os
