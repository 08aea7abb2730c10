#include "support/manual_message_windows.h"

#include "os/thread.h"

#include <algorithm>
#include <stdexcept>
#include <tuple>

namespace tessel_test {

namespace os = kro::tessel::os;

namespace {

constexpr std::size_t k_max_deliveries = 100'000;

kro::tessel::wide_string text_of(const wchar* text) {
    return text == nullptr ? kro::tessel::wide_string() : kro::tessel::wide_string(text);
}

std::uintptr_t number_of(os::window target) {
    return reinterpret_cast<std::uintptr_t>(target);
}

}  // namespace

bool manual_message_windows::refuses(int& left) {
    if (left == 0) {
        return false;
    }
    --left;
    os::set_last_error(os::k_error_too_many_objects);
    return true;
}

manual_message_windows::manual_message_windows() : m_before(os::replace_message_windows_for_test(this)) {}

manual_message_windows::~manual_message_windows() {
    os::replace_message_windows_for_test(m_before);
}

bool manual_message_windows::deliver_one() {
    const std::optional<message> next = m_waiting.empty() ? take_tick() : m_waiting.front();
    if (!next) {
        return false;
    }
    if (!m_waiting.empty()) {
        m_waiting.pop_front();
    }
    m_windows.at(number_of(next->target)).procedure(next->target, next->number, next->wparam, next->lparam);
    return true;
}

std::size_t manual_message_windows::deliver_all() {
    std::size_t delivered = 0;
    while (deliver_one()) {
        if (++delivered == k_max_deliveries) {
            throw std::runtime_error("the messages come without end");
        }
    }
    return delivered;
}

std::size_t manual_message_windows::advance(std::uint32_t milliseconds) {
    const std::uint64_t end = now() + milliseconds;
    std::size_t delivered = deliver_all();
    for (auto due = next_due(); due && *due <= end; due = next_due()) {
        m_now = std::max(m_now, *due);
        delivered += deliver_all();
    }
    m_now = std::max(m_now, end);
    return delivered;
}

std::vector<manual_message_windows::window_description> manual_message_windows::windows() const {
    std::vector<window_description> all;
    for (const auto& [number, state] : m_windows) {
        all.push_back(state.description);
    }
    return all;
}

bool manual_message_windows::register_class(const wchar* name, os::window_procedure procedure) {
    if (!m_classes.emplace(text_of(name), procedure).second) {
        os::set_last_error(os::k_error_window_class_exists);
        return false;
    }
    return true;
}

os::window manual_message_windows::create(const wchar* class_name, const wchar* title) {
    if (refuses(refused_windows)) {
        return nullptr;
    }
    const auto found = m_classes.find(text_of(class_name));
    if (found == m_classes.end()) {
        os::set_last_error(os::k_error_no_window_class);
        return nullptr;
    }
    const std::uintptr_t number = m_next_window;
    m_next_window += 2;
    const auto handle = reinterpret_cast<window>(number);  // NOLINT(performance-no-int-to-ptr)
    m_windows.emplace(number, window_state{{handle, text_of(class_name), text_of(title)},
                                           found->second,
                                           os::current_thread_id(),
                                           nullptr,
                                           {}});
    return handle;
}

bool manual_message_windows::is_window(window target) {
    return m_windows.count(number_of(target)) != 0;
}

bool manual_message_windows::destroy(window target) {
    const window_state* const state = find(target);
    if (state == nullptr) {
        return false;
    }
    if (state->owner != os::current_thread_id()) {
        os::set_last_error(os::k_error_not_the_owner);
        return false;
    }
    return vanish(target);
}

void manual_message_windows::set_user_data(window target, void* data) {
    if (window_state* const state = find(target)) {
        state->user_data = data;
    }
}

void* manual_message_windows::user_data(window target) {
    const window_state* const state = find(target);
    return state == nullptr ? nullptr : state->user_data;
}

bool manual_message_windows::post(window target, std::uint32_t number, std::uintptr_t wparam,
                                  std::intptr_t lparam) {
    if (find(target) == nullptr || refuses(refused_posts)) {
        return false;
    }
    m_waiting.push_back({target, number, wparam, lparam});
    return true;
}

std::uintptr_t manual_message_windows::set_timer(window target, std::uintptr_t id,
                                                 std::uint32_t milliseconds) {
    window_state* const state = find(target);
    if (state == nullptr || refuses(refused_timers)) {
        return 0;
    }
    const std::uint32_t period = std::clamp(milliseconds, os::k_timer_minimum_ms, os::k_timer_maximum_ms);
    state->timers[id] = {period, m_now + period, m_next_order++};
    return id == 0 ? 1 : id;
}

bool manual_message_windows::kill_timer(window target, std::uintptr_t id) {
    window_state* const state = find(target);
    if (state == nullptr) {
        return false;
    }
    if (state->timers.erase(id) == 0) {
        os::set_last_error(os::k_error_unknown_timer);
        return false;
    }
    return true;
}

os::window manual_message_windows::dialog_parent() {
    return reinterpret_cast<window>(std::uintptr_t{0x10});  // NOLINT(performance-no-int-to-ptr)
}

void manual_message_windows::run() {
    while (!m_quit) {
        if (deliver_one()) {
            continue;
        }
        const auto due = next_due();
        if (!due) {
            throw std::runtime_error("a loop that nothing can end");
        }
        m_now = std::max(m_now, *due);
    }
    m_quit = false;
}

bool manual_message_windows::run_until(const std::function<bool()>& done, std::uint32_t milliseconds) {
    const std::uint64_t end = milliseconds == os::k_infinite ? UINT64_MAX : now() + milliseconds;
    while (!done()) {
        if (deliver_one()) {
            continue;
        }
        if (now() >= end) {
            return false;
        }
        const std::uint64_t next = std::min(end, next_due().value_or(UINT64_MAX));
        if (next == UINT64_MAX) {
            throw std::runtime_error("a loop that nothing can end");
        }
        m_now = std::max(m_now, next);
    }
    return true;
}

manual_message_windows::window_state* manual_message_windows::find(window target) {
    const auto found = m_windows.find(number_of(target));
    if (found == m_windows.end()) {
        os::set_last_error(os::k_error_no_window);
        return nullptr;
    }
    return &found->second;
}

bool manual_message_windows::vanish(window target) {
    m_waiting.erase(std::remove_if(m_waiting.begin(), m_waiting.end(),
                                   [target](const message& one) { return one.target == target; }),
                    m_waiting.end());
    return m_windows.erase(number_of(target)) != 0;
}

std::optional<manual_message_windows::message> manual_message_windows::take_tick() {
    timer* chosen = nullptr;
    message tick{nullptr, os::k_message_timer, 0, 0};
    for (auto& [number, state] : m_windows) {
        for (auto& [id, one] : state.timers) {
            const bool earlier =
                chosen == nullptr || std::tie(one.due, one.order) < std::tie(chosen->due, chosen->order);
            if (one.due <= m_now && earlier) {
                chosen = &one;
                tick.target = state.description.handle;
                tick.wparam = id;
            }
        }
    }
    if (chosen == nullptr) {
        return std::nullopt;
    }
    chosen->due = m_now + chosen->period;
    chosen->order = m_next_order++;
    return tick;
}

std::optional<std::uint64_t> manual_message_windows::next_due() const {
    std::optional<std::uint64_t> earliest;
    for (const auto& [number, state] : m_windows) {
        for (const auto& [id, one] : state.timers) {
            earliest = std::min(earliest.value_or(UINT64_MAX), one.due);
        }
    }
    return earliest;
}

}  // namespace tessel_test
