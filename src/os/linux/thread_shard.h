// What many threads use all the time lies in several parts, each for some of the threads: a lock that nobody
// waits for still costs, if the processor of another thread had it last.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kro::tessel::os {

inline constexpr std::uint32_t k_thread_shards = 8;

/// What processors pass to each other at once, in bytes: parts lie that far apart.
inline constexpr std::size_t k_processor_line = 64;

/// The calling thread's part. Threads get them in turn.
std::uint32_t own_shard() noexcept;

}  // namespace kro::tessel::os
