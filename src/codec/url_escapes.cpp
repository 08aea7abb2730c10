#include "codec/url_escapes.h"

#include "codec/vectors.h"

#if defined(TESSEL_HAS_VECTORS)
#include <tmmintrin.h>
#endif

#include <array>
#include <cstdint>
#include <cstring>

namespace kro::tessel::codec {
namespace {

constexpr bool is_unsafe(unsigned byte) {
    if (byte < 33 || byte > 122) {
        return true;
    }
    for (const wchar* mark = k_unsafe_characters; *mark != 0; ++mark) {
        if (byte == static_cast<unsigned>(*mark)) {
            return true;
        }
    }
    return false;
}

// The text of every byte, itself or its escape, padded so that it is written with one move.
struct byte_text {
    char characters[4];
};

constexpr std::array<byte_text, 256> texts_of_bytes() {
    std::array<byte_text, 256> texts{};
    for (unsigned byte = 0; byte < texts.size(); ++byte) {
        texts[byte] =
            is_unsafe(byte)
                ? byte_text{{'%', k_hexadecimal_digits[byte >> 4U], k_hexadecimal_digits[byte & 15U], 0}}
                : byte_text{{static_cast<char>(byte), 0, 0, 0}};
    }
    return texts;
}

constexpr std::array<std::uint8_t, 256> sizes_of_bytes() {
    std::array<std::uint8_t, 256> sizes{};
    for (unsigned byte = 0; byte < sizes.size(); ++byte) {
        sizes[byte] = is_unsafe(byte) ? k_escape_size : 1;
    }
    return sizes;
}

constexpr std::array<byte_text, 256> k_texts = texts_of_bytes();
constexpr std::array<std::uint8_t, 256> k_sizes = sizes_of_bytes();

char* escape_singly(const unsigned char* from, const unsigned char* end, char* to) {
    for (; from != end; ++from) {
        std::memcpy(to, &k_texts[*from], sizeof(byte_text));
        to += k_sizes[*from];
    }
    return to;
}

std::size_t count_singly(const unsigned char* from, const unsigned char* end) {
    std::size_t count = 0;
    for (; from != end; ++from) {
        count += k_sizes[*from] / k_escape_size;
    }
    return count;
}

#if defined(TESSEL_HAS_VECTORS)

using row = std::array<std::uint8_t, 16>;

// Safe bytes by their low half: bit h says that the byte with the high half h is one.
constexpr row safe_by_low_half() {
    row safe{};
    for (unsigned byte = 0; byte < 128; ++byte) {
        safe[byte & 15U] =
            static_cast<std::uint8_t>(safe[byte & 15U] | (is_unsafe(byte) ? 0U : 1U) << (byte >> 4U));
    }
    return safe;
}

// Four bytes stand as "%", two digits and the byte itself, each; the rows pick what is written, by the mask
// of the unsafe ones.
constexpr std::array<row, 16> picks_by_mask() {
    std::array<row, 16> picks{};
    for (unsigned mask = 0; mask < picks.size(); ++mask) {
        unsigned size = 0;
        for (unsigned byte = 0; byte < 4; ++byte) {
            const bool is_escaped = (mask >> byte & 1U) != 0;
            for (unsigned part = is_escaped ? 0 : 3; part < (is_escaped ? 3U : 4U); ++part) {
                picks[mask][size++] = static_cast<std::uint8_t>(4 * byte + part);
            }
        }
    }
    return picks;
}

constexpr row sizes_by_mask() {
    row sizes{};
    for (unsigned mask = 0; mask < sizes.size(); ++mask) {
        const unsigned escapes = (mask & 1U) + (mask >> 1U & 1U) + (mask >> 2U & 1U) + (mask >> 3U);
        sizes[mask] = static_cast<std::uint8_t>(4 + 2 * escapes);
    }
    return sizes;
}

alignas(16) constexpr row k_safe_by_low_half = safe_by_low_half();
alignas(16) constexpr row k_bit_of_high_half = {1, 2, 4, 8, 16, 32, 64, 128, 0, 0, 0, 0, 0, 0, 0, 0};
alignas(16) constexpr std::array<row, 16> k_picks = picks_by_mask();
constexpr row k_sizes_by_mask = sizes_by_mask();

TESSEL_PIECE(TESSEL_SSSE3) __m128i load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

struct halves {
    __m128i low;
    __m128i high;
};

TESSEL_PIECE(TESSEL_SSSE3) halves halves_of(__m128i bytes) {
    const __m128i low_bits = _mm_set1_epi8(15);
    return {_mm_and_si128(bytes, low_bits), _mm_and_si128(_mm_srli_epi16(bytes, 4), low_bits)};
}

TESSEL_PIECE(TESSEL_SSSE3) unsigned unsafe_of(const halves& bytes) {
    const __m128i safe = _mm_and_si128(_mm_shuffle_epi8(load(&k_safe_by_low_half), bytes.low),
                                       _mm_shuffle_epi8(load(&k_bit_of_high_half), bytes.high));
    return static_cast<unsigned>(_mm_movemask_epi8(_mm_cmpeq_epi8(safe, _mm_setzero_si128())));
}

TESSEL_PIECE(TESSEL_SSSE3) char* write_four(__m128i parts, unsigned unsafe, char* to) {
    const unsigned mask = unsafe & 15U;
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm_shuffle_epi8(parts, load(&k_picks[mask])));
    return to + k_sizes_by_mask[mask];
}

TESSEL_SSSE3 char* escape_by_16(const unsigned char* from, std::size_t count, char* to) {
    const __m128i digits = load(k_hexadecimal_digits);
    const __m128i percent = _mm_set1_epi8('%');
    const unsigned char* const end = from + count;
    for (; end - from >= 16; from += 16) {
        const __m128i bytes = load(from);
        const halves half = halves_of(bytes);
        const unsigned unsafe = unsafe_of(half);
        const __m128i first = _mm_shuffle_epi8(digits, half.high);
        const __m128i second = _mm_shuffle_epi8(digits, half.low);
        const __m128i front_low = _mm_unpacklo_epi8(percent, first);
        const __m128i back_low = _mm_unpacklo_epi8(second, bytes);
        const __m128i front_high = _mm_unpackhi_epi8(percent, first);
        const __m128i back_high = _mm_unpackhi_epi8(second, bytes);
        to = write_four(_mm_unpacklo_epi16(front_low, back_low), unsafe, to);
        to = write_four(_mm_unpackhi_epi16(front_low, back_low), unsafe >> 4U, to);
        to = write_four(_mm_unpacklo_epi16(front_high, back_high), unsafe >> 8U, to);
        to = write_four(_mm_unpackhi_epi16(front_high, back_high), unsafe >> 12U, to);
    }
    return escape_singly(from, end, to);
}

TESSEL_SSSE3 std::size_t count_by_16(const unsigned char* from, std::size_t count) {
    std::size_t unsafe = 0;
    const unsigned char* const end = from + count;
    for (; end - from >= 16; from += 16) {
        unsafe += static_cast<unsigned>(__builtin_popcount(unsafe_of(halves_of(load(from)))));
    }
    return unsafe + count_singly(from, end);
}

bool has_vectors() {
    static const bool has = [] {
        __builtin_cpu_init();
        return __builtin_cpu_supports("ssse3") != 0;
    }();
    return has;
}

#else

bool has_vectors() {
    return false;
}

char* escape_by_16(const unsigned char* from, std::size_t count, char* to) {
    return escape_singly(from, from + count, to);
}

std::size_t count_by_16(const unsigned char* from, std::size_t count) {
    return count_singly(from, from + count);
}

#endif

}  // namespace

char* escape_bytes(const unsigned char* from, std::size_t count, char* to) {
    return has_vectors() ? escape_by_16(from, count, to) : escape_singly(from, from + count, to);
}

std::size_t count_unsafe_bytes(const unsigned char* from, std::size_t count) {
    return has_vectors() ? count_by_16(from, count) : count_singly(from, from + count);
}

}  // namespace kro::tessel::codec
