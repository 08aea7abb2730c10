// Numbers as the lists and the registry have them.
#pragma once

#include "tessel/base/types.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace kro::tessel::proxy {

/// The digits behind white space, up to the first other unit; 0 without a digit, `largest` when it would be
/// more.
constexpr std::uint32_t decimal(std::basic_string_view<wchar> text, std::uint32_t largest) noexcept {
    std::size_t at = 0;
    while (at < text.size() && (text[at] == ' ' || (text[at] >= '\t' && text[at] <= '\r'))) {
        ++at;
    }
    std::uint64_t number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = std::min<std::uint64_t>(number * 10 + static_cast<std::uint64_t>(text[at] - '0'), largest);
    }
    return static_cast<std::uint32_t>(number);
}

}  // namespace kro::tessel::proxy
