// What every message window service must do: the running system's and the one that tests turn by hand.
#pragma once

#include "os/message_window.h"
#include "os/message_window_recorder.h"
#include "os/thread.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace tessel_test {

/// A service and its clock.
class message_window_side {
public:
    virtual ~message_window_side() = default;
    virtual kro::tessel::os::message_window_service& service() = 0;
    virtual std::uint64_t now_ms() = 0;
    /// Lets at least so much time pass without delivering anything.
    virtual void let_pass(std::uint32_t milliseconds) = 0;
};

struct message_window_maker {
    const char* name;
    std::unique_ptr<message_window_side> (*make)();
};

namespace os = kro::tessel::os;

class MessageWindowContract : public ::testing::TestWithParam<message_window_maker> {
protected:
    using window_list = std::vector<delivered>;

    kro::tessel::os::message_window_service& service() { return m_side->service(); }
    std::uint64_t now_ms() { return m_side->now_ms(); }
    void let_pass(std::uint32_t milliseconds) { m_side->let_pass(milliseconds); }

    /// Runs the loop until `done`; there is no limit, so that no slow machine fails (a test that never ends
    /// is ended by the runner).
    void run_until(const std::function<bool()>& done) {
        ASSERT_TRUE(service().run_until(done, kro::tessel::os::k_infinite));
    }
    void run_until_ticks(recording_window& target, std::uintptr_t id, std::size_t count) {
        run_until([&] { return target.count(tick(id)) >= count; });
    }
    static void expect_failure(bool succeeded, std::uint32_t error) {
        EXPECT_FALSE(succeeded);
        EXPECT_EQ(kro::tessel::os::last_error(), error);
    }

private:
    std::unique_ptr<message_window_side> m_side = GetParam().make();
};

inline std::string message_window_side_name(const ::testing::TestParamInfo<message_window_maker>& side) {
    return side.param.name;
}

TEST_P(MessageWindowContract, ClassesAreRegisteredOnceAndNeeded) {
    const auto procedure = [](os::window, std::uint32_t, std::uintptr_t, std::intptr_t) {
        return std::intptr_t{0};
    };
    service().register_class(TESSEL_W("once"), procedure);
    expect_failure(service().register_class(TESSEL_W("once"), procedure), os::k_error_window_class_exists);
    expect_failure(service().create(TESSEL_W("none"), TESSEL_W("t")) != nullptr, os::k_error_no_window_class);
}

// Steps of the engine arrive with handles that may be long gone; whatever is asked about one must fail.
TEST_P(MessageWindowContract, EverythingFailsForWhatIsNoWindow) {
    recording_window gone(service());
    const os::window stale = gone.handle();
    ASSERT_TRUE(gone.destroy());
    recording_window next(service());  // may well be kept where the other one was
    EXPECT_NE(stale, next.handle());
    int local = 0;

    for (const os::window none : {os::window{nullptr}, stale, os::window{&local}, os::window{this}}) {
        EXPECT_FALSE(service().is_window(none));
        expect_failure(service().post(none, os::k_message_user, 0, 0), os::k_error_no_window);
        expect_failure(service().destroy(none), os::k_error_no_window);
        expect_failure(service().set_timer(none, 1, 10) != 0, os::k_error_no_window);
        expect_failure(service().kill_timer(none, 1), os::k_error_no_window);
        service().set_user_data(none, &local);
        expect_failure(service().user_data(none) != nullptr, os::k_error_no_window);
    }
    service().pump();
    EXPECT_TRUE(next.received.empty());
    EXPECT_NE(service().dialog_parent(), nullptr);
}

TEST_P(MessageWindowContract, MessagesArriveInOrderThroughTheLoopOnly) {
    recording_window target(service());
    window_list posted;
    std::vector<std::intptr_t> lparams;
    const auto post = [&] {  // on either thread
        for (int i = 0; i < 250; ++i) {
            posted.push_back(user_message(posted.size()));
            lparams.push_back(-static_cast<std::intptr_t>(posted.size()));
            target.post(posted.back().second, lparams.back());
        }
    };
    post();
    std::thread(post).join();
    EXPECT_TRUE(target.received.empty());
    service().pump();
    EXPECT_EQ(target.received, posted);
    EXPECT_EQ(target.lparams, lparams);
    EXPECT_EQ(target.thread, os::current_thread_id());
}

TEST_P(MessageWindowContract, PumpSaysWhetherItDeliveredAnything) {
    recording_window target(service());
    os::set_last_error(4711);
    EXPECT_FALSE(service().pump());
    target.post(1);
    EXPECT_TRUE(service().pump());
    EXPECT_FALSE(service().pump());
    EXPECT_EQ(os::last_error(), 4711U);  // success leaves it alone
}

TEST_P(MessageWindowContract, ADestroyedWindowIsDeliveredNothing) {
    recording_window other(service());
    recording_window target(service(), [](recording_window& self, delivered what) {
        if (what == user_message(1)) {
            self.set_timer(7, 10);
            self.post(3);
            EXPECT_TRUE(self.destroy());
            expect_failure(self.post(4), os::k_error_no_window);
        }
    });
    target.set_timer(6, 10);
    target.post(1);
    target.post(2);
    other.set_timer(1, 10);
    run_until_ticks(other, 1, 5);
    EXPECT_EQ(target.received, window_list{user_message(1)});
}

TEST_P(MessageWindowContract, OnlyTheOwnerDestroys) {
    recording_window target(service());
    std::thread([&] { expect_failure(target.destroy(), os::k_error_not_the_owner); }).join();
    EXPECT_TRUE(service().is_window(target.handle()));
    EXPECT_TRUE(target.destroy());
}

// The end of a loop that waits for one message must not swallow or hurry the ones behind it.
TEST_P(MessageWindowContract, RunUntilEndsRightBehindTheMessageThatEndsIt) {
    recording_window target(service());
    for (std::uintptr_t i = 0; i < 10; ++i) {
        target.post(i);
    }
    int asked = 0;
    EXPECT_TRUE(service().run_until([&] { return ++asked == 1; }, 0));
    EXPECT_TRUE(target.received.empty());
    for (std::size_t wanted = 1; wanted <= 10; ++wanted) {
        run_until([&] { return target.received.size() >= wanted; });
        EXPECT_EQ(target.received.size(), wanted);
    }
}

TEST_P(MessageWindowContract, RunUntilGivesUpWhenItsTimeIsOver) {
    recording_window target(service());
    const std::uint64_t start = now_ms();
    EXPECT_FALSE(service().run_until([] { return false; }, 40));
    EXPECT_GE(now_ms(), start + 40);
    EXPECT_FALSE(service().run_until([] { return false; }, 0));
}

TEST_P(MessageWindowContract, QuitEndsTheInnermostRunBehindTheMessage) {
    std::size_t received_by_inner = 0;
    recording_window target(service(), [&](recording_window& self, delivered what) {
        if (what == user_message(1)) {
            service().run();
            received_by_inner = self.received.size();
            self.post(4);
        } else if (what == user_message(2) || what == user_message(4)) {
            service().quit();
        }
    });
    for (const std::uintptr_t i : {1U, 2U, 3U}) {
        target.post(i);
    }
    service().run();
    EXPECT_EQ(received_by_inner, 2U);
    EXPECT_EQ(target.received,
              (window_list{user_message(1), user_message(2), user_message(3), user_message(4)}));
}

TEST_P(MessageWindowContract, AQuitThatComesWhileNothingRunsEndsTheNextRun) {
    recording_window target(service());
    target.post(1);
    service().quit();
    service().run();
    EXPECT_TRUE(target.received.empty());
    EXPECT_TRUE(service().pump());
    EXPECT_EQ(target.received.size(), 1U);
}

// A dialogue runs a loop inside a step; what was posted before it must be delivered in it, in order.
TEST_P(MessageWindowContract, ANestedLoopGoesOnWithWhatWaits) {
    recording_window target(service(), [this](recording_window& self, delivered what) {
        if (what.second < 3) {
            self.post(100 + what.second);
            EXPECT_TRUE(service().pump());
        }
    });
    for (std::uintptr_t i = 0; i < 5; ++i) {
        target.post(i);
    }
    service().pump();
    EXPECT_EQ(target.received,
              (window_list{user_message(0), user_message(1), user_message(2), user_message(3),
                           user_message(4), user_message(100), user_message(101), user_message(102)}));
    EXPECT_FALSE(service().pump());
}

TEST_P(MessageWindowContract, TimerNumbersAndResults) {
    recording_window target(service());
    const struct { std::uintptr_t id, result; } rows[] = {{0, 1}, {1, 1}, {0xFFFFFFFFU, 0xFFFFFFFFU}};
    for (const auto& row : rows) {
        EXPECT_EQ(target.set_timer(row.id, 10), row.result) << row.id;
    }
    run_until(
        [&] { return target.count(tick(0)) && target.count(tick(1)) && target.count(tick(0xFFFFFFFFU)); });
    for (const auto& row : rows) {
        EXPECT_TRUE(target.kill_timer(row.id)) << row.id;
        expect_failure(target.kill_timer(row.id), os::k_error_unknown_timer);
    }
    for (const std::intptr_t lparam : target.lparams) {
        EXPECT_EQ(lparam, 0);
    }
}

// Counts of ticks are bounded from above by time: each must come a whole period behind the one before, also
// when ticks were missed, and never sooner than the minimum.
TEST_P(MessageWindowContract, TicksAreNeverEarlyAndMissedOnesAreLost) {
    const struct {
        const char* description;
        std::uint32_t elapse, period;
    } rows[] = {{"as asked", 25, 25}, {"the minimum", 10, 10}, {"below the minimum", 1, 10}, {"none", 0, 10}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.description);
        std::vector<std::uint64_t> times{now_ms()};
        recording_window target(service(), [&](recording_window& self, delivered) {
            times.push_back(now_ms());
            if (self.received.size() == 2) {
                let_pass(5 * row.period);
            }
        });
        target.set_timer(1, row.elapse);
        run_until_ticks(target, 1, 5);
        for (std::size_t i = 1; i < times.size(); ++i) {
            EXPECT_GE(times[i], times[i - 1] + row.period) << "tick " << i;
        }
    }
}

TEST_P(MessageWindowContract, SettingATimerAgainRestartsIt) {
    std::uint64_t ticked = 0;
    recording_window target(service(), [&](recording_window& self, delivered) {
        ticked = ticked == 0 ? now_ms() : ticked;
        EXPECT_TRUE(self.kill_timer(1));
    });
    target.set_timer(1, os::k_infinite);  // clamped: far away, not at once
    target.set_timer(1, 40);
    let_pass(60);  // due, but not delivered
    const std::uint64_t restarted = now_ms();
    target.set_timer(1, 30);
    run_until_ticks(target, 1, 1);
    EXPECT_GE(ticked, restarted + 30);
}

TEST_P(MessageWindowContract, PostedMessagesComeBeforeTimersThatWereDueFirst) {
    window_list order;
    recording_window second(service(), [&](recording_window&, delivered what) { order.push_back(what); });
    recording_window first(service(), [&](recording_window& self, delivered what) {
        order.push_back(what);
        if (what == tick(1)) {
            second.post(1000);
        }
        if (what.first == os::k_message_timer) {
            self.kill_timer(what.second);
        }
    });
    first.set_timer(1, 10);
    first.set_timer(2, 10);
    let_pass(30);
    window_list expected;
    for (std::uintptr_t i = 0; i < 200; ++i) {  // more than a loop would deliver in one turn
        first.post(i);
        expected.push_back(user_message(i));
    }
    expected.insert(expected.end(), {tick(1), user_message(1000), tick(2)});
    run_until_ticks(first, 2, 1);
    EXPECT_EQ(order, expected);
}

TEST_P(MessageWindowContract, AKilledTimerTicksNoMoreNotEvenWhenItWasDue) {
    std::vector<bool> killed;
    recording_window target(service(), [&](recording_window& self, delivered what) {
        if (what == tick(1)) {
            killed = {self.kill_timer(1), self.kill_timer(2)};
        }
    });
    recording_window clock(service());
    for (const std::uintptr_t id : {1U, 2U, 3U}) {
        target.set_timer(id, 10);
    }
    let_pass(30);
    std::thread([&target, &clock] {
        target.kill_timer(3);
        clock.set_timer(1, 10);
    }).join();
    run_until_ticks(clock, 1, 4);
    EXPECT_EQ(target.received, window_list{tick(1)});
    EXPECT_EQ(killed, (std::vector<bool>{true, true}));
}

// A tick that opens a dialogue: the clock in the dialogue, and its own timer, must go on.
TEST_P(MessageWindowContract, TimersTickInsideALoopThatATickRuns) {
    bool nested = false;
    recording_window target(service(), [&](recording_window& self, delivered what) {
        if (what == tick(1) && !nested) {
            nested = true;
            run_until([&] { return self.count(tick(1)) >= 4 && self.count(tick(2)) >= 2; });
        }
    });
    target.set_timer(1, 10);
    target.set_timer(2, 15);
    run_until_ticks(target, 1, 6);
    EXPECT_GE(target.count(tick(2)), 2U);
}

}  // namespace tessel_test
