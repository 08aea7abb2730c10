// Posted messages from one thread to another against g_main_context_invoke, and what timers cost beside
// each other. Rates are of the whole way, from the first post to the last delivery.
#include "os/message_window.h"
#include "os/thread.h"

#include <benchmark/benchmark.h>
#include <glib.h>

#include <atomic>
#include <functional>
#include <thread>
#include <vector>

namespace {

namespace os = kro::tessel::os;

constexpr std::size_t k_burst = 200'000;

std::size_t g_delivered = 0;
std::size_t g_expected = 0;
std::size_t g_ticks = 0;

std::intptr_t count_deliveries(os::window /*target*/, std::uint32_t message, std::uintptr_t /*wparam*/,
                               std::intptr_t /*lparam*/) {
    if (message == os::k_message_timer) {
        ++g_ticks;
    } else if (++g_delivered == g_expected) {
        os::message_windows().quit();
    }
    return 0;
}

gboolean count_invocation(gpointer /*data*/) {
    if (++g_delivered == g_expected) {
        os::message_windows().quit();
    }
    return G_SOURCE_REMOVE;
}

os::window make_window() {
    os::message_windows().register_class(TESSEL_W("bench"), count_deliveries);
    return os::message_windows().create(TESSEL_W("bench"), TESSEL_W("bench"));
}

/// Threads that do the same thing once in each round.
class senders {
public:
    senders(int count, const std::function<void()>& send) {
        for (int i = 0; i < count; ++i) {
            m_threads.emplace_back([this, send] {
                for (int round = 0; wait_for(round);) {
                    send();
                    ++round;
                }
            });
        }
    }
    ~senders() {
        m_round = -1;
        for (std::thread& one : m_threads) {
            one.join();
        }
    }
    senders(const senders&) = delete;
    senders& operator=(const senders&) = delete;

    void start_round() { ++m_round; }

private:
    bool wait_for(int round) const {
        int current = m_round;
        while (current >= 0 && current <= round) {
            std::this_thread::yield();
            current = m_round;
        }
        return current >= 0;
    }

    std::atomic<int> m_round{0};
    std::vector<std::thread> m_threads;
};

void deliver_bursts(benchmark::State& state, int threads, const std::function<void()>& send_burst) {
    senders all(threads, send_burst);
    for ([[maybe_unused]] auto _ : state) {
        g_delivered = 0;
        g_expected = k_burst * static_cast<std::size_t>(threads);
        all.start_round();
        os::message_windows().run();
    }
    state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(g_expected));
}

void posted_message(benchmark::State& state) {
    const os::window target = make_window();
    deliver_bursts(state, static_cast<int>(state.range(0)), [target] {
        for (std::size_t i = 0; i < k_burst; ++i) {
            while (!os::message_windows().post(target, os::k_message_user, i, 0)) {
                std::this_thread::yield();
            }
        }
    });
    os::message_windows().destroy(target);
}
BENCHMARK(posted_message)->Arg(1)->Arg(3)->UseRealTime();

void glib_context_invoke(benchmark::State& state) {
    // Owned all the time, or a sender would run the callback itself.
    g_main_context_acquire(nullptr);
    deliver_bursts(state, static_cast<int>(state.range(0)), [] {
        for (std::size_t i = 0; i < k_burst; ++i) {
            g_main_context_invoke(nullptr, count_invocation, nullptr);
        }
    });
    g_main_context_release(nullptr);
}
BENCHMARK(glib_context_invoke)->Arg(1)->Arg(3)->UseRealTime();

/// One after another: each is posted when the one before was delivered, on the same thread.
void posted_to_oneself(benchmark::State& state) {
    const os::window target = make_window();
    g_expected = 0;
    for ([[maybe_unused]] auto _ : state) {
        os::message_windows().post(target, os::k_message_user, 0, 0);
        os::message_windows().pump();
    }
    os::message_windows().destroy(target);
}
BENCHMARK(posted_to_oneself);

/// Processor time of a tick, with so many other timers that aren't due.
void tick_among_timers(benchmark::State& state) {
    const os::window target = make_window();
    for (std::int64_t id = 1; id <= state.range(0); ++id) {
        os::message_windows().set_timer(target, static_cast<std::uintptr_t>(id),
                                        id <= 100 ? os::k_timer_minimum_ms : os::k_timer_maximum_ms);
    }
    g_ticks = 0;
    for ([[maybe_unused]] auto _ : state) {
        const std::size_t goal = g_ticks + 100;
        os::message_windows().run_until([goal] { return g_ticks >= goal; }, os::k_infinite);
    }
    state.SetItemsProcessed(static_cast<std::int64_t>(g_ticks));
    os::message_windows().destroy(target);
}
BENCHMARK(tick_among_timers)->Arg(100)->Arg(5000)->Iterations(50);

}  // namespace

BENCHMARK_MAIN();
