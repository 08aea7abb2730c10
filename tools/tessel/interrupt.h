// Interrupts (Ctrl-C and other requests to end) that end a transfer and not the program.
#pragma once

#include <functional>

namespace command {

/// While it lives, the first interrupt calls a function and a second one ends the program. One at a time.
class interrupt_watch {
public:
    /// stop: called once at most, on a thread of its own.
    explicit interrupt_watch(std::function<void()> stop);
    interrupt_watch(const interrupt_watch&) = delete;
    interrupt_watch& operator=(const interrupt_watch&) = delete;
    ~interrupt_watch();

    /// The exit code that tells of the interrupt; 0 when there was none.
    static int exit_code();
};

}  // namespace command
