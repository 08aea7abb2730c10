// The loop of the calling thread: turns the GLib context that is the thread's default.
#pragma once

#include <cstdint>
#include <functional>

namespace kro::tessel::os {

void run_loop();
bool run_loop_until(const std::function<bool()>& done, std::uint32_t milliseconds);
void quit_loop() noexcept;
bool pump_loop();

/// Said in a turn that may deliver nothing although something waits; so `pump` takes another one.
void expect_another_turn() noexcept;

/// One of the loops above while it runs. A window delivers many messages in one dispatch; it asks after
/// each one whether the loop that it delivers for ends there.
class running_loop {
public:
    virtual ~running_loop();
    running_loop(const running_loop&) = delete;
    running_loop& operator=(const running_loop&) = delete;

    /// The loop whose turn the current dispatch is; null when that is a foreign one's, the host's.
    static running_loop* of_this_dispatch() noexcept;

    virtual bool ends_here() = 0;

protected:
    running_loop() noexcept;

private:
    running_loop* m_outer;
    int m_depth;  // of the dispatches around it
};

}  // namespace kro::tessel::os
