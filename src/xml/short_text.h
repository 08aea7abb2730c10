// Names are short: hashing, comparing and copying them in place costs a third of the calls of the C library.
#pragma once

#include "tessel/base/types.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>

namespace kro::tessel::xml {

using wide_view = std::basic_string_view<wchar>;

inline constexpr std::size_t k_block_units = 4;

inline std::uint64_t block_at(const wchar* units) {
    std::uint64_t block = 0;
    std::memcpy(&block, units, sizeof(block));
    return block;
}

/// Calls visit(position) for blocks of four units that cover the whole text, the last two overlapping; or,
/// for shorter texts, rest(position) for each unit. Ends with false as soon as either does.
template <class Visit, class Rest>
inline bool for_each_block(std::size_t units, Visit visit, Rest rest) {
    if (units < k_block_units) {
        for (std::size_t at = 0; at < units; ++at) {
            if (!rest(at)) {
                return false;
            }
        }
        return true;
    }
    const std::size_t last = units - k_block_units;
    for (std::size_t at = 0; at < last; at += k_block_units) {
        if (!visit(at)) {
            return false;
        }
    }
    return visit(last);
}

/// Not against attackers: how long a search takes depends only on the names that the host registers.
inline std::uint32_t hash_of(wide_view text) {
    std::uint64_t hash = text.size();
    const auto mix = [&hash](std::uint64_t units) {
        hash = (hash ^ units) * 0x9E3779B97F4A7C15U;
        hash ^= hash >> 32U;
        return true;
    };
    for_each_block(
        text.size(), [&](std::size_t at) { return mix(block_at(text.data() + at)); },
        [&](std::size_t at) { return mix(text[at]); });
    return static_cast<std::uint32_t>(hash);
}

inline bool same_units(wide_view left, wide_view right) {
    return left.size() == right.size() &&
           for_each_block(
               left.size(),
               [&](std::size_t at) { return block_at(left.data() + at) == block_at(right.data() + at); },
               [&](std::size_t at) { return left[at] == right[at]; });
}

inline void copy_units(wide_view text, wchar* to) {
    for_each_block(
        text.size(),
        [&](std::size_t at) {
            std::memcpy(to + at, text.data() + at, k_block_units * sizeof(wchar));
            return true;
        },
        [&](std::size_t at) {
            to[at] = text[at];
            return true;
        });
}

}  // namespace kro::tessel::xml
