#include "os/memory.h"

#include <sys/mman.h>

#include <cstdint>

namespace kro::tessel::os {
namespace {

constexpr std::uintptr_t k_large_page = 0x200000;
constexpr std::size_t k_worth_a_call = 4 * k_large_page;

}  // namespace

void expect_to_fill(void* block, std::size_t bytes) noexcept {
    if (bytes < k_worth_a_call) {
        return;
    }
    // Only the large pages that lie wholly within the block: what is beside it belongs to others.
    const auto begin = reinterpret_cast<std::uintptr_t>(block);
    const std::uintptr_t first = (begin + k_large_page - 1) & ~(k_large_page - 1);
    const std::uintptr_t last = (begin + bytes) & ~(k_large_page - 1);
    madvise(static_cast<char*>(block) + (first - begin), last - first,
            MADV_HUGEPAGE);  // fails where there are none
}

}  // namespace kro::tessel::os
