// The loop of the calling thread.
#pragma once

#include <cstdint>
#include <functional>

namespace kro::tessel::os {

void run_loop();
bool run_loop_until(const std::function<bool()>& done, std::uint32_t milliseconds);
void quit_loop();
/// Delivers what is waiting; whether that was anything.
bool pump_loop();

}  // namespace kro::tessel::os
