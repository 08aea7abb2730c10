#include "os/thread.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

namespace kro::tessel::os {
namespace {

thread_local std::uint32_t t_last_error = 0;

std::atomic<bool> g_forked{false};
[[maybe_unused]] const int k_watches_forks = ::pthread_atfork(nullptr, nullptr, [] { g_forked = true; });

class condition_event final : public manual_reset_event {
public:
    void set() override {
        const std::lock_guard lock(m_mutex);
        m_signalled = true;
        m_changed.notify_all();
    }

    void reset() override {
        const std::lock_guard lock(m_mutex);
        m_signalled = false;
    }

    std::uint32_t wait(std::uint32_t milliseconds) override {
        std::unique_lock lock(m_mutex);
        const auto signalled = [this] { return m_signalled; };
        if (milliseconds == k_infinite) {
            m_changed.wait(lock, signalled);
            return k_wait_signalled;
        }
        const bool seen = m_changed.wait_for(lock, std::chrono::milliseconds(milliseconds), signalled);
        return seen ? k_wait_signalled : k_wait_timeout;
    }

private:
    std::mutex m_mutex;  // guards m_signalled
    std::condition_variable m_changed;
    bool m_signalled = false;
};

}  // namespace

std::uint32_t current_thread_id() noexcept {
    static thread_local const auto t_id = static_cast<std::uint32_t>(::syscall(SYS_gettid));
    return t_id;
}

void* current_thread_handle() noexcept {
    return reinterpret_cast<void*>(static_cast<std::intptr_t>(-2));  // NOLINT(performance-no-int-to-ptr)
}

bool process_was_forked() noexcept {
    return g_forked.load(std::memory_order_relaxed);
}

std::uint32_t tick_count() noexcept {
    timespec now{};
    ::clock_gettime(CLOCK_MONOTONIC, &now);
    const auto milliseconds =
        static_cast<std::uint64_t>(now.tv_sec) * 1000U + static_cast<std::uint64_t>(now.tv_nsec) / 1000000U;
    return static_cast<std::uint32_t>(milliseconds);
}

void set_last_error(std::uint32_t error) noexcept {
    t_last_error = error;
}
std::uint32_t last_error() noexcept {
    return t_last_error;
}

std::shared_ptr<manual_reset_event> make_manual_reset_event() {
    return std::make_shared<condition_event>();
}

}  // namespace kro::tessel::os
