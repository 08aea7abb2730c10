// Periodic timers by number, delivered to delegates on the thread that runs the host's message loop.
#pragma once

#include <tessel/base/types.h>
#include <tessel/platform/fast_delegate.h>

namespace kro::tessel::timer {

/// Starts a timer that calls `callback` with its number every `elapse` milliseconds until it is killed.
///
/// id:       chosen by the host. 0 works; its result is 1.
/// elapse:   milliseconds, taken into [10, 0x7FFFFFFF]. A call never comes early; calls that could not be
///           made in time are left out, not made up for.
/// callback: copied. It may start and kill timers, its own too; kill the timer before its object goes. It
///           must not throw: the loop that calls it is the system's.
/// Returns:  the number, or 0 when a timer with this number runs already (it is left as it is) or the
///           system gave no timer (the thread's last error says why).
/// Thread:   one thread only, the one that makes the first call; the calls come on it, inside its message
///           loop (on Linux any loop that turns the thread's default GLib context).
TESSEL_API unsigned int _addtimer(unsigned int id, unsigned int elapse,
                                  delegate::FastDelegate1<unsigned int> callback);

/// Ends a timer and forgets its delegate, which isn't called any more, not even when it was due. A number
/// that isn't in use is fine.
/// Returns: always true.
/// Thread:  that of _addtimer.
TESSEL_API bool _killtimer(unsigned int id);

}  // namespace kro::tessel::timer
