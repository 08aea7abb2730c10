// Which code page a received text is in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>

namespace kro::tessel::http {

/// One language and the charset of its texts. Only charset and code page are looked at; the other columns
/// are kept as hosts know them, oddities included.
struct charset_row {
    std::uint32_t language_id;
    const char* language;
    std::uint32_t is_default;
    const char* locale;
    std::uint32_t code_page;
    const char* charset;  ///< null only in the row that ends the table
};

inline constexpr std::size_t k_charset_rows = 41;  ///< with the row of zeros at the end
extern const charset_row k_charsets[k_charset_rows];

/// Bytes at the beginning of a text in which its encoding may be declared.
inline constexpr std::size_t k_declaration_bytes = 256;

/// The code page of a charset's name, ASCII letters compared without case: 65001 for UTF-8, else that of
/// the first row with that charset; 0, the ANSI code page, when there is none.
std::uint32_t code_page_of_charset(std::string_view name);

/// The code page that a text's XML declaration names; 0 when none is declared within k_declaration_bytes.
std::uint32_t detect_code_page(std::string_view text);

}  // namespace kro::tessel::http
