#include "os/linux/message_window_timers.h"

#include <utility>

namespace kro::tessel::os {

bool window_timers::set(std::uintptr_t id, std::int64_t period, std::int64_t now) {
    const auto known = m_timers.find(id);
    if (known != m_timers.end()) {
        known->second.period = period;
        start_over(known->second, id, now);
        return true;
    }
    if (m_timers.size() >= k_max_timers) {
        return false;
    }
    const auto place = m_schedule.insert({now + period, m_next_order++, id}).first;
    try {
        m_timers.emplace(id, timer{period, place});
    } catch (...) {
        m_schedule.erase(place);
        throw;
    }
    return true;
}

bool window_timers::kill(std::uintptr_t id) {
    const auto known = m_timers.find(id);
    if (known == m_timers.end()) {
        return false;
    }
    m_schedule.erase(known->second.place);
    m_timers.erase(known);
    return true;
}

std::optional<std::uintptr_t> window_timers::take_due(std::int64_t now) {
    if (m_schedule.empty() || m_schedule.begin()->due > now) {
        return std::nullopt;
    }
    const std::uintptr_t id = m_schedule.begin()->id;
    start_over(m_timers.at(id), id, now);
    return id;
}

std::optional<std::int64_t> window_timers::next_due() const {
    return m_schedule.empty() ? std::nullopt : std::optional(m_schedule.begin()->due);
}

void window_timers::clear() {
    m_timers.clear();
    m_schedule.clear();
}

void window_timers::start_over(timer& one, std::uintptr_t id, std::int64_t now) {
    // The node moves to its new place: a tick allocates nothing.
    auto node = m_schedule.extract(one.place);
    node.value() = {now + one.period, m_next_order++, id};
    one.place = m_schedule.insert(std::move(node)).position;
}

}  // namespace kro::tessel::os
