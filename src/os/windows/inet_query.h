// What can be asked of a handle: headers, and options that are text.
#pragma once

#include "os/inet.h"

#include <windows.h>
#include <wininet.h>

#include <cstdint>

namespace kro::tessel::os {

inet_status query_header_text(HINTERNET request, std::uint32_t what, std::uint32_t& index, wide_string& text);
inet_status query_header_number(HINTERNET request, std::uint32_t what, std::uint32_t& number);

inet_status set_option_number(HINTERNET handle, std::uint32_t option, std::uint32_t number);
inet_status set_option_text(HINTERNET handle, std::uint32_t option, const wide_string& text);
inet_status query_option_text(HINTERNET handle, std::uint32_t option, wide_string& text);

}  // namespace kro::tessel::os
