// The per-thread last error: the Windows error number that explains a failed call.
#pragma once

#include <tessel/base/types.h>

namespace kro::tessel {

/// Sets the calling thread's last error. 0 means success; see docs/errors.md for the numbers in use.
TESSEL_API void set_last_error(unsigned long error);

/// The calling thread's last error; 0 in a thread that had none. Read it right after the failed call:
/// any later call of the library or the platform on the same thread may replace it.
TESSEL_API unsigned long get_last_error();

}  // namespace kro::tessel
