// ASCII text, from one form of string to the other.
#pragma once

#include "tessel/base/types.h"

#include <string>
#include <string_view>

namespace tessel_test {

inline kro::tessel::wide_string wide(std::string_view ascii) {
    return {ascii.begin(), ascii.end()};
}

/// With "?" for what isn't ASCII.
inline std::string plain(std::basic_string_view<wchar> text) {
    std::string bytes;
    for (const wchar unit : text) {
        bytes += unit < 0x80 ? static_cast<char>(unit) : '?';
    }
    return bytes;
}

}  // namespace tessel_test
