// The request headers of a synchronous transfer, as text.
#pragma once

#include "tessel/base/types.h"

#include <cstddef>
#include <string_view>

namespace kro::tessel::http {

/// The text in a header buffer: up to its end or a first zero, without line ends behind the last line.
/// data: null when bytes is 0; an odd byte at the end isn't looked at.
std::basic_string_view<wchar> header_lines(const void* data, std::size_t bytes) noexcept;

/// Whether one of the lines begins with the name and a colon, in any letter case. name: in lower-case ASCII.
bool names_header(std::basic_string_view<wchar> lines, std::basic_string_view<wchar> name) noexcept;

/// Appends a line; one without a line end before the first.
void append_header(wide_string& lines, std::basic_string_view<wchar> line);

}  // namespace kro::tessel::http
