// The methods are those of "Faster Base64 Encoding and Decoding using AVX2 Instructions" (W. Mula, D. Lemire,
// ACM Transactions on the Web 12, 2018): values are cut out by multiplications and turned into characters,
// and back, by look-ups of 16 entries.
#include "codec/base64_vectors.h"

#include "codec/vectors.h"

#if defined(TESSEL_HAS_VECTORS)
#include <immintrin.h>
#endif

#include <iterator>

namespace kro::tessel::codec {
namespace {

std::size_t take_nothing(const unsigned char* /*from*/, std::size_t /*count*/, unsigned char* /*to*/) {
    return 0;
}

constexpr base64_vectors k_none = {take_nothing, take_nothing};

#if defined(TESSEL_HAS_VECTORS)

// Tables of 16 entries, looked up by the low four bits of each byte.
#define TESSEL_TABLE(name, ...) alignas(16) constexpr signed char name[16] = {__VA_ARGS__}

// The three bytes abc of each group as b a c b: both halves then hold two of its four values whole.
TESSEL_TABLE(k_spread, 1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10);
// What to add to a value to get its character: by 0 for a-z, 1 to 10 for the digits, 11 for +, 12 for /, 13
// for A-Z.
TESSEL_TABLE(k_to_character, 71, -4, -4, -4, -4, -4, -4, -4, -4, -4, -4, -19, -16, 65, 0, 0);
// A character is outside the alphabet when its two halves have a bit in common here.
TESSEL_TABLE(k_wrong_low, 0x15, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x11, 0x13, 0x1A, 0x1B, 0x1B,
             0x1B, 0x1A);
TESSEL_TABLE(k_wrong_high, 0x10, 0x10, 0x01, 0x02, 0x04, 0x08, 0x04, 0x08, 0x10, 0x10, 0x10, 0x10, 0x10, 0x10,
             0x10, 0x10);
// What to add to a character to get its value, by its high half; by 1 for "/".
TESSEL_TABLE(k_to_value, 0, 16, 19, 4, -65, -65, -71, -71, 0, 0, 0, 0, 0, 0, 0, 0);
// The three bytes of each group, front to back.
TESSEL_TABLE(k_gather, 2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1);

constexpr int k_both_halves =
    0x2F;  // with the bit that keeps a look-up from reading bit 7 of a byte as "none"

// ---- 16 bytes at a time

TESSEL_PIECE(TESSEL_SSSE3) __m128i load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

// The first 12 of 16 bytes as 16 characters.
TESSEL_PIECE(TESSEL_SSSE3) __m128i encoded(__m128i bytes) {
    const __m128i spread = _mm_shuffle_epi8(bytes, load(k_spread));
    const __m128i outer =
        _mm_mulhi_epu16(_mm_and_si128(spread, _mm_set1_epi32(0x0FC0FC00)), _mm_set1_epi32(0x04000040));
    const __m128i inner =
        _mm_mullo_epi16(_mm_and_si128(spread, _mm_set1_epi32(0x003F03F0)), _mm_set1_epi32(0x01000010));
    const __m128i values = _mm_or_si128(outer, inner);
    const __m128i above_letters = _mm_subs_epu8(values, _mm_set1_epi8(51));
    const __m128i is_upper = _mm_cmpgt_epi8(_mm_set1_epi8(26), values);
    const __m128i kind = _mm_or_si128(above_letters, _mm_and_si128(is_upper, _mm_set1_epi8(13)));
    return _mm_add_epi8(values, _mm_shuffle_epi8(load(k_to_character), kind));
}

// 16 characters as 12 bytes; false when one isn't in the alphabet.
TESSEL_PIECE(TESSEL_SSSE3) bool decoded(__m128i text, __m128i& bytes) {
    const __m128i high = _mm_and_si128(_mm_srli_epi32(text, 4), _mm_set1_epi8(k_both_halves));
    const __m128i low = _mm_and_si128(text, _mm_set1_epi8(k_both_halves));
    const __m128i wrong =
        _mm_and_si128(_mm_shuffle_epi8(load(k_wrong_low), low), _mm_shuffle_epi8(load(k_wrong_high), high));
    if (_mm_movemask_epi8(_mm_cmpgt_epi8(wrong, _mm_setzero_si128())) != 0) {
        return false;
    }
    const __m128i is_slash = _mm_cmpeq_epi8(text, _mm_set1_epi8('/'));
    const __m128i values =
        _mm_add_epi8(text, _mm_shuffle_epi8(load(k_to_value), _mm_add_epi8(is_slash, high)));
    const __m128i pairs = _mm_maddubs_epi16(values, _mm_set1_epi32(0x01400140));
    bytes = _mm_shuffle_epi8(_mm_madd_epi16(pairs, _mm_set1_epi32(0x00011000)), load(k_gather));
    return true;
}

TESSEL_PIECE(TESSEL_SSSE3) void store_12(__m128i bytes, unsigned char* to) {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to), bytes);
    const int last = _mm_cvtsi128_si32(_mm_srli_si128(bytes, 8));
    __builtin_memcpy(to + 8, &last, sizeof(last));
}

// From `done` on; returns the new `done`. 16 bytes are read for 12.
TESSEL_PIECE(TESSEL_SSSE3)
std::size_t encode_by_16(const unsigned char* from, std::size_t bytes, std::size_t done, unsigned char* to) {
    for (; bytes - done >= 16; done += 12) {
        _mm_storeu_si128(reinterpret_cast<__m128i*>(to + done / 3 * 4), encoded(load(from + done)));
    }
    return done;
}

TESSEL_PIECE(TESSEL_SSSE3)
std::size_t decode_by_16(const unsigned char* from, std::size_t characters, std::size_t done,
                         unsigned char* to) {
    __m128i bytes;
    for (; characters - done >= 16 && decoded(load(from + done), bytes); done += 16) {
        store_12(bytes, to + done / 4 * 3);
    }
    return done;
}

TESSEL_SSSE3 std::size_t encode_ssse3(const unsigned char* from, std::size_t bytes, unsigned char* to) {
    return encode_by_16(from, bytes, 0, to);
}

TESSEL_SSSE3 std::size_t decode_ssse3(const unsigned char* from, std::size_t characters, unsigned char* to) {
    return decode_by_16(from, characters, 0, to);
}

// ---- 32 bytes at a time: the same steps in both halves

TESSEL_PIECE(TESSEL_AVX2) __m256i load_both(const void* from) {
    return _mm256_broadcastsi128_si256(load(from));
}

// 12 bytes at each of the two places, as 32 characters.
TESSEL_PIECE(TESSEL_AVX2) __m256i encoded(__m128i front, __m128i back) {
    const __m256i bytes = _mm256_inserti128_si256(_mm256_castsi128_si256(front), back, 1);
    const __m256i spread = _mm256_shuffle_epi8(bytes, load_both(k_spread));
    const __m256i outer = _mm256_mulhi_epu16(_mm256_and_si256(spread, _mm256_set1_epi32(0x0FC0FC00)),
                                             _mm256_set1_epi32(0x04000040));
    const __m256i inner = _mm256_mullo_epi16(_mm256_and_si256(spread, _mm256_set1_epi32(0x003F03F0)),
                                             _mm256_set1_epi32(0x01000010));
    const __m256i values = _mm256_or_si256(outer, inner);
    const __m256i above_letters = _mm256_subs_epu8(values, _mm256_set1_epi8(51));
    const __m256i is_upper = _mm256_cmpgt_epi8(_mm256_set1_epi8(26), values);
    const __m256i kind = _mm256_or_si256(above_letters, _mm256_and_si256(is_upper, _mm256_set1_epi8(13)));
    return _mm256_add_epi8(values, _mm256_shuffle_epi8(load_both(k_to_character), kind));
}

// 32 characters as 24 bytes at the front.
TESSEL_PIECE(TESSEL_AVX2) bool decoded(__m256i text, __m256i& bytes) {
    const __m256i high = _mm256_and_si256(_mm256_srli_epi32(text, 4), _mm256_set1_epi8(k_both_halves));
    const __m256i low = _mm256_and_si256(text, _mm256_set1_epi8(k_both_halves));
    if (_mm256_testz_si256(_mm256_shuffle_epi8(load_both(k_wrong_low), low),
                           _mm256_shuffle_epi8(load_both(k_wrong_high), high)) == 0) {
        return false;
    }
    const __m256i is_slash = _mm256_cmpeq_epi8(text, _mm256_set1_epi8('/'));
    const __m256i values =
        _mm256_add_epi8(text, _mm256_shuffle_epi8(load_both(k_to_value), _mm256_add_epi8(is_slash, high)));
    const __m256i pairs = _mm256_maddubs_epi16(values, _mm256_set1_epi32(0x01400140));
    const __m256i groups = _mm256_madd_epi16(pairs, _mm256_set1_epi32(0x00011000));
    const __m256i halves = _mm256_shuffle_epi8(groups, load_both(k_gather));
    bytes = _mm256_permutevar8x32_epi32(halves, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7));
    return true;
}

TESSEL_PIECE(TESSEL_AVX2) void store_24(__m256i bytes, unsigned char* to) {
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(bytes));
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to + 16), _mm256_extracti128_si256(bytes, 1));
}

// The upper halves are cleared by hand: not every level of optimisation does it, and code on 128 bits runs at
// a quarter of its speed behind them.
TESSEL_AVX2 std::size_t encode_avx2(const unsigned char* from, std::size_t bytes, unsigned char* to) {
    std::size_t done = 0;
    for (; bytes - done >= 28; done += 24) {
        _mm256_storeu_si256(reinterpret_cast<__m256i*>(to + done / 3 * 4),
                            encoded(load(from + done), load(from + done + 12)));
    }
    done = encode_by_16(from, bytes, done, to);
    _mm256_zeroupper();
    return done;
}

TESSEL_AVX2 std::size_t decode_avx2(const unsigned char* from, std::size_t characters, unsigned char* to) {
    std::size_t done = 0;
    __m256i bytes;
    for (; characters - done >= 32 &&
           decoded(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(from + done)), bytes);
         done += 32) {
        store_24(bytes, to + done / 4 * 3);
    }
    done = decode_by_16(from, characters, done, to);
    _mm256_zeroupper();
    return done;
}

constexpr named_base64_vectors k_all[] = {
    {"AVX2", {encode_avx2, decode_avx2}}, {"SSSE3", {encode_ssse3, decode_ssse3}}, {nullptr, k_none}};

const named_base64_vectors* first_usable() {
    __builtin_cpu_init();
    return __builtin_cpu_supports("avx2")    ? &k_all[0]
           : __builtin_cpu_supports("ssse3") ? &k_all[1]
                                             : &k_all[2];
}

#else

constexpr named_base64_vectors k_all[] = {{nullptr, k_none}};

const named_base64_vectors* first_usable() {
    return k_all;
}

#endif

}  // namespace

const named_base64_vectors* all_base64_vectors() {
    static const named_base64_vectors* const usable = first_usable();
    return usable;
}

const base64_vectors& best_base64_vectors() {
    return all_base64_vectors()->vectors;
}

}  // namespace kro::tessel::codec
