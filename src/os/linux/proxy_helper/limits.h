// What keeps the helper from doing harm: it may not outlive its host, nor take the machine's memory.
#pragma once

#include <chrono>

namespace kro::tessel::os {

/// The kernel ends this process with the thread that started it, and at once if that is over already. A host
/// that is killed can't close the socket of a helper that doesn't look at it, nor can one whose copy (a fork)
/// still holds the other end.
void end_with_host();

/// Takes away what no script needs, and what would lead libproxy and the script engine elsewhere.
void settle_environment();

/// From here on this process may take 256 MiB more. The script engine must have started: it reserves
/// addresses for gigabytes that it never uses, which is why these aren't what is limited.
void limit_memory();

/// The kernel ends this process after so long, unless the object is gone by then: the library does so
/// earlier, unless it is gone itself.
class time_limit {
public:
    explicit time_limit(std::chrono::milliseconds limit);
    time_limit(const time_limit&) = delete;
    time_limit& operator=(const time_limit&) = delete;
    ~time_limit();
};

}  // namespace kro::tessel::os
