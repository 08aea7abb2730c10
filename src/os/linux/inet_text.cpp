#include "os/linux/inet_text.h"

#include "os/code_page.h"

#include <algorithm>

namespace kro::tessel::os {
namespace {

char lower(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c + ('a' - 'A')) : c;
}

bool is_ascii(wide_view text) noexcept {
    return std::all_of(text.begin(), text.end(), [](wchar unit) { return unit < 0x80; });
}

constexpr std::size_t k_most_bytes_a_unit = 4;  // of all code pages, GB 18030 takes most

std::string in_code_page(std::uint32_t page, wide_view text) {
    if (is_ascii(text)) {
        return narrow(text);
    }
    std::string bytes(text.size() * k_most_bytes_a_unit, '\0');
    const std::int32_t length =
        code_pages().to_narrow(page, 0, text.data(), static_cast<std::int32_t>(text.size()), bytes.data(),
                               static_cast<std::int32_t>(bytes.size()), nullptr, nullptr);
    bytes.resize(static_cast<std::size_t>(length));
    return bytes;
}

}  // namespace

wide_string widen(std::string_view latin1) {
    wide_string text(latin1.size(), 0);
    std::transform(latin1.begin(), latin1.end(), text.begin(),
                   [](char c) { return static_cast<wchar>(static_cast<unsigned char>(c)); });
    return text;
}

std::string narrow(wide_view text) {
    std::string bytes(text.size(), '\0');
    std::transform(text.begin(), text.end(), bytes.begin(),
                   [](wchar unit) { return unit < 0x100 ? static_cast<char>(unit) : '?'; });
    return bytes;
}

std::string to_utf8(wide_view text) {
    return in_code_page(k_code_page_utf8, text);
}

std::string to_ansi(wide_view text) {
    return in_code_page(k_code_page_ansi, text);
}

wide_string from_utf8(std::string_view text) {
    wide_string units(text.size(), 0);
    const std::int32_t length =
        code_pages().to_wide(k_code_page_utf8, 0, text.data(), static_cast<std::int32_t>(text.size()),
                             units.data(), static_cast<std::int32_t>(units.size()));
    units.resize(static_cast<std::size_t>(length));
    return units;
}

void append_escaped(std::string& out, char byte) {
    constexpr char digits[] = "0123456789ABCDEF";
    const auto value = static_cast<unsigned char>(byte);
    out += '%';
    out += digits[value >> 4U];
    out += digits[value & 0xFU];
}

std::string_view trimmed(std::string_view text) noexcept {
    const auto is_blank = [](char c) { return c == ' ' || c == '\t'; };
    while (!text.empty() && is_blank(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_blank(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

bool equal_but_for_case(std::string_view left, std::string_view right) noexcept {
    return left.size() == right.size() && std::equal(left.begin(), left.end(), right.begin(),
                                                     [](char a, char b) { return lower(a) == lower(b); });
}

std::string lowered(std::string_view text) {
    std::string result(text);
    std::transform(result.begin(), result.end(), result.begin(), lower);
    return result;
}

}  // namespace kro::tessel::os
