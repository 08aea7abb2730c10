#include "tessel/codec/url_coding.h"

#include "codec/url_escapes.h"

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <string>
#include <type_traits>

namespace {

using kro::tessel::CTString;
using kro::tessel::CTStringA;
using kro::tessel::codec::count_unsafe_bytes;
using kro::tessel::codec::escape_bytes;
using kro::tessel::codec::k_escape_size;
using kro::tessel::codec::k_escape_slack;
using kro::tessel::codec::k_hexadecimal_digits;

// Texts are coded in pieces, on the stack: results are neither filled before they are written nor longer than
// they have to be.
constexpr std::size_t k_piece = 512;

template <class Unit>
std::size_t length(const Unit* from, const Unit* end) {
    return static_cast<std::size_t>(end - from);
}

// ---- Encoding: a piece is measured, for long texts, and written

constexpr std::size_t k_longest_escape = 5;

std::size_t encoded_size(const char* from, std::size_t count) {
    const auto* const bytes = reinterpret_cast<const unsigned char*>(from);
    return count + (k_escape_size - 1) * count_unsafe_bytes(bytes, count);
}

char* encode_piece(const char* from, std::size_t count, char* room) {
    return escape_bytes(reinterpret_cast<const unsigned char*>(from), count, room);
}

// False when a unit is no byte. Most texts have none such; they are coded as bytes.
bool as_bytes(const wchar* from, std::size_t count, unsigned char* bytes) {
    unsigned all = 0;
    for (std::size_t i = 0; i < count; ++i) {
        bytes[i] = static_cast<unsigned char>(from[i]);
        all |= static_cast<unsigned>(from[i]);
    }
    return all <= 0xFF;
}

wchar* encode_unit(wchar unit, wchar* to) {
    const unsigned number = unit;
    if (number <= 0xFF) {
        const auto byte = static_cast<unsigned char>(unit);
        char escaped[k_escape_size + k_escape_slack];
        return std::copy(escaped, escape_bytes(&byte, 1, escaped), to);
    }
    *to++ = static_cast<wchar>('%');
    for (unsigned shift = number > 0xFFF ? 16 : 12; shift != 0; to++) {
        shift -= 4;
        *to = static_cast<wchar>(k_hexadecimal_digits[number >> shift & 15U]);
    }
    return to;
}

wchar* encode_piece(const wchar* from, std::size_t count, wchar* room) {
    unsigned char bytes[k_piece];
    if (as_bytes(from, count, bytes)) {
        char escaped[k_piece * k_escape_size + k_escape_slack];
        return std::copy(escaped, escape_bytes(bytes, count, escaped), room);
    }
    for (const wchar* const end = from + count; from != end; ++from) {
        room = encode_unit(*from, room);
    }
    return room;
}

std::size_t encoded_size(const wchar* from, std::size_t count) {
    unsigned char bytes[k_piece];
    if (as_bytes(from, count, bytes)) {
        return count + (k_escape_size - 1) * count_unsafe_bytes(bytes, count);
    }
    wchar room[k_piece * k_longest_escape];
    return length<wchar>(room, encode_piece(from, count, room));
}

template <class String>
String encoded(const String& text) {
    using unit = typename String::value_type;
    unit room[k_piece * k_longest_escape + k_escape_slack];
    const unit* const first = text.data();
    const unit* const end = first + text.size();
    if (text.size() <= k_piece) {
        return String(room, length<unit>(room, encode_piece(first, text.size(), room)));
    }
    std::size_t size = 0;
    for (const unit* from = first; from != end;) {
        const std::size_t count = std::min(length(from, end), k_piece);
        size += encoded_size(from, count);
        from += count;
    }
    String out;
    out.reserve(size);
    for (const unit* from = first; from != end;) {
        const std::size_t count = std::min(length(from, end), k_piece);
        out.append(room, length<unit>(room, encode_piece(from, count, room)));
        from += count;
    }
    return out;
}

// ---- Decoding

// No digit counts as 0.
constexpr std::array<std::uint8_t, 256> values_of_digits() {
    std::array<std::uint8_t, 256> values{};
    for (unsigned value = 0; value < 16; ++value) {
        const auto digit = static_cast<unsigned char>(k_hexadecimal_digits[value]);
        values[digit] = static_cast<std::uint8_t>(value);
        values[digit | 0x20U] = static_cast<std::uint8_t>(value);  // digits have that bit, capitals get it
    }
    return values;
}

constexpr std::array<std::uint8_t, 256> k_values = values_of_digits();

template <class Unit>
unsigned value_of(Unit unit) {
    const auto number = static_cast<std::make_unsigned_t<Unit>>(unit);
    return number <= 0xFF ? k_values[number] : 0U;
}

// One look at a block finds its escapes; what lies between them is copied in moves of a fixed size, which
// read and write up to k_move units more than count.
constexpr std::size_t k_block = 64;
constexpr std::size_t k_move = 16;
constexpr std::size_t k_reach = k_block + 2 + k_move;  // what a block may read of what is behind its begin

#if defined(__SSE2__)
__m128i load(const void* from) {
    return _mm_loadu_si128(static_cast<const __m128i*>(from));
}

__m128i load_bytes(const char* units) {
    return load(units);
}

// Units above 0xFF saturate, so they aren't taken for their low byte.
__m128i load_bytes(const wchar* units) {
    return _mm_packus_epi16(load(units), load(units + 8));
}

// Which units of a block are "%", the first in the lowest bit.
template <class Unit>
std::uint64_t percents_of(const Unit* block) {
    std::uint64_t found = 0;
    for (unsigned i = 0; i < k_block; i += 16) {
        const int mask = _mm_movemask_epi8(_mm_cmpeq_epi8(load_bytes(block + i), _mm_set1_epi8('%')));
        found |= static_cast<std::uint64_t>(static_cast<unsigned>(mask)) << i;
    }
    return found;
}

unsigned lowest_bit(std::uint64_t bits) {
    return static_cast<unsigned>(__builtin_ctzll(bits));
}
#else
template <class Unit>
std::uint64_t percents_of(const Unit* block) {
    std::uint64_t found = 0;
    for (unsigned i = 0; i < k_block; ++i) {
        found |= std::uint64_t{block[i] == static_cast<Unit>('%')} << i;
    }
    return found;
}

unsigned lowest_bit(std::uint64_t bits) {
    unsigned place = 0;
    for (; (bits >> place & 1U) == 0; ++place) {
    }
    return place;
}
#endif

template <class Unit>
Unit* copy_run(const Unit* from, const Unit* end, Unit* to) {
    Unit* const last = to + (end - from);
    do {
        std::memcpy(to, from, k_move * sizeof(Unit));
        from += k_move;
        to += k_move;
    } while (to < last);
    return last;
}

// Decodes a block, and the escape that begins in it to its end.
template <class Unit>
Unit* decode_block(const Unit*& block, Unit* to) {
    const Unit* run = block;
    const Unit* const end = block + k_block;
    std::uint64_t percents = percents_of(block);
    for (; percents != 0; percents &= percents - 1) {
        const Unit* const percent = block + lowest_bit(percents);
        if (percent >= run) {  // else it counts as a digit
            to = copy_run(run, percent, to);
            *to++ = static_cast<Unit>(value_of(percent[1]) << 4U | value_of(percent[2]));
            run = percent + 3;
        }
    }
    block = std::max(run, end);
    return run < end ? copy_run(run, end, to) : to;
}

// A "%" with fewer than two units behind it is dropped, on purpose, and what follows it copied.
template <class Unit>
Unit* decode_end(const Unit* from, const Unit* end, Unit* to) {
    while (from != end) {
        if (*from != static_cast<Unit>('%')) {
            *to++ = *from++;
        } else if (end - from > 2) {
            *to++ = static_cast<Unit>(value_of(from[1]) << 4U | value_of(from[2]));
            from += 3;
        } else {
            return std::copy(from + 1, end, to);
        }
    }
    return to;
}

// Decodes about a piece from `from` on.
template <class Unit>
Unit* decode_piece(const Unit*& from, const Unit* end, Unit* to) {
    for (const Unit* const full = to + k_piece; length(from, end) > k_reach && to < full;) {
        to = decode_block(from, to);
    }
    if (length(from, end) <= k_reach) {
        to = decode_end(from, end, to);
        from = end;
    }
    return to;
}

template <class String>
String decoded(const String& text) {
    using unit = typename String::value_type;
    unit room[k_piece + 2 * k_reach];
    const unit* from = text.data();
    const unit* const end = from + text.size();
    const unit* last = decode_piece(from, end, room);
    if (from == end) {
        return String(room, length<unit>(room, last));
    }
    const auto escapes =
        static_cast<std::size_t>(std::count(text.begin(), text.end(), static_cast<unit>('%')));
    String out;
    out.reserve(text.size() - 2 * std::min(escapes, text.size() / 3));
    out.append(room, length<unit>(room, last));
    while (from != end) {
        last = decode_piece(from, end, room);
        out.append(room, length<unit>(room, last));
    }
    return out;
}

}  // namespace

const CTString URLEncoder::csUnsafeString(kro::tessel::codec::k_unsafe_characters);

URLEncoder::~URLEncoder() = default;

CTString URLEncoder::Encode(const CTString& s) {
    return encoded(s);
}

CTStringA URLEncoder::EncodeA(const CTStringA& s) {
    return encoded(s);
}

URLDecoder::~URLDecoder() = default;

CTString URLDecoder::Decode(const CTString& s) {
    return decoded(s);
}

CTStringA URLDecoder::DecodeA(const CTStringA& s) {
    return decoded(s);
}
