// The loop for hosts that have none: timers drive it, and nested loops end one by one.
#include "tessel/platform/host.h"
#include "tessel/platform/timer.h"

#include <gtest/gtest.h>

#include <functional>
#include <vector>

namespace {

namespace message_loop = kro::tessel::message_loop;
using kro::tessel::timer::_addtimer;
using kro::tessel::timer::_killtimer;

/// A timer that runs while it lives.
class running_timer {
public:
    running_timer(unsigned int id, unsigned int elapse, std::function<void()> react)
        : m_id(id), m_react(std::move(react)) {
        EXPECT_NE(_addtimer(id, elapse, {this, &running_timer::on_timer}), 0U);
    }
    ~running_timer() { _killtimer(m_id); }
    running_timer(const running_timer&) = delete;
    running_timer& operator=(const running_timer&) = delete;

private:
    void on_timer(unsigned int /*id*/) { m_react(); }

    unsigned int m_id;
    std::function<void()> m_react;
};

TEST(MessageLoop, NestedRunsEndOneByOneAndLimitedOnesDoNotTakeTheirQuit) {
    std::vector<int> ends;
    int ticks = 0;
    const running_timer outer(1, 10, [&] {
        if (++ticks == 1) {
            message_loop::run();
            ends.push_back(1);
            message_loop::quit();  // of the outermost, from inside a limited loop
            EXPECT_TRUE(message_loop::run_until([&] { return ticks >= 6; }, 0xFFFFFFFFU));
            ends.push_back(2);
        } else if (ticks == 3) {
            message_loop::quit();
        }
    });
    message_loop::run();
    ends.push_back(3);
    EXPECT_EQ(ends, (std::vector<int>{1, 2, 3}));
    EXPECT_EQ(ticks, 6);
}

}  // namespace
