// What the library tells the system about the memory that it uses.
#pragma once

#include <cstddef>

namespace kro::tessel::os {

/// Says that a block that was just allocated is going to be filled from its beginning on. A hint: the
/// system may then hand out its memory in large pages, which costs far less time from some megabytes on.
/// Nothing becomes resident that isn't written to, but for the rest of a large page (2 MiB).
/// Thread: any. The last error stays as it is.
void expect_to_fill(void* block, std::size_t bytes) noexcept;

/// Says that many small blocks, `bytes` in all and less than 32 MiB, are going to be allocated one after
/// another and filled. A hint like the other: the blocks are then likely to lie on large pages.
/// Thread: the one that is going to allocate. The last error stays as it is.
void expect_blocks(std::size_t bytes) noexcept;

}  // namespace kro::tessel::os
