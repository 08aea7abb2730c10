// "host:port", as the lists and the registry have it.
#pragma once

#include "tessel/base/types.h"

#include <cstddef>
#include <string_view>

namespace kro::tessel::proxy {

/// Where the port's colon stands: the first one, but the one behind an IPv6 address in brackets. npos when
/// there is none.
inline std::size_t port_colon(std::basic_string_view<wchar> text) noexcept {
    const bool opens = !text.empty() && text.front() == '[';
    const std::size_t end =
        opens ? text.find_first_not_of(TESSEL_W("0123456789abcdefABCDEF:."), 1) : text.npos;
    const bool is_address = end != text.npos && text[end] == ']' && text.substr(end + 1, 1) == TESSEL_W(":");
    return is_address ? end + 1 : text.find(wchar(':'));
}

}  // namespace kro::tessel::proxy
