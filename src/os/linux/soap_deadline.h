// An end for exchanges that a server would draw out: time-outs of the HTTP service start anew with each byte.
#pragma once

#include "os/inet.h"

#include <cstdint>

namespace kro::tessel::os {

/// Closes a handle, and with it ends the call that waits on it, unless stopped in time. One thread, started
/// with the first deadline, watches all of them; in a process that was forked nobody does.
class closing_deadline {
public:
    /// milliseconds: 0 for none.
    closing_deadline(inet_handle handle, std::uint32_t milliseconds);
    closing_deadline(const closing_deadline&) = delete;
    closing_deadline& operator=(const closing_deadline&) = delete;
    ~closing_deadline() { stop(); }

    /// Nothing is closed after this has returned. True when the handle was, and is nobody's any more.
    bool stop();

private:
    std::uint64_t m_number = 0;  // 0: stopped, or none
    bool m_has_passed = false;
};

}  // namespace kro::tessel::os
