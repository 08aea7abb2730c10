#include "tessel/http/transfer_watch.h"

#include "http/cancel_state.h"

#include <algorithm>

namespace kro::tessel::http {

bool cancel_state::enter(os::inet_handle request) {
    const std::lock_guard lock(m_mutex);
    if (is_cancelled()) {
        return false;
    }
    m_requests.push_back(request);
    return true;
}

bool cancel_state::leave(os::inet_handle request) noexcept {
    const std::lock_guard lock(m_mutex);
    const auto entry = std::find(m_requests.begin(), m_requests.end(), request);
    if (entry == m_requests.end()) {
        return false;
    }
    m_requests.erase(entry);
    return true;
}

// A second call doesn't wait for the first: it may come from a callback that a close waits for.
void cancel_state::cancel() {
    if (m_cancelled.exchange(true)) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    for (const os::inet_handle request : m_requests) {
        os::inet().close(request);
    }
    m_requests.clear();
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
