#include "os/linux/transfer_header_lines.h"

#include <strings.h>

#include <cstring>

namespace kro::tessel::os {

// Asked of each line several times a request, and mostly the first letter tells.
bool is_header(const char* line, std::string_view name) noexcept {
    constexpr int k_lower_case = 0x20;
    return (*line | k_lower_case) == (name.front() | k_lower_case) &&
           ::strncasecmp(line, name.data(), name.size()) == 0;
}

std::string_view header_in(const std::string& lines, std::string_view name) noexcept {
    std::size_t at = 0;
    while (at < lines.size() && !is_header(&lines[at], name)) {
        at += std::strlen(&lines[at]) + 1;
    }
    return at < lines.size() ? std::string_view(&lines[at]) : std::string_view();
}

bool names_header(const std::string& lines, std::string_view name) noexcept {
    return !header_in(lines, name).empty();
}

}  // namespace kro::tessel::os
