#include "stall_watch.h"

#include <utility>

namespace command {

stall_watch::stall_watch(std::chrono::seconds limit, std::function<void()> on_stall)
    : m_limit(limit), m_on_stall(std::move(on_stall)), m_thread([this] { watch(); }) {}

stall_watch::~stall_watch() {
    {
        const std::lock_guard lock(m_mutex);
        m_ended = true;
    }
    m_ended_or_not.notify_one();
    m_thread.join();
}

void stall_watch::moved() {
    const std::lock_guard lock(m_mutex);
    m_moved = clock::now();
}

bool stall_watch::has_stalled() const {
    const std::lock_guard lock(m_mutex);
    return m_stalled;
}

void stall_watch::watch() {
    std::unique_lock lock(m_mutex);
    while (!m_ended && clock::now() < m_moved + m_limit) {
        const auto end = m_moved + m_limit;
        m_ended_or_not.wait_until(lock, end);
    }
    m_stalled = !m_ended;
    lock.unlock();
    if (m_stalled) {
        m_on_stall();
    }
}

}  // namespace command
