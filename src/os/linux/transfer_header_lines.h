// The header lines of an exchange: "Name: value" each, with a zero behind it. Names are given with their
// colon.
#pragma once

#include <string>
#include <string_view>

namespace kro::tessel::os {

inline constexpr std::string_view k_server_login = "Authorization:";
inline constexpr std::string_view k_proxy_login = "Proxy-Authorization:";

inline constexpr std::string_view k_host = "Host:";
inline constexpr std::string_view k_expect = "Expect:";
inline constexpr std::string_view k_cookie = "Cookie:";
inline constexpr std::string_view k_new_cookie = "Set-Cookie:";

/// Whether a line begins with the name, in any letter case.
bool is_header(const char* line, std::string_view name) noexcept;
/// The line of that name; empty without one.
std::string_view header_in(const std::string& lines, std::string_view name) noexcept;
bool names_header(const std::string& lines, std::string_view name) noexcept;

}  // namespace kro::tessel::os
