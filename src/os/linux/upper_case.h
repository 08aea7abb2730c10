// How names are compared where they match without regard to case.
#pragma once

#include "tessel/base/types.h"

#include <unicode/uchar.h>

#include <cstdint>

namespace kro::tessel::os {

/// A unit's simple upper case. Nothing but an ASCII letter becomes one, so that ASCII names can be compared
/// byte by byte and no look-alike passes for one of them; surrogates stay as they are.
inline wchar upper_case(wchar unit) noexcept {
    if (unit < 0x80) {
        return unit >= 'a' && unit <= 'z' ? static_cast<wchar>(unit - 'a' + 'A') : unit;
    }
    const UChar32 upper = u_toupper(unit);
    return upper < 0x80 || upper > 0xFFFF ? unit : static_cast<wchar>(upper);
}

}  // namespace kro::tessel::os
