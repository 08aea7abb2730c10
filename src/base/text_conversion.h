// Text between UTF-16 and a code page, as whole strings.
#pragma once

#include "tessel/base/types.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kro::tessel {

/// Converts bytes of a code page (0: the ANSI one, 65001: UTF-8) to UTF-16. Zero bytes are characters like
/// any other. Invalid input is replaced, never refused.
/// Returns: the text; empty, with the thread's last error 87, when the page isn't known.
/// Throws:  std::length_error for more than 2^31 - 1 bytes, std::bad_alloc.
wide_string widen(std::uint32_t page, std::string_view bytes);

/// Converts UTF-16 to bytes of a code page; what the page lacks becomes its best fit or "?".
/// Returns: the bytes; empty, with the thread's last error 87, when the page isn't known.
/// Throws:  std::length_error when there are more than 2^31 - 1 units or bytes, std::bad_alloc.
std::string narrow(std::uint32_t page, std::basic_string_view<wchar> text);

}  // namespace kro::tessel
