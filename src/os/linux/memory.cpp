#include "os/memory.h"

#include <sys/mman.h>

#include <cstdint>
#include <cstdlib>

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

// The C library cuts small blocks from the end of its heap and lets that grow by 128 KiB at a time, so that
// no large page ever fits. A block as large as all of them makes it grow at once, and freed it stays the
// heap's end for them. The first such block may get a mapping of its own; having freed it, the library takes
// the next one of its size from the heap.
void expect_blocks(std::size_t bytes) noexcept {
    for (int i = 0; i < 2; ++i) {
        void* const all = std::malloc(bytes);
        if (all != nullptr) {
            expect_to_fill(all, bytes);
        }
        std::free(all);
    }
}

}  // namespace kro::tessel::os
