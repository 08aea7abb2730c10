// The timers of one window: which is due next, and when.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <set>
#include <unordered_map>

namespace kro::tessel::os {

/// Periodic timers by id, in the order in which they fall due; those due at the same moment in the order in
/// which they were set. Times are microseconds of one monotonic clock. Needs a lock around it.
class window_timers {
public:
    /// More are refused; far beyond what a host has running, and still little memory.
    static constexpr std::size_t k_max_timers = 65'536;

    /// Starts the timer, or starts it over with the new period. False: there are too many.
    bool set(std::uintptr_t id, std::int64_t period, std::int64_t now);
    /// False: no such timer.
    bool kill(std::uintptr_t id);
    /// Takes the tick of the timer that is due longest and sets its next one a period from now.
    std::optional<std::uintptr_t> take_due(std::int64_t now);
    std::optional<std::int64_t> next_due() const;
    void clear();

private:
    struct entry {
        std::int64_t due;
        std::uint64_t order;
        std::uintptr_t id;

        bool operator<(const entry& other) const noexcept {
            return due != other.due ? due < other.due : order < other.order;
        }
    };
    using schedule = std::set<entry>;
    struct timer {
        std::int64_t period;
        schedule::iterator place;
    };

    void start_over(timer& one, std::uintptr_t id, std::int64_t now);

    std::unordered_map<std::uintptr_t, timer> m_timers;
    schedule m_schedule;
    std::uint64_t m_next_order = 0;
};

}  // namespace kro::tessel::os
