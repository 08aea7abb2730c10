#include "os/linux/soap_text.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string_view>

namespace kro::tessel::os {
namespace {

// What keeps a character below 0x80 from being copied, as bits that a caller's mask asks for.
constexpr std::uint8_t k_refused = 1;
constexpr std::uint8_t k_escaped_in_text = 2;
constexpr std::uint8_t k_escaped_in_attribute = 4;

constexpr std::array<std::uint8_t, 0x80> make_ascii_kinds() {
    std::array<std::uint8_t, 0x80> kinds{};
    for (std::size_t control = 0; control < 0x20; ++control) {
        kinds[control] = k_refused;
    }
    kinds['\t'] = k_escaped_in_attribute;
    kinds['\n'] = k_escaped_in_attribute;
    kinds['\r'] = k_escaped_in_text | k_escaped_in_attribute;
    kinds['&'] = k_escaped_in_text | k_escaped_in_attribute;
    kinds['<'] = k_escaped_in_text | k_escaped_in_attribute;
    kinds['>'] = k_escaped_in_text | k_escaped_in_attribute;
    kinds['"'] = k_escaped_in_attribute;
    return kinds;
}

constexpr std::array<std::uint8_t, 0x80> k_ascii_kinds = make_ascii_kinds();

// The code point at `at`, which is moved behind it. A surrogate alone is given as it is.
std::uint32_t take_code_point(const wchar*& at, const wchar* end) noexcept {
    const std::uint32_t unit = *at++;
    if (unit >= 0xD800 && unit < 0xDC00 && at != end && *at >= 0xDC00 && *at <= 0xDFFF) {
        return 0x10000U + ((unit - 0xD800U) << 10U) + (static_cast<std::uint32_t>(*at++) - 0xDC00U);
    }
    return unit;
}

bool is_xml_character(std::uint32_t point) noexcept {
    return point != 0xFFFE && point != 0xFFFF && (point < 0xD800 || point > 0xDFFF);
}

// point: 0x80 or above.
void append_code_point(std::string& out, std::uint32_t point) {
    const auto tail = [point](unsigned shift) {
        return static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
    };
    if (point < 0x800) {
        const char bytes[] = {static_cast<char>(0xC0U | (point >> 6U)), tail(0)};
        out.append(bytes, sizeof bytes);
    } else if (point < 0x10000) {
        const char bytes[] = {static_cast<char>(0xE0U | (point >> 12U)), tail(6), tail(0)};
        out.append(bytes, sizeof bytes);
    } else {
        const char bytes[] = {static_cast<char>(0xF0U | (point >> 18U)), tail(12), tail(6), tail(0)};
        out.append(bytes, sizeof bytes);
    }
}

std::string_view reference(std::uint32_t point) noexcept {
    switch (point) {
        case '\t':
            return "&#x9;";
        case '\n':
            return "&#xA;";
        case '\r':
            return "&#xD;";
        case '&':
            return "&amp;";
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '"':
            return "&quot;";
        default:
            return {};
    }
}

// mask: the kinds of k_ascii_kinds that aren't copied.
void append(std::string& out, soap_text text, std::uint8_t mask) {
    const wchar* at = text.data();
    const wchar* const end = at + text.size();
    while (at != end) {
        const wchar* const special = std::find_if(
            at, end, [mask](wchar unit) { return unit >= 0x80 || (k_ascii_kinds[unit] & mask) != 0; });
        const std::size_t before = out.size();
        out.resize(before + static_cast<std::size_t>(special - at));
        std::transform(at, special, out.begin() + static_cast<std::ptrdiff_t>(before),
                       [](wchar unit) { return static_cast<char>(unit); });
        at = special;
        while (at != end && *at >= 0x80) {
            const std::uint32_t point = take_code_point(at, end);
            if (!is_xml_character(point)) {
                throw soap_error{k_soap_invalid_argument};
            }
            append_code_point(out, point);
        }
        for (; at != end && *at < 0x80 && (k_ascii_kinds[*at] & mask) != 0; ++at) {
            const std::string_view escape = reference(*at);
            if (escape.empty()) {
                throw soap_error{k_soap_invalid_argument};
            }
            out.append(escape);
        }
    }
}

struct code_points {
    std::uint32_t first, last;
};

// In ascending order.
constexpr code_points k_name_starts[] = {
    {'A', 'Z'},       {'_', '_'},       {'a', 'z'},       {0xC0, 0xD6},     {0xD8, 0xF6},
    {0xF8, 0x2FF},    {0x370, 0x37D},   {0x37F, 0x1FFF},  {0x200C, 0x200D}, {0x2070, 0x218F},
    {0x2C00, 0x2FEF}, {0x3001, 0xD7FF}, {0xF900, 0xFDCF}, {0xFDF0, 0xFFFD}, {0x10000, 0xEFFFF}};
constexpr code_points k_further_in_names[] = {
    {'-', '.'}, {'0', '9'}, {0xB7, 0xB7}, {0x300, 0x36F}, {0x203F, 0x2040}};

template <std::size_t N>
bool is_in(const code_points (&ranges)[N], std::uint32_t point) noexcept {
    return std::any_of(std::begin(ranges), std::end(ranges), [point](const code_points& range) {
        return point >= range.first && point <= range.last;
    });
}

}  // namespace

void append_as_text(std::string& out, soap_text text) {
    append(out, text, k_refused | k_escaped_in_text);
}

void append_as_attribute_value(std::string& out, soap_text text) {
    append(out, text, k_refused | k_escaped_in_attribute);
}

void append_as_markup(std::string& out, soap_text text) {
    append(out, text, k_refused);
}

bool is_element_name(soap_text name) noexcept {
    const wchar* at = name.data();
    const wchar* const end = at + name.size();
    if (at == end || !is_in(k_name_starts, take_code_point(at, end))) {
        return false;
    }
    while (at != end) {
        const std::uint32_t point = take_code_point(at, end);
        if (!is_in(k_name_starts, point) && !is_in(k_further_in_names, point)) {
            return false;
        }
    }
    return true;
}

}  // namespace kro::tessel::os
