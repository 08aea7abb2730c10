// Timers by number: who is called, when, and what a delegate may do to the timers while it is called.
#include "tessel/platform/timer.h"

#include "os/thread.h"

#include "support/manual_message_windows.h"
#include "tessel/platform/host.h"
#include "tessel/platform/last_error.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <iterator>
#include <utility>
#include <vector>

namespace {

using kro::tessel::delegate::FastDelegate1;
using kro::tessel::timer::_addtimer;
using kro::tessel::timer::_killtimer;
using tessel_test::manual_message_windows;

using callback = FastDelegate1<unsigned int>;

// What a delegate is bound to decides what its function finds in `this`; each class below keeps its value at
// another place in the object.
struct first_base {
    virtual ~first_base() = default;
    virtual void record(unsigned int id) { calls.emplace_back(id, own); }
    int own = 1;
    static inline std::vector<std::pair<unsigned int, int>> calls;
};
struct second_base {
    virtual ~second_base() = default;
    void record_second(unsigned int id) { first_base::calls.emplace_back(id, second); }
    void record_const(unsigned int id) const { first_base::calls.emplace_back(id, second + 100); }
    int second = 2;
};
struct derived final : virtual first_base, second_base {
    void record(unsigned int id) override { calls.emplace_back(id, third); }
    int third = 30;
};
void record_freely(unsigned int id) {
    first_base::calls.emplace_back(id, 7);
}

TEST(FastDelegate, CallsItsFunctionOnItsObjectWhateverTheClassInherits) {
    first_base single;
    derived several;
    const second_base constant;
    const struct {
        const char* description;
        callback delegate;
        int recorded;
    } rows[] = {
        {"virtual", {&single, &first_base::record}, 1},
        {"overridden, through a virtual base", {&several, &first_base::record}, 30},
        {"second base", {&several, &second_base::record_second}, 2},
        {"const object", {&constant, &second_base::record_const}, 102},
        {"const function, other object", {&several, &second_base::record_const}, 102},
        {"free function", {record_freely}, 7},
        {"empty", {}, 0},
        {"no object", {static_cast<derived*>(nullptr), &second_base::record_second}, 0},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.description);
        first_base::calls.clear();
        const callback copy = row.delegate;
        copy(9);
        const bool empty = row.recorded == 0;
        const decltype(first_base::calls) expected(empty ? 0 : 1, {9, row.recorded});
        EXPECT_EQ(first_base::calls, expected);
        EXPECT_EQ(std::make_pair(copy.empty(), copy == callback()), std::make_pair(empty, empty));
        const auto equal = std::count_if(std::begin(rows), std::end(rows),
                                         [&](const auto& other) { return other.delegate == copy; });
        EXPECT_EQ(equal, empty ? 2 : 1);
    }
}

TEST(FastDelegate, PassesItsArgumentOn) {
    struct taker {
        void take(std::vector<int>&& values) { taken = std::move(values); }
        std::vector<int> taken;
    } object;
    const FastDelegate1<std::vector<int>&&> delegate(&object, &taker::take);
    delegate({1, 2, 3});
    EXPECT_EQ(object.taken, (std::vector<int>{1, 2, 3}));
}

/// Records calls, and does something in one.
struct listener {
    void on_timer(unsigned int id) {
        calls.push_back(id);
        if (react) {
            react(id);
        }
    }
    callback delegate() { return {this, &listener::on_timer}; }

    std::vector<unsigned int> calls;
    std::function<void(unsigned int)> react;
};
using calls = std::vector<unsigned int>;

TEST(Timer, TicksEveryPeriodUntilItIsKilled) {
    manual_message_windows windows;
    listener host;
    EXPECT_EQ(_addtimer(7, 25, host.delegate()), 7U);
    EXPECT_EQ(_addtimer(0, 40, host.delegate()), 1U);
    windows.advance(100);
    EXPECT_EQ(host.calls, (calls{7, 0, 7, 7, 0, 7}));
    EXPECT_TRUE(_killtimer(7));
    EXPECT_TRUE(_killtimer(0));
    EXPECT_TRUE(_killtimer(12345));
    windows.advance(1000);
    EXPECT_EQ(host.calls.size(), 6U);
    EXPECT_EQ(_addtimer(7, 10, host.delegate()), 7U);
    windows.advance(10);
    EXPECT_EQ(host.calls.size(), 7U);
    _killtimer(7);
}

TEST(Timer, ANumberInUseIsLeftAsItIs) {
    manual_message_windows windows;
    listener first;
    listener second;
    ASSERT_EQ(_addtimer(1, 30, first.delegate()), 1U);
    windows.advance(20);
    EXPECT_EQ(_addtimer(1, 10, second.delegate()), 0U);
    windows.advance(10);
    EXPECT_EQ(first.calls, calls{1});
    EXPECT_TRUE(second.calls.empty());
    _killtimer(1);
}

TEST(Timer, WhatCannotBeMadeGivesZeroAndKeepsNothing) {
    manual_message_windows windows;
    listener host;
    windows.refused_windows = 1;
    EXPECT_EQ(_addtimer(1, 10, host.delegate()), 0U);
    EXPECT_EQ(kro::tessel::get_last_error(), 1158U);
    EXPECT_TRUE(_killtimer(1));

    windows.refused_timers = 1;
    EXPECT_EQ(_addtimer(1, 10, host.delegate()), 0U);
    EXPECT_EQ(_addtimer(1, 10, host.delegate()), 1U);  // the failure has left no entry behind
    windows.advance(10);
    EXPECT_EQ(host.calls, calls{1});
    _killtimer(1);
}

TEST(Timer, OneHiddenWindowServesAll) {
    manual_message_windows windows;
    listener host;
    _addtimer(1, 10, host.delegate());
    _addtimer(2, 10, host.delegate());
    const auto all = windows.windows();
    ASSERT_EQ(all.size(), 1U);
    EXPECT_EQ(all[0].title, TESSEL_W("TimerWnd"));
    EXPECT_NE(all[0].class_name.find(TESSEL_W("CTimerWnd")), kro::tessel::wide_string::npos);

    // Messages that aren't its own, or name no timer, are none of its business.
    windows.post(all[0].handle, 0x400, 1, 0);
    windows.post(all[0].handle, 0x113, 99, 0);
    EXPECT_EQ(windows.deliver_all(), 2U);
    EXPECT_TRUE(host.calls.empty());
    _killtimer(1);
    _killtimer(2);
}

TEST(Timer, AWindowThatIsGoneIsMadeAgainAndItsTimersAreForgotten) {
    manual_message_windows windows;
    listener host;
    _addtimer(1, 10, host.delegate());
    _addtimer(2, 10, host.delegate());
    ASSERT_TRUE(windows.vanish(windows.windows()[0].handle));
    EXPECT_EQ(_addtimer(2, 10, host.delegate()), 2U);
    windows.advance(10);
    EXPECT_EQ(host.calls, calls{2});
    _killtimer(2);
}

TEST(Timer, ADelegateMayAddAndKillTimersItsOwnToo) {
    manual_message_windows windows;
    listener later;
    listener host;
    std::vector<unsigned int> results;
    host.react = [&](unsigned int /*id*/) {
        _killtimer(1);
        _killtimer(2);  // due at the same moment
        results.push_back(_addtimer(1, 50, later.delegate()));
        for (unsigned int other = 100; other < 200; ++other) {
            results.push_back(_addtimer(other, 10'000, later.delegate()));
        }
    };
    _addtimer(1, 10, host.delegate());
    _addtimer(2, 10, host.delegate());
    windows.advance(70);
    EXPECT_EQ(host.calls, calls{1});
    EXPECT_EQ(later.calls, calls{1});
    EXPECT_EQ(std::count(results.begin(), results.end(), 0U), 0);
    for (const unsigned int id : results) {
        _killtimer(id);
    }
}

}  // namespace
