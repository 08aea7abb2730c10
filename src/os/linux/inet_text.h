// The few conversions and comparisons that HTTP text needs. Header text is ISO 8859-1 both ways.
#pragma once

#include "tessel/base/types.h"

#include <string>
#include <string_view>

namespace kro::tessel::os {

using wide_view = std::basic_string_view<wchar>;

wide_string widen(std::string_view latin1);
std::string narrow(wide_view text);  ///< to ISO 8859-1; "?" for what it lacks
std::string to_utf8(wide_view text);
std::string to_ansi(wide_view text);  ///< in the ANSI code page
wide_string from_utf8(std::string_view text);

void append_escaped(std::string& out, char byte);  ///< "%" and two upper-case hexadecimal digits

std::string_view trimmed(std::string_view text) noexcept;  ///< without blanks and tabs at both ends
bool equal_but_for_case(std::string_view left, std::string_view right) noexcept;  ///< ASCII case only
std::string lowered(std::string_view text);                                       ///< ASCII case only

}  // namespace kro::tessel::os
