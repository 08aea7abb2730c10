// tessel timer: ticks of the library's timers on this thread's loop.
#include <tessel/tessel.h>

#include "command.h"

#include <fmt/core.h>

#include <chrono>
#include <cstdio>
#include <memory>

namespace command {
namespace {

constexpr unsigned k_timer_id = 1;

class tick_counter {
public:
    explicit tick_counter(unsigned wanted) : m_wanted(wanted) {}

    void tick(unsigned /*id*/) {
        using namespace std::chrono;
        const auto elapsed = duration_cast<milliseconds>(steady_clock::now() - m_start);
        fmt::print("tick {} after {} ms\n", ++m_seen, elapsed.count());
        std::fflush(stdout);
    }
    bool done() const { return m_seen >= m_wanted; }

private:
    const unsigned m_wanted;
    unsigned m_seen = 0;
    const std::chrono::steady_clock::time_point m_start = std::chrono::steady_clock::now();
};

int run_timer(unsigned every, unsigned count) {
    namespace timer = kro::tessel::timer;
    tick_counter counter(count);
    const kro::tessel::delegate::FastDelegate1<unsigned int> on_tick(&counter, &tick_counter::tick);
    if (timer::_addtimer(k_timer_id, every, on_tick) == 0) {
        fmt::print(stderr, "tessel: the timer can't be started\n");
        return exit_failed;
    }
    kro::tessel::message_loop::run_until([&counter] { return counter.done(); }, 0xFFFFFFFFU);
    timer::_killtimer(k_timer_id);
    return exit_ok;
}

}  // namespace

void add_timer(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("timer", "Show a timer's ticks");
    auto every = std::make_shared<unsigned>(1000);
    auto count = std::make_shared<unsigned>(1);
    verb.add_option("--every", *every, "milliseconds between ticks; 10 is the least").shows_default();
    verb.add_option("--count", *count, "how many ticks to show").shows_default();
    verb.callback([every, count, &exit_code] { exit_code = run_timer(*every, *count); });
}

}  // namespace command
