// Names of keys and values as the store keeps them, and paths of keys.
#pragma once

#include "tessel/base/types.h"

#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

/// A name's upper case as bytes that sort like its units: the high byte of each comes first.
std::string folded_name(std::basic_string_view<wchar> name);

/// A name's units as bytes, as they stand in memory. Lent.
inline std::string_view bytes_of(std::basic_string_view<wchar> name) noexcept {
    return {reinterpret_cast<const char*>(name.data()), name.size() * sizeof(wchar)};
}

/// A value's name, null for "". Throws registry_failure when it is too long.
std::basic_string_view<wchar> value_name(const wchar* name);

/// One key of a path.
struct key_step {
    std::basic_string_view<wchar> name;
    std::string folded;
};

/// The keys of a path from the first one down, null for "". The names are lent from it. Throws
/// registry_failure when it begins with a backslash or a name is too long.
std::vector<key_step> steps_of(const wchar* path);

}  // namespace kro::tessel::os
