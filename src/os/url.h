// URL cracking and the texts of the HTTP service's error numbers. Stateless; any thread.
#pragma once

#include <tessel/base/types.h>

#include <cstdint>
#include <string_view>

namespace kro::tessel::os {

// Scheme numbers.
inline constexpr std::uint16_t k_scheme_unknown = 0xFFFF;
inline constexpr std::uint16_t k_scheme_http = 3;
inline constexpr std::uint16_t k_scheme_https = 4;

/// The pieces of a URL: views into the text that was cracked, as written (nothing is unescaped,
/// lower-cased or trimmed). A missing piece is empty.
struct url_pieces {
    std::basic_string_view<wchar> scheme;
    std::uint16_t scheme_number = 0;  ///< published number, low 16 bits (unknown is -1: 0xFFFF)
    std::basic_string_view<wchar> host;
    std::uint16_t port = 0;
    std::basic_string_view<wchar> user;
    std::basic_string_view<wchar> password;
    std::basic_string_view<wchar> path;
    std::basic_string_view<wchar> extra;  ///< from the first "?" or "#" on
};

/// Breaks a URL into its pieces.
/// url:     ends at its first zero unit.
/// Returns: 0, or 12005 (invalid) or 12006 (no scheme, or none that could be one) with `pieces`
///          untouched. The same number becomes the thread's last error.
std::uint32_t crack_url(std::basic_string_view<wchar> url, url_pieces& pieces);

/// The text of an error number of the HTTP service, ended by CR LF; an empty view when there is none.
/// Lives until unload.
std::basic_string_view<wchar> inet_error_text(std::uint32_t error);

}  // namespace kro::tessel::os
