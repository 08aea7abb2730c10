#include "code_page_utf8.h"

#include "code_page_ascii.h"

#include <cstdint>

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_replacement = 0xFFFD;

constexpr std::uint32_t byte_at(const char* at) {
    return static_cast<unsigned char>(*at);
}

// One decoded sequence; point is above any code point when it is malformed.
struct decoded {
    std::uint32_t point;
    std::uint32_t bytes;
};
constexpr std::uint32_t k_malformed = 0xFFFFFFFF;

constexpr std::uint32_t sequence_length(std::uint32_t lead) {
    if (lead < 0xC2U || lead > 0xF4U) {
        return 1;  // a continuation byte, an overlong lead, or none at all
    }
    return lead < 0xE0U ? 2U : lead < 0xF0U ? 3U : 4U;
}

// Overlong, a surrogate, or above U+10FFFF: the first two bytes show it.
constexpr bool second_byte_is_impossible(std::uint32_t lead, std::uint32_t second) {
    return (lead == 0xE0U && second < 0xA0U) || (lead == 0xEDU && second >= 0xA0U) ||
           (lead == 0xF0U && second < 0x90U) || (lead == 0xF4U && second >= 0x90U);
}

decoded decode(const char* from, const char* end) {
    const std::uint32_t lead = byte_at(from);
    const std::uint32_t length = sequence_length(lead);
    if (length == 1) {
        return {k_malformed, 1};
    }
    std::uint32_t point = lead & (0x7FU >> length);
    for (std::uint32_t used = 1; used < length; ++used) {
        const std::uint32_t next = from + used < end ? byte_at(from + used) : 0;
        if ((next & 0xC0U) != 0x80U) {
            return {k_malformed, used};
        }
        if (used == 1 && second_byte_is_impossible(lead, next)) {
            return {k_malformed, 2};
        }
        point = point << 6U | (next & 0x3FU);
    }
    return {point, length};
}

// Pointers go in and come back by value: a reference to one would be reloaded after every store of a char.
wchar* put(std::uint32_t point, wchar* to) {
    if (point < 0x10000U) {
        *to = static_cast<wchar>(point);
        return to + 1;
    }
    to[0] = static_cast<wchar>(0xD7C0U + (point >> 10U));
    to[1] = static_cast<wchar>(0xDC00U + (point & 0x3FFU));
    return to + 2;
}

constexpr char continuation(std::uint32_t bits) {
    return static_cast<char>(0x80U | (bits & 0x3FU));
}

char* put_two(std::uint32_t point, char* to) {
    to[0] = static_cast<char>(0xC0U | point >> 6U);
    to[1] = continuation(point);
    return to + 2;
}

char* put_three(std::uint32_t point, char* to) {
    to[0] = static_cast<char>(0xE0U | point >> 12U);
    to[1] = continuation(point >> 6U);
    to[2] = continuation(point);
    return to + 3;
}

char* put_four(std::uint32_t point, char* to) {
    to[0] = static_cast<char>(0xF0U | point >> 18U);
    to[1] = continuation(point >> 12U);
    to[2] = continuation(point >> 6U);
    to[3] = continuation(point);
    return to + 4;
}

struct decoding_walk {
    static constexpr std::size_t k_units_each = 1;
    bool strict = false;
    bool stopped = false;
    bool used_default = false;

    const char* operator()(const char* from, const char* soft_end, const char* end, wchar*& out) {
        wchar* to = out;
        while (from < soft_end) {
            const std::uint32_t lead = byte_at(from);
            if (lead < 0x80U) {
                // A single one (a blank between words) isn't worth a block.
                *to++ = static_cast<wchar>(lead);
                ++from;
                if (soft_end - from >= k_ascii_block && byte_at(from) < 0x80U) {
                    const std::ptrdiff_t done = widen_ascii(from, soft_end, to);
                    from += done;
                    to += done;
                }
            } else if (lead >= 0xC2U && lead < 0xE0U && end - from >= 2 && is_next(from + 1)) {
                *to++ = static_cast<wchar>((lead & 0x1FU) << 6U | (byte_at(from + 1) & 0x3FU));
                from += 2;
            } else if (lead >= 0xE1U && lead < 0xEDU && end - from >= 3 && is_next(from + 1) &&
                       is_next(from + 2)) {  // those that can't be overlong nor surrogates
                *to++ = static_cast<wchar>(lead << 12U | (byte_at(from + 1) & 0x3FU) << 6U |
                                           (byte_at(from + 2) & 0x3FU));
                from += 3;
            } else {
                const decoded one = decode(from, end);
                if (one.point == k_malformed && strict) {
                    stopped = true;
                    break;
                }
                used_default = used_default || one.point == k_malformed;
                to = put(one.point == k_malformed ? k_replacement : one.point, to);
                from += one.bytes;
            }
        }
        out = to;
        return from;
    }

private:
    static bool is_next(const char* at) { return (byte_at(at) & 0xC0U) == 0x80U; }
};

struct encoding_walk {
    static constexpr std::size_t k_units_each = 3;
    bool strict = false;
    bool stopped = false;
    bool used_default = false;

    const wchar* operator()(const wchar* from, const wchar* soft_end, const wchar* end, char*& out) {
        char* to = out;
        while (from < soft_end) {
            const std::uint32_t unit = *from;
            if (unit < 0x80U) {
                *to++ = static_cast<char>(unit);
                ++from;
                if (soft_end - from >= k_ascii_block && *from < 0x80U) {
                    const std::ptrdiff_t done = narrow_ascii(from, soft_end, to);
                    from += done;
                    to += done;
                }
            } else if (unit < 0x800U) {
                to = put_two(unit, to);
                ++from;
            } else if ((unit & 0xF800U) != 0xD800U) {
                to = put_three(unit, to);
                ++from;
            } else if (unit < 0xDC00U && end - from >= 2 && (from[1] & 0xFC00U) == 0xDC00U) {
                to = put_four(0x10000U + ((unit & 0x3FFU) << 10U) + (from[1] & 0x3FFU), to);
                from += 2;
            } else if (strict) {
                stopped = true;
                break;
            } else {
                used_default = true;
                to = put_three(k_replacement, to);
                ++from;
            }
        }
        out = to;
        return from;
    }
};

}  // namespace

conversion_result utf8_to_wide(const char* source, std::size_t bytes, bool strict, wchar* out,
                               std::size_t capacity) noexcept {
    decoding_walk walk;
    walk.strict = strict;
    return convert_bounded(walk, source, bytes, out, capacity);
}

conversion_result wide_to_utf8(const wchar* source, std::size_t units, bool strict, char* out,
                               std::size_t capacity) noexcept {
    encoding_walk walk;
    walk.strict = strict;
    return convert_bounded(walk, source, units, out, capacity);
}

}  // namespace kro::tessel::os
