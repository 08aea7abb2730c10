// Where the library's own exceptions end and become the thread's last error.
#pragma once

#include "tessel/platform/exception.h"
#include "tessel/platform/last_error.h"

#include <cstdint>
#include <new>
#include <utility>

namespace kro::tessel::exception {

/// The numbers of what a run can't know better.
inline constexpr std::uint32_t k_error_no_memory = 8;
inline constexpr std::uint32_t k_error_internal = 1359;

/// Runs `body` and gives the number of the exception that escaped it: an internal_errno_exception's own, 8
/// for std::bad_alloc, 1359 for all others, a host's among them. For an internal_exception, which carries
/// none, it is the thread's last error, as it stands. 0 without an exception.
template <class Body>
std::uint32_t number_of(Body&& body) noexcept {
    try {
        std::forward<Body>(body)();
        return 0;
    } catch (const internal_errno_exception& failure) {
        return failure.error != 0 ? failure.error : k_error_internal;
    } catch (const internal_exception&) {
        return static_cast<std::uint32_t>(get_last_error());
    } catch (const std::bad_alloc&) {
        return k_error_no_memory;
    } catch (...) {
        return k_error_internal;
    }
}

}  // namespace kro::tessel::exception
