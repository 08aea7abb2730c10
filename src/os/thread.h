// Thread ids, the tick count, events and the per-thread last error.
#pragma once

#include <cstdint>
#include <memory>

namespace kro::tessel::os {

/// The calling thread's id: 32 bits, never 0; may be reused once the thread has ended.
std::uint32_t current_thread_id() noexcept;

/// The pseudo-handle that denotes whichever thread uses it: -2.
void* current_thread_handle() noexcept;

/// Whether this process is a copy that another one made of itself (a fork; never where there is none). Only
/// the thread that made it runs in it, and locks that others held stay held: nothing of ours may wait for
/// them.
bool process_was_forked() noexcept;

/// Milliseconds since the system started, modulo 2^32 (it wraps after 49.7 days; unsigned differences
/// stay right across the wrap). Never goes back.
std::uint32_t tick_count() noexcept;

/// The calling thread's last error; 0 in a new thread.
void set_last_error(std::uint32_t error) noexcept;
std::uint32_t last_error() noexcept;

inline constexpr std::uint32_t k_wait_signalled = 0;
inline constexpr std::uint32_t k_wait_timeout = 0x102;
inline constexpr std::uint32_t k_infinite = 0xFFFFFFFFU;

/// An event that stays signalled through any number of waits until it is reset. Whoever waits shares
/// ownership, so that nobody can free it under a waiting thread.
class manual_reset_event {
public:
    virtual ~manual_reset_event() = default;
    virtual void set() = 0;
    virtual void reset() = 0;
    /// Waits at most `milliseconds` (0 only tests, k_infinite has no limit).
    /// Returns k_wait_signalled or k_wait_timeout.
    virtual std::uint32_t wait(std::uint32_t milliseconds) = 0;
};

/// Makes an event that isn't signalled.
std::shared_ptr<manual_reset_event> make_manual_reset_event();

}  // namespace kro::tessel::os
