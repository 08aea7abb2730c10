// Windows inside loops that aren't ours: the host's GLib loops and contexts, other sources beside them,
// other threads against them.
#include "os/message_window_recorder.h"
#include "os/system_services.h"
#include "os/thread.h"

#include <glib.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <thread>

namespace {

using namespace tessel_test;

os::message_window_service& service() {
    return os::system_message_windows();
}

void run_until(const std::function<bool()>& done) {
    ASSERT_TRUE(service().run_until(done, os::k_infinite));
}

/// A context of the calling thread's own while it lives.
class pushed_context {
public:
    pushed_context() : m_context(g_main_context_new()) { g_main_context_push_thread_default(m_context); }
    ~pushed_context() {
        g_main_context_pop_thread_default(m_context);
        g_main_context_unref(m_context);
    }
    pushed_context(const pushed_context&) = delete;
    pushed_context& operator=(const pushed_context&) = delete;

    GMainContext* get() const { return m_context; }

private:
    GMainContext* m_context;
};

/// A source of the host's that is always ready.
class eager_source {
public:
    eager_source(int priority, std::function<void()> on_turn) : m_on_turn(std::move(on_turn)) {
        m_source = g_idle_source_new();
        g_source_set_priority(m_source, priority);
        g_source_set_callback(m_source, turn, this, nullptr);
        g_source_attach(m_source, g_main_context_get_thread_default());
    }
    ~eager_source() {
        g_source_destroy(m_source);
        g_source_unref(m_source);
    }
    eager_source(const eager_source&) = delete;
    eager_source& operator=(const eager_source&) = delete;

private:
    static gboolean turn(gpointer self) {
        static_cast<eager_source*>(self)->m_on_turn();
        return G_SOURCE_CONTINUE;
    }
    std::function<void()> m_on_turn;
    GSource* m_source;
};

TEST(MessageWindowsInGlib, AHostsOwnLoopsDeliverMessagesAndTicksNestedOnesToo) {
    GMainLoop* const outer = g_main_loop_new(nullptr, FALSE);
    recording_window target(service(), [&](recording_window& self, delivered what) {
        if (what == user_message(1)) {
            GMainLoop* const inner = g_main_loop_new(nullptr, FALSE);
            recording_window ender(service(),
                                   [inner](recording_window&, delivered) { g_main_loop_quit(inner); });
            ender.post(1);
            g_main_loop_run(inner);
            g_main_loop_unref(inner);
            self.set_timer(1, 10);
        } else if (self.count(tick(1)) == 3) {
            g_main_loop_quit(outer);
        }
    });
    target.post(1);
    target.post(2);
    g_main_loop_run(outer);
    g_main_loop_unref(outer);
    EXPECT_EQ(target.received,
              (std::vector<delivered>{user_message(1), user_message(2), tick(1), tick(1), tick(1)}));
}

TEST(MessageWindowsInGlib, AWindowStaysWithTheContextThatWasItsThreadsDefault) {
    recording_window outside(service());
    std::vector<std::size_t> received;
    const auto look = [&](const recording_window& inside) {
        received.insert(received.end(), {inside.received.size(), outside.received.size()});
    };
    {
        const pushed_context context;
        recording_window inside(service());
        inside.post(1);
        outside.post(1);
        service().pump();
        look(inside);
        inside.post(2);
        while (g_main_context_iteration(nullptr, FALSE) != FALSE) {
        }
        look(inside);
    }
    EXPECT_EQ(received, (std::vector<std::size_t>{1, 0, 1, 1}));
    EXPECT_FALSE(service().pump());
}

// A thread that ended without destroying its window takes the context along: nobody would ever deliver.
TEST(MessageWindowsInGlib, AWindowWhoseContextIsGoneIsNoWindow) {
    os::window orphan = nullptr;
    std::thread([&orphan] {
        const pushed_context context;
        service().register_class(TESSEL_W("orphan"), [](os::window, std::uint32_t, std::uintptr_t,
                                                        std::intptr_t) { return std::intptr_t{0}; });
        orphan = service().create(TESSEL_W("orphan"), nullptr);
        EXPECT_TRUE(service().post(orphan, os::k_message_user, 0, 0));
    }).join();
    EXPECT_FALSE(service().is_window(orphan));
    EXPECT_FALSE(service().post(orphan, os::k_message_user, 0, 0));
    EXPECT_EQ(os::last_error(), os::k_error_no_window);
    EXPECT_EQ(service().set_timer(orphan, 1, 10), 0U);
}

// The context of a thread that has pushed none is the process's default one: the main thread's.
TEST(MessageWindowsInGlib, AThreadDoesNotDeliverForTheOneThatTurnsItsContext) {
    recording_window target(service());
    g_main_context_acquire(nullptr);
    target.post(1);
    std::thread([] {
        EXPECT_FALSE(service().pump());
        EXPECT_FALSE(service().run_until([] { return false; }, 20));
    }).join();
    EXPECT_TRUE(target.received.empty());
    g_main_context_release(nullptr);
    EXPECT_TRUE(service().pump());
    EXPECT_EQ(target.thread, os::current_thread_id());
}

TEST(MessageWindowsInGlib, WindowsOfTwoThreadsWakeEachOther) {
    constexpr std::uintptr_t k_rounds = 2000;
    std::atomic<os::window> there{nullptr};
    std::atomic<std::uint32_t> other_id{0};
    std::size_t strays = 0;  // deliveries on the wrong thread; of both, one after the other
    recording_window here(service(), [&](recording_window& self, delivered what) {
        strays += self.thread == other_id ? 1U : 0U;
        service().post(there, os::k_message_user, what.second + 1, 0);
    });
    std::thread other([&] {
        const pushed_context context;
        recording_window target(service(), [&](recording_window& self, delivered what) {
            strays += self.thread == other_id ? 0U : 1U;
            here.post(what.second + 1);
            if (what.second >= k_rounds) {
                service().quit();
            }
        });
        other_id = os::current_thread_id();
        there = target.handle();
        here.post(0);
        service().run();
    });
    run_until([&] { return here.received.size() == k_rounds / 2 + 2; });
    other.join();
    EXPECT_EQ(strays, 0U);
}

/// Threads that post to a window without a pause while it lives.
class flood {
public:
    flood(os::window target, int threads) {
        for (int i = 0; i < threads; ++i) {
            m_threads.emplace_back([this, target] {
                while (!m_over) {
                    service().post(target, os::k_message_user, 0, 0);
                }
            });
        }
    }
    ~flood() {
        m_over = true;
        for (std::thread& one : m_threads) {
            one.join();
        }
    }
    flood(const flood&) = delete;
    flood& operator=(const flood&) = delete;

private:
    std::atomic<bool> m_over{false};
    std::vector<std::thread> m_threads;
};

TEST(MessageWindowsInGlib, AFloodLeavesOtherSourcesTheirTurns) {
    std::size_t between_turns = 0;
    std::size_t most_between_turns = 0;
    std::size_t turns = 0;
    std::size_t messages = 0;
    recording_window target(service(), [&](recording_window& self, delivered) {
        self.received.clear();
        self.lparams.clear();
        ++messages;
        most_between_turns = std::max(most_between_turns, ++between_turns);
    });
    const eager_source source(G_PRIORITY_DEFAULT, [&] {
        ++turns;
        between_turns = 0;
    });
    const flood posts(target.handle(), 1);
    run_until([&] { return turns >= 200 && messages >= 20'000; });
    EXPECT_LE(most_between_turns, 64U);
    EXPECT_FALSE(service().run_until([] { return false; }, 20));  // and a time limit holds
    EXPECT_TRUE(service().pump());                                // and this has an end
}

// A timer whose work takes longer than its period is always due; drawing ranks far below it.
TEST(MessageWindowsInGlib, TimersThatCannotKeepUpLeaveOtherSourcesTheirTurns) {
    std::size_t turns = 0;
    recording_window target(service(),
                            [](recording_window&, delivered) { os::make_manual_reset_event()->wait(15); });
    target.set_timer(1, 10);
    target.set_timer(2, 10);
    const eager_source source(G_PRIORITY_DEFAULT_IDLE, [&turns] { ++turns; });
    run_until([&] { return !target.received.empty(); });
    turns = 0;
    run_until([&] { return target.received.size() >= 11; });
    EXPECT_GE(turns, 5U);
}

// Every timer that is due gets its tick, however many fall due together: batches and pauses lose none.
TEST(MessageWindowsInGlib, ThousandsOfTimersAllTick) {
    constexpr std::uintptr_t k_timers = 5000;
    std::vector<int> ticks(k_timers, 0);
    std::size_t ticked = 0;
    recording_window target(service(), [&](recording_window& self, delivered what) {
        ticked += ticks[what.second]++ == 0 ? 1U : 0U;
        if (what.second % 2 == 0) {
            self.kill_timer(what.second);
        }
    });
    for (std::uintptr_t id = 0; id < k_timers; ++id) {
        target.set_timer(id, 10 + static_cast<std::uint32_t>(id % 7));
    }
    run_until([&] { return ticked == k_timers; });
    for (std::uintptr_t id = 0; id < k_timers; id += 2) {
        EXPECT_EQ(ticks[id], 1) << id;
    }
}

TEST(MessageWindowsInGlib, AQueueHasAnEndAndDeliversWhatItTook) {
    recording_window target(service());
    std::uintptr_t taken = 0;
    while (target.post(taken)) {
        ++taken;
    }
    EXPECT_EQ(os::last_error(), os::k_error_queue_full);
    EXPECT_EQ(taken, 1'000'000U);
    while (service().pump()) {
    }
    ASSERT_EQ(target.received.size(), taken);
    for (std::uintptr_t i = 0; i < taken; ++i) {
        ASSERT_EQ(target.received[i].second, i);
    }
    EXPECT_TRUE(target.post(0));
}

TEST(MessageWindowsInGlib, ThereAreTenThousandWindows) {
    std::vector<os::window> all;
    recording_window first(service());
    while (const os::window made = service().create(TESSEL_W("recording"), nullptr)) {
        all.push_back(made);
    }
    EXPECT_EQ(os::last_error(), os::k_error_too_many_objects);
    EXPECT_GT(all.size(), 9000U);
    for (const os::window one : all) {
        EXPECT_TRUE(service().destroy(one));
    }
    EXPECT_NE(service().create(TESSEL_W("recording"), nullptr), nullptr);
}

// Handles of windows that come and go, in the hands of threads that know nothing of it.
TEST(MessageWindowsInGlib, OtherThreadsMayPostAndSetTimersWhileTheWindowIsDestroyed) {
    std::atomic<os::window> current{nullptr};
    std::atomic<bool> over{false};
    std::array<std::thread, 3> threads;
    for (std::thread& one : threads) {
        one = std::thread([&] {
            for (std::uintptr_t round = 0; !over; ++round) {
                const os::window target = current;
                service().post(target, os::k_message_user, reinterpret_cast<std::uintptr_t>(target), 0);
                service().set_timer(target, round % 3, 10);
                service().kill_timer(target, (round + 1) % 3);
                service().is_window(target);
            }
        });
    }
    for (int round = 0; round < 300; ++round) {
        const auto still_mine = [](recording_window& self, delivered what) {
            EXPECT_TRUE(what.first == os::k_message_timer ||
                        what.second == reinterpret_cast<std::uintptr_t>(self.handle()));
            if (self.received.size() == 20) {
                self.destroy();
            }
        };
        recording_window target(service(), still_mine);
        current = target.handle();
        run_until([&] { return !service().is_window(target.handle()); });
        EXPECT_EQ(target.received.size(), 20U);
    }
    over = true;
    for (std::thread& one : threads) {
        one.join();
    }
}

}  // namespace
