// Sixteen ASCII characters at a time, with the instructions that every x86-64 processor has.
#pragma once

#include "tessel/base/types.h"

#include <emmintrin.h>

#include <cstddef>

namespace kro::tessel::os {

inline constexpr std::ptrdiff_t k_ascii_block = 16;

/// How many of the lowest bits are clear; 16 when none is set.
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

/// Writes 16 units from 16 bytes. Returns how many of them, from the first on, are right: the ASCII ones
/// up to the first that isn't.
inline unsigned widen_ascii_block(const char* from, wchar* to) {
    const __m128i bytes = load_bytes(from);
    store_widened(bytes, to);
    return clear_bits(_mm_movemask_epi8(bytes));
}

/// Writes 16 bytes from 16 units; the same result.
inline unsigned narrow_ascii_block(const wchar* from, char* to) {
    const __m128i low = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from));
    const __m128i high = _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + 8));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_packus_epi16(low, high));
    const __m128i above = _mm_set1_epi16(static_cast<short>(0xFF80U));
    const __m128i zero = _mm_setzero_si128();
    const __m128i is_ascii = _mm_packs_epi16(_mm_cmpeq_epi16(_mm_and_si128(low, above), zero),
                                             _mm_cmpeq_epi16(_mm_and_si128(high, above), zero));
    return clear_bits(_mm_movemask_epi8(is_ascii) ^ 0xFFFF);
}

}  // namespace kro::tessel::os
