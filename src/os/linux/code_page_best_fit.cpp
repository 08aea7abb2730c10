#include "code_page_best_fit.h"

namespace kro::tessel::os {
namespace {

// The full-width forms have the order of ASCII.
constexpr std::uint16_t k_full_width_first = 0xFF01;
constexpr std::uint16_t k_full_width_last = 0xFF5E;
constexpr std::uint16_t k_full_width_distance = 0xFF01 - 0x21;

}  // namespace

void add_best_fit(std::uint32_t /*page*/, std::vector<std::uint16_t>& narrow) {
    for (std::uint16_t unit = k_full_width_first; unit <= k_full_width_last; ++unit) {
        if (narrow[unit] == 0) {
            narrow[unit] = static_cast<std::uint16_t>(unit - k_full_width_distance);
        }
    }
}

}  // namespace kro::tessel::os
