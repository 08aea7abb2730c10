#include "text.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>

namespace command {
namespace {

constexpr std::uint32_t k_replacement = 0xFFFD;

bool is_surrogate(std::uint32_t value) {
    return value >= 0xD800 && value <= 0xDFFF;
}

void append_code_point(std::string& out, std::uint32_t point) {
    const auto tail = [&out, point](unsigned shift) {
        out += static_cast<char>(0x80U | ((point >> shift) & 0x3FU));
    };
    if (point < 0x80) {
        out += static_cast<char>(point);
    } else if (point < 0x800) {
        out += static_cast<char>(0xC0U | (point >> 6U));
        tail(0);
    } else if (point < 0x10000) {
        out += static_cast<char>(0xE0U | (point >> 12U));
        tail(6);
        tail(0);
    } else {
        out += static_cast<char>(0xF0U | (point >> 18U));
        tail(12);
        tail(6);
        tail(0);
    }
}

/// The code point at the start of `bytes`, which isn't empty, and how many bytes it has.
std::uint32_t first_code_point(std::string_view bytes, std::size_t& length) {
    const auto lead = static_cast<unsigned char>(bytes[0]);
    length = 1;
    if (lead < 0x80) {
        return lead;
    }
    const std::size_t tails = lead >= 0xF0 ? 3 : lead >= 0xE0 ? 2 : 1;
    if (lead < 0xC2 || lead > 0xF4 || bytes.size() <= tails) {
        return k_replacement;
    }
    std::uint32_t point = lead & (0x3FU >> tails);
    for (std::size_t i = 1; i <= tails; ++i) {
        const auto tail = static_cast<unsigned char>(bytes[i]);
        if ((tail & 0xC0U) != 0x80U) {
            return k_replacement;
        }
        point = (point << 6U) | (tail & 0x3FU);
    }
    constexpr std::uint32_t k_least[] = {0, 0x80, 0x800, 0x10000};
    if (point < k_least[tails] || point > 0x10FFFF || is_surrogate(point)) {
        return k_replacement;
    }
    length = tails + 1;
    return point;
}

}  // namespace

std::string to_utf8(std::basic_string_view<wchar> text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        std::uint32_t point = text[i];
        const bool leads = point >= 0xD800 && point < 0xDC00 && i + 1 < text.size();
        if (leads && text[i + 1] >= 0xDC00 && text[i + 1] <= 0xDFFF) {
            point = 0x10000U + ((point - 0xD800U) << 10U) + (text[++i] - 0xDC00U);
        }
        append_code_point(out, is_surrogate(point) ? k_replacement : point);
    }
    return out;
}

kro::tessel::CTString from_utf8(std::string_view bytes) {
    kro::tessel::CTString out;
    out.reserve(bytes.size());
    std::size_t length = 0;
    for (; !bytes.empty(); bytes.remove_prefix(length)) {
        const std::uint32_t point = first_code_point(bytes, length);
        if (point < 0x10000) {
            out.push_back(static_cast<wchar>(point));
        } else {
            out.push_back(static_cast<wchar>(0xD7C0U + (point >> 10U)));
            out.push_back(static_cast<wchar>(0xDC00U + (point & 0x3FFU)));
        }
    }
    return out;
}

std::string to_lower(std::string text) {
    std::transform(text.begin(), text.end(), text.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; });
    return text;
}

std::string trimmed(std::string_view text) {
    constexpr const char* k_white = " \t\r\n\v\f";
    const std::size_t begin = std::min(text.find_first_not_of(k_white), text.size());
    return std::string(text.substr(begin, text.find_last_not_of(k_white) + 1 - begin));
}

}  // namespace command
