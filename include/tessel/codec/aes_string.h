// Texts that only somebody with the same key can read back. The three functions differ in the key alone.
#pragma once

#include <tessel/base/string.h>

/// Encrypts a text to upper-case hexadecimal digits, or decrypts such digits.
///
/// The cipher is AES (FIPS 197) with a 256-bit key in CBC mode, with a fixed initialisation vector: the same
/// text always gives the same digits. The bytes that are encrypted are the text's in the ANSI code page (see
/// set_ansi_code_page); a character that the page lacks becomes its best fit or "?" and doesn't come back.
/// They are filled up with zeros to whole blocks of 16: 32 digits a block, no more for a text that fills its
/// last one. A text ends at its first zero character, in both directions.
///
/// in:      with `flag` 0 digits of either case. A character that is no hexadecimal digit counts as 0.
/// out:     replaced by the result, or left as it was on failure. May be `in`.
/// flag:    1 encrypts, 0 decrypts. Any other value prepares and writes as for 1 but runs the cipher as
///          for 0: the result means nothing.
/// Returns: 1, or 0 when
///          - there are digits to decrypt and their number is no multiple of 16 (not 32: half a block at the
///            end is decrypted as if zeros followed it),
///          - memory runs out, or the system's AES can't be used.
///          A wrong key or digits that were tampered with aren't noticed: the result is some text.
///          No characters give none, whatever the flag.
/// Thread:  any.
TESSEL_API int RZV_AES_Encrypt(const kro::tessel::CTString& in, kro::tessel::CTString& out, int flag);
TESSEL_API int AVScan_AES_Encrypt(const kro::tessel::CTString& in, kro::tessel::CTString& out, int flag);
TESSEL_API int SSOInfo_AES_Encrypt(const kro::tessel::CTString& in, kro::tessel::CTString& out, int flag);
