#include "tessel/http/transfer_watch.h"

#include "http/cancel_state.h"

#include <algorithm>

namespace kro::tessel::http {

bool cancel_state::remove(handles& from, os::inet_handle request) noexcept {
    const auto entry = std::find(from.begin(), from.end(), request);
    if (entry == from.end()) {
        return false;
    }
    from.erase(entry);
    return true;
}

bool cancel_state::enter(os::inet_handle request) {
    const std::lock_guard lock(m_mutex);
    if (is_cancelled()) {
        return false;
    }
    m_closing.reserve(m_closing.size() + m_requests.size() + 1);  // so that cancelling needs no memory
    m_requests.push_back(request);
    return true;
}

bool cancel_state::leave(os::inet_handle request) noexcept {
    std::unique_lock lock(m_mutex);
    m_closed.wait(lock,
                  [&] { return std::find(m_closing.begin(), m_closing.end(), request) == m_closing.end(); });
    return remove(m_requests, request);
}

bool cancel_state::has_closed(os::inet_handle request) noexcept {
    const std::lock_guard lock(m_mutex);
    return std::find(m_requests.begin(), m_requests.end(), request) == m_requests.end();
}

bool cancel_state::take_back(os::inet_handle request) noexcept {
    const std::lock_guard lock(m_mutex);
    return remove(m_requests, request);
}

// Without the lock while it closes: that waits for callbacks, which may take requests back or cancel again.
void cancel_state::cancel() {
    m_cancelled.store(true);
    std::unique_lock lock(m_mutex);
    while (!m_requests.empty()) {
        const os::inet_handle request = m_requests.back();
        m_requests.pop_back();
        m_closing.push_back(request);
        lock.unlock();
        os::inet().close(request);
        lock.lock();
        remove(m_closing, request);
        m_closed.notify_all();
    }
}

cancel_flag::cancel_flag() : m_state(std::make_shared<cancel_state>()) {}

void cancel_flag::cancel() const {
    m_state->cancel();
}

bool cancel_flag::is_cancelled() const {
    return m_state->is_cancelled();
}

void cancel_flag::reset() const {
    m_state->reset();
}

}  // namespace kro::tessel::http
