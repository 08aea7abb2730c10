// The look-alikes that stand for characters which a code page lacks.
#pragma once

#include <cstdint>
#include <vector>

namespace kro::tessel::os {

/// Fills the entries of `narrow` (by UTF-16 unit; 0: the page lacks it) for which the page has a look-alike.
void add_best_fit(std::uint32_t page, std::vector<std::uint16_t>& narrow);

}  // namespace kro::tessel::os
