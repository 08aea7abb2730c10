// Notices that nothing moves any more.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

namespace command {

class stall_watch {
public:
    /// on_stall: called once at most, on a thread of its own.
    stall_watch(std::chrono::seconds limit, std::function<void()> on_stall);
    stall_watch(const stall_watch&) = delete;
    stall_watch& operator=(const stall_watch&) = delete;
    ~stall_watch();

    void moved();
    bool has_stalled() const;

private:
    using clock = std::chrono::steady_clock;

    void watch();

    const std::chrono::seconds m_limit;
    const std::function<void()> m_on_stall;
    mutable std::mutex m_mutex;  // guards the members below but for the thread
    std::condition_variable m_ended_or_not;
    clock::time_point m_moved = clock::now();
    bool m_ended = false;
    bool m_stalled = false;
    std::thread m_thread;
};

}  // namespace command
