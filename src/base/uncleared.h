// Text that grows without being cleared first, for whoever writes all of it anyway: clearing is a pass over
// memory that costs as much as many a conversion.
#pragma once

#include <cstddef>
#include <string>

namespace kro::tessel {

/// Appends what `fill` writes.
/// most: units there is room for.
/// fill: gets the place, writes and returns the number of units that it has written. Must not throw.
/// Only a file that is compiled as C++23 saves the clearing.
template <class Text, class Fill>
void append_uncleared(Text& text, std::size_t most, Fill&& fill) {
    const std::size_t old = text.size();
#if defined(__cpp_lib_string_resize_and_overwrite)
    text.resize_and_overwrite(old + most, [&](auto* units, std::size_t) { return old + fill(units + old); });
#else
    text.resize(old + most);
    text.resize(old + fill(text.data() + old));
#endif
}

}  // namespace kro::tessel
