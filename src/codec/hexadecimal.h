// Bytes as pairs of hexadecimal digits in wide text.
#pragma once

#include "tessel/base/types.h"

#include <cstddef>

namespace kro::tessel::codec {

/// Writes two upper-case digits for each byte.
void write_hexadecimal(const unsigned char* from, std::size_t bytes, wchar* to);

/// Reads two digits of either case for each of `bytes` bytes; a unit that is no digit counts as 0.
/// Returns: whether all were digits.
bool read_hexadecimal(const wchar* from, std::size_t bytes, unsigned char* to);

}  // namespace kro::tessel::codec
