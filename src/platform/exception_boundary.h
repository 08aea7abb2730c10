// Where the library's own exceptions end and become the thread's last error.
#pragma once

#include "tessel/platform/exception.h"
#include "tessel/platform/last_error.h"

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

}  // namespace kro::tessel::exception
