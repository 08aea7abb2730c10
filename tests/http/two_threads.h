// Two threads of which one runs at a time, so that what happens on both of them has one order.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <mutex>
#include <thread>
#include <utility>

namespace tessel_test {

class two_threads {
public:
    two_threads() : m_first(std::this_thread::get_id()), m_second([this] { serve(1, false); }) {}
    two_threads(const two_threads&) = delete;
    two_threads& operator=(const two_threads&) = delete;
    ~two_threads() {
        hand_over(1, nullptr);
        m_second.join();
    }

    bool on_first() const { return std::this_thread::get_id() == m_first; }

    /// Runs `work` on the other thread and waits for its end. It may do the same with this thread meanwhile.
    /// When it wants a lock that this thread holds, the program is aborted.
    void on_other(const std::function<void()>& work) {
        const int mine = on_first() ? 0 : 1;
        hand_over(1 - mine, &work);
        serve(mine, true);
    }

private:
    struct turn {
        bool is_here = false;
        const std::function<void()>* work = nullptr;  // null: what this thread waits for is done
    };

    void hand_over(int to, const std::function<void()>* work) {
        const std::lock_guard lock(m_mutex);
        m_turns[to] = {true, work};
        m_changed[to].notify_one();
    }

    turn wait_for_turn(int mine, bool impatient) {
        std::unique_lock lock(m_mutex);
        const auto is_here = [&] { return m_turns[mine].is_here; };
        if (!impatient) {
            m_changed[mine].wait(lock, is_here);
        } else if (!m_changed[mine].wait_for(lock, std::chrono::seconds(60), is_here)) {
            std::fprintf(stderr, "the other thread waits for a lock of this one\n");
            std::abort();
        }
        return std::exchange(m_turns[mine], {});
    }

    void serve(int mine, bool impatient) {
        while (const auto* const work = wait_for_turn(mine, impatient).work) {
            (*work)();
            hand_over(1 - mine, nullptr);
        }
    }

    std::mutex m_mutex;  // guards m_turns
    std::condition_variable m_changed[2];
    turn m_turns[2];
    const std::thread::id m_first;
    std::thread m_second;
};

}  // namespace tessel_test
