// For calls that leave the thread's last error alone when they succeed, as those of the system needn't.
#pragma once

#include "os/thread.h"

namespace kro::tessel::os {

/// Brings back the last error that held when it was made, unless another one was `set` meanwhile.
class kept_last_error {
public:
    kept_last_error() noexcept : m_error(last_error()) {}
    ~kept_last_error() { set_last_error(m_error); }
    kept_last_error(const kept_last_error&) = delete;
    kept_last_error& operator=(const kept_last_error&) = delete;

    void set(std::uint32_t error) noexcept { m_error = error; }

private:
    std::uint32_t m_error;
};

}  // namespace kro::tessel::os
