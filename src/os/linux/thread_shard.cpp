#include "os/linux/thread_shard.h"

#include <atomic>

namespace kro::tessel::os {

std::uint32_t own_shard() noexcept {
    static std::atomic<std::uint32_t> next{0};
    thread_local const std::uint32_t own = next.fetch_add(1, std::memory_order_relaxed) % k_thread_shards;
    return own;
}

}  // namespace kro::tessel::os
