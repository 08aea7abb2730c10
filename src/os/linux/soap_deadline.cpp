#include "os/linux/soap_deadline.h"

#include "os/linux/signals_blocked.h"
#include "os/thread.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <exception>
#include <map>
#include <mutex>
#include <thread>

namespace kro::tessel::os {
namespace {

using steady = std::chrono::steady_clock;

class deadline_watch {
public:
    // Never destroyed: its thread may outlive every destructor.
    static deadline_watch& instance() {
        static deadline_watch* const s_watch = new deadline_watch;
        return *s_watch;
    }

    std::uint64_t add(inet_handle handle, steady::time_point due) {
        const std::lock_guard lock(m_mutex);
        if (!m_runs) {
            const all_signals_blocked blocked;
            std::thread([this] { run(); }).detach();
            m_runs = true;
        }
        m_waiting.emplace(++m_last_number, deadline{handle, due});
        if (due < m_sleeps_until) {
            m_changed.notify_all();
        }
        return m_last_number;
    }

    // Whether it was too late.
    bool remove(std::uint64_t number) {
        std::unique_lock lock(m_mutex);
        m_changed.wait(lock, [&] { return m_closing != number; });
        return m_waiting.erase(number) == 0;
    }

private:
    struct deadline {
        inet_handle handle;
        steady::time_point due;
    };

    [[noreturn]] void run() {
        std::unique_lock lock(m_mutex);
        for (;;) {
            const auto first = std::min_element(
                m_waiting.begin(), m_waiting.end(),
                [](const auto& one, const auto& other) { return one.second.due < other.second.due; });
            if (first == m_waiting.end()) {
                rest(lock, steady::time_point::max());
            } else if (steady::now() < first->second.due) {
                rest(lock, first->second.due);
            } else {
                close(lock, first->first, first->second.handle);
            }
        }
    }

    // Also on beyond deadlines that are removed meanwhile, so that most calls wake nobody.
    void rest(std::unique_lock<std::mutex>& lock, steady::time_point until) {
        m_sleeps_until = until;
        if (until == steady::time_point::max()) {
            m_changed.wait(lock);
        } else {
            m_changed.wait_until(lock, until);
        }
        m_sleeps_until = steady::time_point::min();
    }

    void close(std::unique_lock<std::mutex>& lock, std::uint64_t number, inet_handle handle) {
        m_waiting.erase(number);
        m_closing = number;
        lock.unlock();
        inet().close(handle);
        lock.lock();
        m_closing = 0;
        m_changed.notify_all();
    }

    std::mutex m_mutex;  // guards all members
    std::condition_variable m_changed;
    std::map<std::uint64_t, deadline> m_waiting;
    std::uint64_t m_last_number = 0;
    std::uint64_t m_closing = 0;
    steady::time_point m_sleeps_until = steady::time_point::min();  // min: awake, it looks for itself
    bool m_runs = false;
};

}  // namespace

closing_deadline::closing_deadline(inet_handle handle, std::uint32_t milliseconds) {
    if (milliseconds == 0 || process_was_forked()) {
        return;
    }
    try {
        m_number =
            deadline_watch::instance().add(handle, steady::now() + std::chrono::milliseconds(milliseconds));
    } catch (const std::exception&) {  // no thread, no memory: the time-outs of each wait are left
        m_number = 0;
    }
}

bool closing_deadline::stop() {
    if (m_number != 0) {
        m_has_passed = deadline_watch::instance().remove(m_number);
        m_number = 0;
    }
    return m_has_passed;
}

}  // namespace kro::tessel::os
