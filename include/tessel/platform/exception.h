// The exceptions that carry an error number from deep code to the boundary that turns it into the
// thread's last error. They never leave the library.
#pragma once

#include <tessel/platform/last_error.h>

#include <cstdint>

namespace kro::tessel::exception {

/// Thrown nowhere; boundaries catch it beside the others.
class internal_exception {};

/// An argument is invalid; usually 87.
class internal_errno_exception {
public:
    explicit internal_errno_exception(std::uint32_t number) noexcept : error(number) {}
    std::uint32_t error;
};

/// A platform call failed: carries the thread's last error at the point of the throw.
class internal_last_errno_exception : public internal_errno_exception {
public:
    internal_last_errno_exception() noexcept
        : internal_errno_exception(static_cast<std::uint32_t>(get_last_error())) {}
};

}  // namespace kro::tessel::exception
