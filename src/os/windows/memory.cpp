#include "os/memory.h"

namespace kro::tessel::os {

// Large pages have to be asked for at allocation here, and need a privilege.
void expect_to_fill(void*, std::size_t) noexcept {}

void expect_blocks(std::size_t) noexcept {}

}  // namespace kro::tessel::os
