#include "http/live_requests.h"

#include "http/buffer_chain.h"

#include <utility>

namespace kro::tessel::http {

request_slot::~request_slot() {
    if (owns_context) {
        if (context->request == closed) {
            context->request = nullptr;
        }
        delete context;  // closes the request: nobody reads into next_chunk any more
    }
    free_chain(next_chunk);
}

bool live_requests::add(const request_ref& slot) {
    const std::lock_guard lock(m_mutex);
    if (slot->live || slot->ended) {
        return slot->live;
    }
    const auto place = m_order.insert(m_order.end(), slot);
    try {
        m_index.emplace(slot->context, place);
    } catch (...) {
        m_order.erase(place);
        throw;
    }
    slot->live = true;
    slot->owns_context = true;
    return true;
}

bool live_requests::has_ended(const request_slot& slot) const {
    const std::lock_guard lock(m_mutex);
    return slot.ended;
}

bool live_requests::contains(const session_context* context) const {
    const std::lock_guard lock(m_mutex);
    return m_index.find(context) != m_index.end();
}

request_ref live_requests::find(const session_context* context) const {
    const std::lock_guard lock(m_mutex);
    const auto found = m_index.find(context);
    return found == m_index.end() ? nullptr : *found->second;
}

request_ref live_requests::take(const session_context* context) {
    const std::lock_guard lock(m_mutex);
    const auto found = m_index.find(context);
    if (found == m_index.end()) {
        return nullptr;
    }
    request_ref slot = std::move(*found->second);
    m_order.erase(found->second);
    m_index.erase(found);
    slot->live = false;
    slot->ended = true;
    slot->step_due = false;
    return slot;
}

bool live_requests::take_step(request_slot& slot) {
    const std::lock_guard lock(m_mutex);
    return std::exchange(slot.step_due, false);
}

live_requests::begun live_requests::begin_start(request_slot& slot) {
    const std::lock_guard lock(m_mutex);
    slot.step_due = false;
    return {std::exchange(slot.request, nullptr), ++slot.start};
}

bool live_requests::is_current(const request_slot& slot, std::uint32_t start) const {
    const std::lock_guard lock(m_mutex);
    return slot.live && slot.start == start;
}

bool live_requests::is_live(const request_slot& slot) const {
    const std::lock_guard lock(m_mutex);
    return slot.live;
}

void live_requests::abandon_all() {
    const std::lock_guard lock(m_mutex);
    for (const request_ref& slot : m_order) {
        slot->live = false;
        slot->step_due = false;
    }
    m_index.clear();
    m_abandoned.splice(m_abandoned.end(), m_order);
}

}  // namespace kro::tessel::http
