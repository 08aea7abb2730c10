// Base64 (RFC 4648, section 4: the alphabet with "+" and "/", padded with "=") over buffers of the caller's.
// Plain functions with C names: they allocate nothing, check nothing and write no line ends and no zero.
#pragma once

#include <tessel/base/types.h>

extern "C" {

/// Fills the decoding table. Call it once before the first xbase64_decode: with the table still empty, every
/// character counts as the value 0, and decoding gives zero bytes. Calling it again changes nothing.
/// Thread:  any, while others decode too.
TESSEL_API void xbase64_init_decode_table();

/// The room that xbase64_encode needs for `len` bytes: (len / 3) * 4 + 4. When `len` is a multiple of 3, four
/// bytes of it stay free, enough for a zero of the caller's.
/// src:     not used, may be null.
TESSEL_API int xbase64_calc_encode_buf_size(char* src, int len);

/// Encodes `len` bytes. Writes exactly the characters that it returns; `dst` must have room for them.
/// src:     may be null when `len` is 0; a negative `len` counts as 0.
/// dstSize: not used.
/// Returns: characters written, 4 for each group of up to 3 bytes.
/// Thread:  any.
TESSEL_API int xbase64_encode(char* src, int len, char* dst, int dstSize);

/// Decodes whole groups of 4 characters; 1 to 3 characters behind the last whole group are ignored.
///
/// Nothing is refused, and hosts rely on it: a character outside the alphabet, bytes above 0x7F included,
/// counts as the value 0. Padding is honoured in every group, so "Zg==Zm9v" gives the four bytes "ffoo": a
/// group whose third character is "=" gives one byte, else one whose fourth is "=" two, any other three.
/// dst:     room for 3 bytes a group. Behind the bytes that a padded last group gives, one or two zeros may
///          be written. May be `src`, for decoding in place.
/// dstSize: not used.
/// Returns: bytes written, those zeros not counted.
/// Thread:  any.
TESSEL_API int xbase64_decode(char* src, int len, char* dst, int dstSize);

}  // extern "C"
