// How a call of the registry ends early.
#pragma once

#include <cstdint>

namespace kro::tessel::os {

/// Thrown inside the registry; registry.cpp turns it into the call's result.
struct registry_failure {
    std::int32_t status;
    bool of_connection = false;  ///< the next call opens the store anew
};

/// What becomes of a result of SQLite's that is no success.
registry_failure failure_of(int sqlite_result) noexcept;

/// What becomes of an `errno` of making or looking at the store's file.
registry_failure failure_of_file(int error) noexcept;

}  // namespace kro::tessel::os
