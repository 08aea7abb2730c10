// Escapes of single bytes: which bytes need one, and whole texts of bytes with theirs.
#pragma once

#include "tessel/base/types.h"

#include <cstddef>

namespace kro::tessel::codec {

/// The printable ASCII characters up to "z" that are escaped; all bytes below 33 or above 122 are as well.
inline constexpr wchar k_unsafe_characters[] = TESSEL_W("\"<>%\\^[]`+$,@:;/!#?=&");

inline constexpr char k_hexadecimal_digits[] = "0123456789ABCDEF";

inline constexpr std::size_t k_escape_size = 3;
/// What escape_bytes may write behind the end of its result.
inline constexpr std::size_t k_escape_slack = 16;

/// Writes each byte, or "%" and its two digits. `to` needs room for count * k_escape_size + k_escape_slack.
/// Returns: the end of the result.
char* escape_bytes(const unsigned char* from, std::size_t count, char* to);

std::size_t count_unsafe_bytes(const unsigned char* from, std::size_t count);

}  // namespace kro::tessel::codec
