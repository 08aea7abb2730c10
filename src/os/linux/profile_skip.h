// Most lines of an INI file are of no interest to somebody who looks for one key: how they are passed over
// fast.
#pragma once

#include "tessel/base/types.h"

#include <algorithm>
#include <cstddef>
#include <type_traits>

namespace kro::tessel::os {

template <class Unit>
constexpr bool is_blank(Unit unit) {
    return unit == Unit(' ') || unit == Unit('\t');
}

/// Which lines are of interest: those that begin with "[" or a blank, and those that can have a key of this
/// length and last character.
struct line_filter {
    std::size_t length = 0;  ///< 0: all lines
    char lower = 0;
    char upper = 0;

    /// end: where its end of line stands.
    template <class Unit>
    bool passes(const Unit* line, const Unit* end) const {
        if (*line == Unit('[') || is_blank(*line)) {
            return true;
        }
        if (static_cast<std::size_t>(end - line) < length) {
            return false;
        }
        const Unit last = line[length - 1];
        const auto behind = static_cast<std::make_unsigned_t<Unit>>(line[length]);
        return (last == Unit(lower) || last == Unit(upper)) && (behind == '=' || behind <= ' ');
    }
};

/// The first CR or LF, or `end`.
template <class Unit>
const Unit* find_line_end(const Unit* from, const Unit* end) {
    return std::find_if(from, end, [](Unit unit) { return unit == Unit('\r') || unit == Unit('\n'); });
}

/// The first line that passes, or the last one if it has no end; lines begin at `at`.
template <class Unit>
const Unit* skip_lines(const Unit* at, const Unit* end, const line_filter& filter) {
    if (filter.length != 0) {
        const Unit* line_end = find_line_end(at, end);
        while (line_end != end && !filter.passes(at, line_end)) {
            at = line_end + 1;
            line_end = find_line_end(at, end);
        }
    }
    return at;
}

/// The same for bytes, 16 or 32 at a time.
template <>
const char* find_line_end(const char* from, const char* end);
template <>
const char* skip_lines(const char* at, const char* end, const line_filter& filter);

}  // namespace kro::tessel::os
