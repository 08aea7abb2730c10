// ASCII characters, sixteen at a time, with the instructions that every x86-64 processor has.
#pragma once

#include "tessel/base/types.h"

#include <emmintrin.h>

#include <cstddef>
#include <cstdint>

namespace kro::tessel::os {

inline constexpr std::ptrdiff_t k_ascii_block = 16;
inline constexpr std::ptrdiff_t k_ascii_step = 4 * k_ascii_block;

/// How many of the lowest bits are clear; 16 when none of 16 is set.
inline unsigned clear_bits(int mask) {
    return static_cast<unsigned>(__builtin_ctz(static_cast<unsigned>(mask) | 0x10000U));
}

/// Zero-extends 16 bytes into 16 units.
inline void store_widened(__m128i bytes, wchar* to) {
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_unpacklo_epi8(bytes, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 8), _mm_unpackhi_epi8(bytes, zero));
}

inline __m128i load_bytes(const char* from) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
}

inline __m128i load_units(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

/// Writes 64 units from 64 bytes if all are ASCII; else writes nothing and returns false.
inline bool widen_ascii_step(const char* from, wchar* to) {
    const __m128i blocks[] = {load_bytes(from), load_bytes(from + 16), load_bytes(from + 32),
                              load_bytes(from + 48)};
    const __m128i all = _mm_or_si128(_mm_or_si128(blocks[0], blocks[1]), _mm_or_si128(blocks[2], blocks[3]));
    if (_mm_movemask_epi8(all) != 0) {
        return false;
    }
    for (const __m128i& block : blocks) {
        store_widened(block, to);
        to += k_ascii_block;
    }
    return true;
}

/// Widens ASCII characters until one isn't, or fewer than 16 bytes are left. Whole blocks are written, so
/// `to` needs room for end - from units.
/// Returns: how many were converted.
inline std::ptrdiff_t widen_ascii(const char* from, const char* end, wchar* to) {
    const char* const first = from;
    while (end - from >= k_ascii_step && widen_ascii_step(from, to)) {
        from += k_ascii_step;
        to += k_ascii_step;
    }
    while (end - from >= k_ascii_block) {
        const __m128i bytes = load_bytes(from);
        store_widened(bytes, to);
        const int others = _mm_movemask_epi8(bytes);
        if (others != 0) {
            return from + clear_bits(others) - first;
        }
        from += k_ascii_block;
        to += k_ascii_block;
    }
    return from - first;
}

/// Writes 16 bytes from 16 units. Returns how many of them, from the first on, are right: the ASCII ones up
/// to the first that isn't.
inline unsigned narrow_ascii_block(const wchar* from, char* to) {
    const __m128i low = load_units(from);
    const __m128i high = load_units(from + 8);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(low, high));
    const __m128i above = _mm_set1_epi16(static_cast<short>(0xFF80U));
    const __m128i zero = _mm_setzero_si128();
    const __m128i is_ascii = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(low, above), zero),
                                             _mm_cmpeq_epi16(_mm_and_si128(high, above), zero));
    return clear_bits(_mm_movemask_epi8(is_ascii) ^ 0xFFFF);
}

/// widen_ascii from units to bytes; `to` needs room for end - from bytes.
inline std::ptrdiff_t narrow_ascii(const wchar* from, const wchar* end, char* to) {
    const wchar* const first = from;
    while (end - from >= k_ascii_block) {
        const unsigned right = narrow_ascii_block(from, to);
        if (right != k_ascii_block) {
            return from + right - first;
        }
        from += k_ascii_block;
        to += k_ascii_block;
    }
    return from - first;
}

/// Writes 16 bytes from 16 numbers below 256. False when one of them is 0.
inline bool pack_nonzero_block(const std::uint16_t* from, char* to) {
    const __m128i low = load_units(from);
    const __m128i high = load_units(from + 8);
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(low, high));
    return _mm_movemask_epi8(_mm_or_si128(_mm_cmpeq_epi16(low, zero), _mm_cmpeq_epi16(high, zero))) == 0;
}

}  // namespace kro::tessel::os
