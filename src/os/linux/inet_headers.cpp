#include "os/linux/inet_headers.h"

#include <algorithm>
#include <limits>

namespace kro::tessel::os {
namespace {

bool ends_line(char c) noexcept {
    return c == '\r' || c == '\n';
}

// The next line of a block without its end, and the rest behind it. Lines may end in LF alone.
std::string_view take_line(std::string_view& rest) noexcept {
    const auto end = rest.find('\n');
    std::string_view line = rest.substr(0, end);
    rest.remove_prefix(end == std::string_view::npos ? rest.size() : end + 1);
    if (!line.empty() && line.back() == '\r') {
        line.remove_suffix(1);
    }
    return line;
}

}  // namespace

void header_list::merge(wide_view lines) {
    const std::string text = narrow(lines.substr(0, lines.find(wchar{0})));
    std::string_view rest = text;
    m_fields.reserve(m_fields.size() + 4);
    while (!rest.empty()) {
        const auto* const end = std::find_if(rest.begin(), rest.end(), ends_line);
        const std::string_view line = rest.substr(0, static_cast<std::size_t>(end - rest.begin()));
        rest.remove_prefix(std::min(line.size() + 1, rest.size()));
        const auto colon = line.find(':');
        const std::string_view name = trimmed(line.substr(0, colon));
        if (colon == std::string_view::npos || name.empty()) {
            continue;
        }
        remove(name);
        const std::string_view value = trimmed(line.substr(colon + 1));
        if (!value.empty()) {
            m_fields.push_back({std::string(name), std::string(value)});
        }
    }
}

void header_list::remove(std::string_view name) {
    const auto found = std::find_if(m_fields.begin(), m_fields.end(), [name](const header_field& field) {
        return equal_but_for_case(field.name, name);
    });
    if (found != m_fields.end()) {
        m_fields.erase(found);
    }
}

const std::string* header_list::find(std::string_view name) const noexcept {
    for (const header_field& field : m_fields) {
        if (equal_but_for_case(field.name, name)) {
            return &field.value;
        }
    }
    return nullptr;
}

message_head::message_head(std::string block) : m_block(std::move(block)) {
    const std::string_view line = first_line();
    const auto blank = line.find(' ');
    if (blank != std::string_view::npos) {
        const std::string_view digits = trimmed(line.substr(blank)).substr(0, 3);
        m_status = static_cast<std::uint32_t>(whole_number(digits, 999).value_or(0));
    }
}

std::string_view message_head::first_line() const noexcept {
    std::string_view rest = m_block;
    return take_line(rest);
}

std::string_view message_head::version() const noexcept {
    const std::string_view line = first_line();
    return line.substr(0, line.find(' '));
}

std::string_view message_head::reason() const noexcept {
    const std::string_view line = first_line();
    const auto version_end = std::min(line.find(' '), line.size());
    const std::string_view behind = trimmed(line.substr(version_end));
    return trimmed(behind.substr(std::min<std::size_t>(3, behind.size())));
}

template <class Visitor>
void message_head::each_line(Visitor&& visit) const {
    std::string_view rest = m_block;
    take_line(rest);
    while (!rest.empty()) {
        const std::string_view line = take_line(rest);
        if (line.empty() || !visit(line)) {
            return;
        }
    }
}

std::optional<std::string_view> message_head::find(std::string_view name,
                                                   std::uint32_t index) const noexcept {
    std::optional<std::string_view> value;
    each_line([&](std::string_view line) {
        const auto colon = line.find(':');
        if (colon == std::string_view::npos || !equal_but_for_case(trimmed(line.substr(0, colon)), name)) {
            return true;
        }
        if (index-- == 0) {
            value = trimmed(line.substr(colon + 1));
        }
        return !value.has_value();
    });
    return value;
}

bool message_head::has_token(std::string_view name, std::string_view token) const noexcept {
    for (std::uint32_t index = 0;; ++index) {
        const auto value = find(name, index);
        if (!value) {
            return false;
        }
        std::string_view rest = *value;
        while (!rest.empty()) {
            const auto comma = std::min(rest.find(','), rest.size());
            if (equal_but_for_case(trimmed(rest.substr(0, comma)), token)) {
                return true;
            }
            rest.remove_prefix(std::min(comma + 1, rest.size()));
        }
    }
}

std::optional<std::uint64_t> message_head::content_length() const noexcept {
    const auto value = find("Content-Length");
    return value ? whole_number(*value, std::numeric_limits<std::uint64_t>::max()) : std::nullopt;
}

std::string message_head::joined(std::string_view separator) const {
    std::string text;
    text.reserve(m_block.size() + 16);
    text.append(first_line()).append(separator);
    each_line([&](std::string_view line) {
        text.append(line).append(separator);
        return true;
    });
    return text.append(separator);
}

std::optional<std::uint64_t> whole_number(std::string_view text, std::uint64_t limit) noexcept {
    if (text.empty()) {
        return std::nullopt;
    }
    std::uint64_t number = 0;
    for (const char c : text) {
        if (c < '0' || c > '9') {
            return std::nullopt;
        }
        const auto digit = static_cast<std::uint64_t>(c - '0');
        if (number > (limit - digit) / 10) {
            return std::nullopt;
        }
        number = number * 10 + digit;
    }
    return number;
}

}  // namespace kro::tessel::os
