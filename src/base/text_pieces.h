// Converting bytes of any length to text.
#pragma once

#include "tessel/base/string.h"

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kro::tessel {

/// Bytes that are converted at a time: they and their text stay in the processor's nearest cache, and the
/// text needs neither a first pass for its length nor memory that is cleared only to be written over.
inline constexpr std::size_t k_text_piece = 8192;

/// Converts bytes of a code page, `piece` at a time; no piece ends inside a character.
/// piece:  at least 4.
/// Throws: std::bad_alloc, std::length_error.
CTString widen_in_pieces(std::uint32_t page, std::string_view bytes, std::size_t piece = k_text_piece);

}  // namespace kro::tessel
