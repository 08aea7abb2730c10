#include "os/message_window.h"

#include "tessel/platform/host.h"

namespace kro::tessel::message_loop {

void run() {
    os::message_windows().run();
}

bool run_until(const std::function<bool()>& done, std::uint32_t milliseconds) {
    return os::message_windows().run_until(done, milliseconds);
}

void quit() {
    os::message_windows().quit();
}

bool pump() {
    return os::message_windows().pump();
}

}  // namespace kro::tessel::message_loop
