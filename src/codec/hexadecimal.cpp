#include "codec/hexadecimal.h"

#include "codec/vectors.h"

#if defined(TESSEL_HAS_VECTORS)
#include <immintrin.h>
#elif defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace kro::tessel::codec {
namespace {

constexpr char k_digits[] = "0123456789ABCDEF";
constexpr unsigned k_no_digit = 16;

unsigned value_of(wchar unit) {
    const unsigned number = unit;
    const unsigned lower = number | 0x20U;
    if (number >= '0' && number <= '9') {
        return number - '0';
    }
    return lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : k_no_digit;
}

// All return how many bytes they have done: as many as fit their vectors and, when reading, up to the first
// that isn't written in digits.
#if defined(__SSE2__)

__m128i load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

void store_digits(__m128i values, wchar* to) {
    const __m128i letters =
        _mm_and_si128(_mm_cmpgt_epi8(values, _mm_set1_epi8(9)), _mm_set1_epi8('A' - '0' - 10));
    const __m128i digits = _mm_add_epi8(_mm_add_epi8(values, _mm_set1_epi8('0')), letters);
    const __m128i zero = _mm_setzero_si128();
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_unpacklo_epi8(digits, zero));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to + 8), _mm_unpackhi_epi8(digits, zero));
}

std::size_t write_by_16(const unsigned char* from, std::size_t bytes, wchar* to) {
    const __m128i low_bits = _mm_set1_epi8(15);
    std::size_t done = 0;
    for (; bytes - done >= 16; done += 16) {
        const __m128i block = load(from + done);
        const __m128i high = _mm_and_si128(_mm_srli_epi16(block, 4), low_bits);
        const __m128i low = _mm_and_si128(block, low_bits);
        store_digits(_mm_unpacklo_epi8(high, low), to + 2 * done);
        store_digits(_mm_unpackhi_epi8(high, low), to + 2 * done + 16);
    }
    return done;
}

// Digits of either case as their values; anything else as more than 15.
__m128i values_of(__m128i text) {
    // "0" to "9" are moved to the top of all bytes and then, what is below them held back, to 0 to 9.
    const __m128i at_top = _mm_add_epi8(text, _mm_set1_epi8(static_cast<char>(0xFF - '9')));
    const __m128i digits =
        _mm_sub_epi8(_mm_subs_epu8(at_top, _mm_set1_epi8(6)), _mm_set1_epi8(static_cast<char>(0xF0)));
    const __m128i upper = _mm_and_si128(text, _mm_set1_epi8(static_cast<char>(0xDF)));
    const __m128i letters = _mm_adds_epu8(_mm_sub_epi8(upper, _mm_set1_epi8('A')), _mm_set1_epi8(10));
    return _mm_min_epu8(digits, letters);
}

// Pairs of values as one byte in 16 bits each.
__m128i joined(__m128i values) {
    return _mm_or_si128(_mm_slli_epi16(_mm_and_si128(values, _mm_set1_epi16(15)), 4),
                        _mm_srli_epi16(values, 8));
}

std::size_t read_by_16(const wchar* from, std::size_t bytes, unsigned char* to) {
    std::size_t done = 0;
    for (; bytes - done >= 16; done += 16) {
        const wchar* const block = from + 2 * done;
        // Units above 0xFF become 0 or 0xFF, which are no digits.
        const __m128i front = values_of(_mm_packus_epi16(load(block), load(block + 8)));
        const __m128i back = values_of(_mm_packus_epi16(load(block + 16), load(block + 24)));
        const __m128i above_15 = _mm_adds_epu8(_mm_max_epu8(front, back), _mm_set1_epi8(127 - 15));
        if (_mm_movemask_epi8(above_15) != 0) {
            break;
        }
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + done),
                         _mm_packus_epi16(joined(front), joined(back)));
    }
    return done;
}

#else

std::size_t write_by_16(const unsigned char* /*from*/, std::size_t /*bytes*/, wchar* /*to*/) {
    return 0;
}

std::size_t read_by_16(const wchar* /*from*/, std::size_t /*bytes*/, unsigned char* /*to*/) {
    return 0;
}

#endif

#if defined(TESSEL_HAS_VECTORS)

// The steps of read_by_16, in both halves of wider vectors.
TESSEL_PIECE(TESSEL_AVX2) __m256i load_wide(const void* from) {
    return _mm256_loadu_si256(static_cast<const __m256i*>(from));
}

TESSEL_PIECE(TESSEL_AVX2) __m256i values_of(const wchar* from) {
    const __m256i text = _mm256_packus_epi16(load_wide(from), load_wide(from + 16));
    const __m256i at_top = _mm256_add_epi8(text, _mm256_set1_epi8(static_cast<char>(0xFF - '9')));
    const __m256i digits = _mm256_sub_epi8(_mm256_subs_epu8(at_top, _mm256_set1_epi8(6)),
                                           _mm256_set1_epi8(static_cast<char>(0xF0)));
    const __m256i upper = _mm256_and_si256(text, _mm256_set1_epi8(static_cast<char>(0xDF)));
    const __m256i letters =
        _mm256_adds_epu8(_mm256_sub_epi8(upper, _mm256_set1_epi8('A')), _mm256_set1_epi8(10));
    return _mm256_min_epu8(digits, letters);
}

TESSEL_AVX2 std::size_t read_by_32(const wchar* from, std::size_t bytes, unsigned char* to) {
    std::size_t done = 0;
    for (; bytes - done >= 32; done += 32) {
        const __m256i front = values_of(from + 2 * done);
        const __m256i back = values_of(from + 2 * done + 32);
        const __m256i above_15 = _mm256_adds_epu8(_mm256_max_epu8(front, back), _mm256_set1_epi8(127 - 15));
        if (_mm256_movemask_epi8(above_15) != 0) {
            break;
        }
        const __m256i weights = _mm256_set1_epi16(0x0110);
        const __m256i joined =
            _mm256_packus_epi16(_mm256_maddubs_epi16(front, weights), _mm256_maddubs_epi16(back, weights));
        // Packing by halves has left the fours of bytes in this order.
        const __m256i order = _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7);
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + done),
                            _mm256_permutevar8x32_epi32(joined, order));
    }
    _mm256_zeroupper();
    return done;
}

bool has_wide_vectors() {
    static const bool has = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("avx2") != 0;
    }();
    return has;
}

std::size_t read_by_vectors(const wchar* from, std::size_t bytes, unsigned char* to) {
    const std::size_t done = has_wide_vectors() ? read_by_32(from, bytes, to) : 0;
    return done + read_by_16(from + 2 * done, bytes - done, to + done);
}

#else

std::size_t read_by_vectors(const wchar* from, std::size_t bytes, unsigned char* to) {
    return read_by_16(from, bytes, to);
}

#endif

}  // namespace

void write_hexadecimal(const unsigned char* from, std::size_t bytes, wchar* to) {
    for (std::size_t i = write_by_16(from, bytes, to); i < bytes; ++i) {
        to[2 * i] = static_cast<wchar>(k_digits[from[i] >> 4U]);
        to[2 * i + 1] = static_cast<wchar>(k_digits[from[i] & 15U]);
    }
}

bool read_hexadecimal(const wchar* from, std::size_t bytes, unsigned char* to) {
    bool are_digits = true;
    for (std::size_t i = read_by_vectors(from, bytes, to); i < bytes; ++i) {
        const unsigned first = value_of(from[2 * i]);
        const unsigned second = value_of(from[2 * i + 1]);
        are_digits = are_digits && first != k_no_digit && second != k_no_digit;
        to[i] = static_cast<unsigned char>((first & 15U) << 4U | (second & 15U));
    }
    return are_digits;
}

}  // namespace kro::tessel::codec
