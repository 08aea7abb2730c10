// Converting received bytes of any length to text.
#pragma once

#include "tessel/base/string.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kro::tessel::http {

/// Converts bytes of a code page in pieces of at most `longest` bytes, since one conversion can't take 2^31
/// bytes or more. No piece ends inside a character, unless a double-byte text runs through a whole piece
/// without an ASCII character.
/// longest: at least 4, even.
CTString widen_in_pieces(std::uint32_t page, std::string_view bytes, std::size_t longest);

}  // namespace kro::tessel::http
