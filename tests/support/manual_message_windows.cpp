#include "support/manual_message_windows.h"

#include "os/thread.h"

#include <algorithm>
#include <stdexcept>

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

bool manual_message_windows::refusal::refuses() {
    if (left == 0) {
        return false;
    }
    if (left != SIZE_MAX) {
        --left;
    }
    os::set_last_error(error);
    return true;
}

manual_message_windows::manual_message_windows() : m_before(os::replace_message_windows_for_test(this)) {}

manual_message_windows::~manual_message_windows() {
    os::replace_message_windows_for_test(m_before);
}

void manual_message_windows::call(const delivery& next) {
    next.procedure(next.what.target, next.what.number, next.what.wparam, next.what.lparam);
}

bool manual_message_windows::deliver(std::size_t index) {
    const auto next = take_message(index);
    if (next) {
        call(*next);
    }
    return next.has_value();
}

bool manual_message_windows::deliver_one() {
    if (deliver(0)) {
        return true;
    }
    const auto tick = take_tick();
    if (tick) {
        call(*tick);
    }
    return tick.has_value();
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
    while (true) {
        {
            const lock guard(m_mutex);
            const auto due = next_due();
            if (!due || *due > end) {
                m_now = std::max(m_now, end);
                return delivered;
            }
            m_now = std::max(m_now, *due);
        }
        delivered += deliver_all();
    }
}

void manual_message_windows::skip(std::uint32_t milliseconds) {
    const lock guard(m_mutex);
    m_now += milliseconds;
}

std::vector<manual_message_windows::message> manual_message_windows::waiting() const {
    const lock guard(m_mutex);
    return {m_waiting.begin(), m_waiting.end()};
}

std::vector<manual_message_windows::window_description> manual_message_windows::windows() const {
    const lock guard(m_mutex);
    std::vector<window_description> all;
    for (const auto& [number, state] : m_windows) {
        all.push_back(state.description);
    }
    return all;
}

std::uint64_t manual_message_windows::now() const {
    const lock guard(m_mutex);
    return m_now;
}

void manual_message_windows::refuse_posts(std::size_t count, std::uint32_t error) {
    const lock guard(m_mutex);
    m_refused_posts = {count, error};
}

void manual_message_windows::refuse_windows(std::size_t count, std::uint32_t error) {
    const lock guard(m_mutex);
    m_refused_windows = {count, error};
}

void manual_message_windows::refuse_timers(std::size_t count, std::uint32_t error) {
    const lock guard(m_mutex);
    m_refused_timers = {count, error};
}

bool manual_message_windows::vanish(window target) {
    const lock guard(m_mutex);
    return remove(target);
}

bool manual_message_windows::register_class(const wchar* name, os::window_procedure procedure) {
    const lock guard(m_mutex);
    if (!m_classes.emplace(text_of(name), procedure).second) {
        os::set_last_error(os::k_error_window_class_exists);
        return false;
    }
    return true;
}

os::window manual_message_windows::create(const wchar* class_name, const wchar* title) {
    const lock guard(m_mutex);
    if (m_refused_windows.refuses()) {
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
    const lock guard(m_mutex);
    return m_windows.count(number_of(target)) != 0;
}

bool manual_message_windows::destroy(window target) {
    const lock guard(m_mutex);
    const window_state* const state = find(target);
    if (state == nullptr) {
        return false;
    }
    if (state->owner != os::current_thread_id()) {
        os::set_last_error(os::k_error_not_the_owner);
        return false;
    }
    return remove(target);
}

void manual_message_windows::set_user_data(window target, void* data) {
    const lock guard(m_mutex);
    if (window_state* const state = find(target)) {
        state->user_data = data;
    }
}

void* manual_message_windows::user_data(window target) {
    const lock guard(m_mutex);
    const window_state* const state = find(target);
    return state == nullptr ? nullptr : state->user_data;
}

bool manual_message_windows::post(window target, std::uint32_t number, std::uintptr_t wparam,
                                  std::intptr_t lparam) {
    const lock guard(m_mutex);
    if (find(target) == nullptr || m_refused_posts.refuses()) {
        return false;
    }
    m_waiting.push_back({target, number, wparam, lparam});
    return true;
}

std::uintptr_t manual_message_windows::set_timer(window target, std::uintptr_t id,
                                                 std::uint32_t milliseconds) {
    const lock guard(m_mutex);
    window_state* const state = find(target);
    if (state == nullptr || m_refused_timers.refuses()) {
        return 0;
    }
    const std::uint32_t period = std::clamp(milliseconds, os::k_timer_minimum_ms, os::k_timer_maximum_ms);
    state->timers[id] = {period, m_now + period, m_next_order++};
    return id == 0 ? 1 : id;
}

bool manual_message_windows::kill_timer(window target, std::uintptr_t id) {
    const lock guard(m_mutex);
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
        const lock guard(m_mutex);
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
        const lock guard(m_mutex);
        const std::uint64_t next = std::min(end, next_due().value_or(UINT64_MAX));
        if (next == UINT64_MAX) {
            throw std::runtime_error("a loop that nothing can end");
        }
        m_now = std::max(m_now, next);
    }
    return true;
}

void manual_message_windows::quit() {
    m_quit = true;
}

bool manual_message_windows::pump() {
    return deliver_all() != 0;
}

manual_message_windows::window_state* manual_message_windows::find(window target) {
    const auto found = m_windows.find(number_of(target));
    if (found == m_windows.end()) {
        os::set_last_error(os::k_error_no_window);
        return nullptr;
    }
    return &found->second;
}

bool manual_message_windows::remove(window target) {
    m_waiting.erase(std::remove_if(m_waiting.begin(), m_waiting.end(),
                                   [target](const message& one) { return one.target == target; }),
                    m_waiting.end());
    return m_windows.erase(number_of(target)) != 0;
}

std::optional<manual_message_windows::delivery> manual_message_windows::take_message(std::size_t index) {
    const lock guard(m_mutex);
    if (index >= m_waiting.size()) {
        return std::nullopt;
    }
    const auto at = m_waiting.begin() + static_cast<std::ptrdiff_t>(index);
    const message next = *at;
    m_waiting.erase(at);
    return delivery{next, m_windows.at(number_of(next.target)).procedure};
}

std::optional<manual_message_windows::delivery> manual_message_windows::take_tick() {
    const lock guard(m_mutex);
    const window_state* chosen_window = nullptr;
    std::uintptr_t chosen_id = 0;
    timer* chosen = nullptr;
    for (auto& [number, state] : m_windows) {
        for (auto& [id, candidate] : state.timers) {
            const bool earlier = chosen == nullptr || candidate.due < chosen->due ||
                                 (candidate.due == chosen->due && candidate.order < chosen->order);
            if (candidate.due <= m_now && earlier) {
                chosen = &candidate;
                chosen_id = id;
                chosen_window = &state;
            }
        }
    }
    if (chosen == nullptr) {
        return std::nullopt;
    }
    chosen->due = m_now + chosen->period;
    chosen->order = m_next_order++;
    return delivery{{chosen_window->description.handle, os::k_message_timer, chosen_id, 0},
                    chosen_window->procedure};
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
