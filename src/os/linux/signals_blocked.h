// Threads of the library leave signals to those of the host.
#pragma once

#include <pthread.h>

#include <csignal>

namespace kro::tessel::os {

/// A thread that is made while this lives runs no signal handler.
class all_signals_blocked {
public:
    all_signals_blocked() {
        sigset_t all;
        ::sigfillset(&all);
        ::pthread_sigmask(SIG_SETMASK, &all, &m_before);
    }
    all_signals_blocked(const all_signals_blocked&) = delete;
    all_signals_blocked& operator=(const all_signals_blocked&) = delete;
    ~all_signals_blocked() { ::pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }

private:
    sigset_t m_before{};
};

}  // namespace kro::tessel::os
