// The host's main thread: the one that loaded the library.
#pragma once

#include <tessel/base/types.h>

/// The id of the thread that loaded the library (the system's thread id, 32 bits). Any thread.
TESSEL_API unsigned long GetMainThreadId();

/// What the system's "current thread" call gave in the loading thread: the pseudo-handle -2, which always
/// denotes the thread that uses it (kept: compare thread ids with GetMainThreadId instead).
TESSEL_API void* GetMainThread();
