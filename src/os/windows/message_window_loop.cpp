#include "os/windows/message_window_loop.h"

#include "os/thread.h"
#include "os/windows/kept_last_error.h"

#include <windows.h>

#include <utility>

namespace kro::tessel::os {
namespace {

/// Messages of one `pump`: a procedure that always posts again can't hold it for ever.
constexpr int k_max_pumped = 64'000;

// Not the system's own "quit", which would come only when nothing else waits any more.
thread_local bool* t_innermost_run = nullptr;  // set to true, it ends
thread_local bool t_quit_waits = false;        // `quit` came while nothing ran

// Delivers the message. False: it asks the host's whole thread to end, and is left for its outermost loop.
bool dispatch(const MSG& message) {
    if (message.message == WM_QUIT) {
        ::PostQuitMessage(static_cast<int>(message.wParam));
        return false;
    }
    ::TranslateMessage(&message);
    ::DispatchMessageW(&message);
    return true;
}

enum class delivery { one, none, thread_ends };

delivery deliver_one() {
    MSG message;
    if (::PeekMessageW(&message, nullptr, 0, 0, PM_REMOVE) == FALSE) {
        return delivery::none;
    }
    return dispatch(message) ? delivery::one : delivery::thread_ends;
}

void wait_for_messages(std::uint32_t milliseconds) {
    ::MsgWaitForMultipleObjectsEx(0, nullptr, milliseconds, QS_ALLINPUT, MWMO_INPUTAVAILABLE);
}

/// What is left of a time limit.
class countdown {
public:
    explicit countdown(std::uint32_t milliseconds) : m_limit(milliseconds), m_start(tick_count()) {}
    std::uint32_t left() const {
        const std::uint32_t passed = tick_count() - m_start;
        return m_limit == k_infinite ? k_infinite : m_limit - (passed < m_limit ? passed : m_limit);
    }

private:
    std::uint32_t m_limit;
    std::uint32_t m_start;
};

}  // namespace

void run_loop() {
    const kept_last_error kept;
    bool ended = std::exchange(t_quit_waits, false);
    bool* const outer = std::exchange(t_innermost_run, &ended);
    while (!ended) {
        const delivery outcome = deliver_one();
        if (outcome == delivery::none) {
            wait_for_messages(k_infinite);
        }
        ended = ended || outcome == delivery::thread_ends;
    }
    t_innermost_run = outer;
}

bool run_loop_until(const std::function<bool()>& done, std::uint32_t milliseconds) {
    const kept_last_error kept;
    const countdown time(milliseconds);
    while (!done()) {
        const delivery outcome = deliver_one();
        if (outcome == delivery::one) {
            continue;
        }
        const std::uint32_t left = time.left();
        if (outcome == delivery::thread_ends || left == 0) {
            return false;
        }
        wait_for_messages(left);
    }
    return true;
}

void quit_loop() {
    (t_innermost_run != nullptr ? *t_innermost_run : t_quit_waits) = true;
}

bool pump_loop() {
    const kept_last_error kept;
    bool delivered = false;
    for (int count = 0; count < k_max_pumped && deliver_one() == delivery::one; ++count) {
        delivered = true;
    }
    return delivered;
}

}  // namespace kro::tessel::os
