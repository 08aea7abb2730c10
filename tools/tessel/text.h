// Between the shell's UTF-8 and the library's UTF-16.
#pragma once

#include <tessel/tessel.h>

#include <string>
#include <string_view>

namespace command {

/// Unpaired surrogates become U+FFFD.
std::string to_utf8(std::basic_string_view<wchar> text);

/// Bytes that aren't UTF-8 become U+FFFD, one each.
kro::tessel::CTString from_utf8(std::string_view bytes);

/// The letters of ASCII in lower case.
std::string to_lower(std::string text);

/// Without the white space around it.
std::string trimmed(std::string_view text);

}  // namespace command
