#include "http/request_headers.h"

#include <algorithm>

namespace kro::tessel::http {
namespace {

using wide_view = std::basic_string_view<wchar>;

constexpr wide_view k_line_ends = TESSEL_W("\r\n");

wchar lowered(wchar unit) noexcept {
    return unit >= 'A' && unit <= 'Z' ? static_cast<wchar>(unit + ('a' - 'A')) : unit;
}

bool begins_with_name(wide_view line, wide_view name) noexcept {
    line.remove_prefix(std::min(line.find_first_not_of(TESSEL_W(" \t")), line.size()));
    const bool same =
        line.size() > name.size() &&
        std::equal(name.begin(), name.end(), line.begin(), [](wchar a, wchar b) { return a == lowered(b); });
    if (!same) {
        return false;
    }
    const std::size_t behind = line.find_first_not_of(TESSEL_W(" \t"), name.size());
    return behind != wide_view::npos && line[behind] == ':';
}

}  // namespace

wide_view header_lines(const void* data, std::size_t bytes) noexcept {
    wide_view lines(static_cast<const wchar*>(data), bytes / sizeof(wchar));
    lines = lines.substr(0, lines.find(wchar{0}));
    return lines.substr(0, lines.find_last_not_of(k_line_ends) + 1);
}

bool names_header(wide_view lines, wide_view name) noexcept {
    while (!lines.empty()) {
        const std::size_t end = std::min(lines.find_first_of(k_line_ends), lines.size());
        if (begins_with_name(lines.substr(0, end), name)) {
            return true;
        }
        lines.remove_prefix(std::min(end + 1, lines.size()));
    }
    return false;
}

void append_header(wide_string& lines, wide_view line) {
    if (!lines.empty()) {
        lines.append(k_line_ends);
    }
    lines.append(line);
}

}  // namespace kro::tessel::http
