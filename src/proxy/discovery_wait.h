// How long a query still waits for an answer that is under way.
#pragma once

#include <cstdint>

namespace kro::tessel::proxy {

/// All in ms. Ticks wrap, their differences don't care. Never 0: an answer that comes just now is still
/// taken.
constexpr std::uint32_t remaining_wait(std::uint32_t limit, std::uint32_t now, std::uint32_t asked) noexcept {
    const std::uint32_t elapsed = now - asked;
    return elapsed < limit ? limit - elapsed : 1;
}

}  // namespace kro::tessel::proxy
