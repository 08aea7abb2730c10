// Where the library's own exceptions end and become the thread's last error.
#pragma once

#include "tessel/platform/exception.h"
#include "tessel/platform/last_error.h"

#include <cstdint>
#include <new>
#include <utility>

namespace kro::tessel::exception {

/// Runs `body`. An internal_errno_exception that escapes it becomes the thread's last error, an
/// internal_exception changes nothing; either way the caller goes on as if the body had ended. Any other
/// exception passes.
template <class Body>
void run_at_boundary(Body&& body) {
    try {
        std::forward<Body>(body)();
    } catch (const internal_errno_exception& failure) {
        set_last_error(failure.error);
    } catch (const internal_exception&) {
        // Carries no number: whatever the last error is, stands.
    }
}

/// The numbers of what a run can't know better.
inline constexpr std::uint32_t k_error_no_memory = 8;
inline constexpr std::uint32_t k_error_internal = 1359;

/// Runs `body` and gives the number of the exception that escaped it, 0 for none: an
/// internal_errno_exception's own, 8 for std::bad_alloc, 1359 for all others, a host's among them.
template <class Body>
std::uint32_t number_of(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
        return 0;
    } catch (const internal_errno_exception& failure) {
        return failure.error != 0 ? failure.error : k_error_internal;
    } catch (const std::bad_alloc&) {
        return k_error_no_memory;
    } catch (...) {
        return k_error_internal;
    }
}

}  // namespace kro::tessel::exception
