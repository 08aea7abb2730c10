// Which code page the user's locale means.
#pragma once

#include <cstdint>
#include <string_view>

namespace kro::tessel::os {

/// The page of a codeset's name, as locales spell it ("UTF-8", "iso88591", "EUC-KR"); 0 when it has none.
std::uint32_t code_page_of_codeset(std::string_view codeset);

/// The page of a locale's name ("de_DE.ISO-8859-15@euro"). A name without a codeset is looked up among the
/// installed locales. 65001 for "C", "POSIX", an empty name, and whatever has no page of its own.
std::uint32_t code_page_of_locale(const char* name);

/// That of the locale which the environment names: LC_ALL, else LC_CTYPE, else LANG.
std::uint32_t code_page_of_environment();

}  // namespace kro::tessel::os
