#include "profile_skip.h"

#include <immintrin.h>

#include <cstdint>

namespace kro::tessel::os {
namespace {

/// Which of 32 bytes are CR or LF.
std::uint32_t line_end_bits(const char* block) {
    std::uint32_t bits = 0;
    for (std::size_t half = 0; half < 2; ++half) {
        const __m128i bytes = _mm_loadu_si128(reinterpret_cast<const __m128i*>(block) + half);
        const __m128i ends = _mm_or_si128(_mm_cmpeq_epi8(bytes, _mm_set1_epi8('\r')),
                                          _mm_cmpeq_epi8(bytes, _mm_set1_epi8('\n')));
        bits |= static_cast<std::uint32_t>(_mm_movemask_epi8(ends)) << (16 * half);
    }
    return bits;
}

__attribute__((target("avx2"))) std::uint32_t line_end_bits_avx2(const char* block) {
    const __m256i bytes = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(block));
    const __m256i ends = _mm256_or_si256(_mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('\r')),
                                         _mm256_cmpeq_epi8(bytes, _mm256_set1_epi8('\n')));
    return static_cast<std::uint32_t>(_mm256_movemask_epi8(ends));
}

constexpr std::ptrdiff_t k_block = 32;

}  // namespace

// The loops are the same twice: a function for the wider instructions is only joined with a caller for them.
template <>
const char* find_line_end(const char* from, const char* end) {
    for (; end - from >= k_block; from += k_block) {
        if (const std::uint32_t bits = line_end_bits(from); bits != 0) {
            return from + __builtin_ctz(bits);
        }
    }
    return std::find_if(from, end, [](char unit) { return unit == '\r' || unit == '\n'; });
}

namespace {

const char* skip_plain(const char* at, const char* end, const line_filter& filter) {
    // Every bit of a block is the end of a line that began in it or before.
    for (const char* block = at; end - block >= k_block; block += k_block) {
        for (std::uint32_t bits = line_end_bits(block); bits != 0; bits &= bits - 1) {
            const char* const line_end = block + __builtin_ctz(bits);
            if (filter.passes(at, line_end)) {
                return at;
            }
            at = line_end + 1;
        }
    }
    return at;
}

__attribute__((target("avx2"))) const char* skip_avx2(const char* at, const char* end,
                                                      const line_filter& filter) {
    for (const char* block = at; end - block >= k_block; block += k_block) {
        for (std::uint32_t bits = line_end_bits_avx2(block); bits != 0; bits &= bits - 1) {
            const char* const line_end = block + __builtin_ctz(bits);
            if (filter.passes(at, line_end)) {
                return at;
            }
            at = line_end + 1;
        }
    }
    return at;
}

}  // namespace

// What is left, less than a block behind its last line end, goes line by line.
template <>
const char* skip_lines(const char* at, const char* end, const line_filter& filter) {
    if (filter.length == 0) {
        return at;
    }
    static const auto skip_blocks = __builtin_cpu_supports("avx2") != 0 ? skip_avx2 : skip_plain;
    at = skip_blocks(at, end, filter);
    const char* line_end = find_line_end(at, end);
    while (line_end != end && !filter.passes(at, line_end)) {
        at = line_end + 1;
        line_end = find_line_end(at, end);
    }
    return at;
}

}  // namespace kro::tessel::os
