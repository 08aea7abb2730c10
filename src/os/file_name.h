// Names of files as the system's byte streams take them.
#pragma once

#include "tessel/base/types.h"

#include <string>
#include <string_view>

namespace kro::tessel::os {

/// The bytes that name a file: UTF-8 on Linux, whatever the locale, as desktops write them; the ANSI code
/// page on Windows, where a character that the page lacks becomes its best fit or "?".
/// Thread: any. The last error stays as it is. Throws: std::bad_alloc.
std::string file_name(std::basic_string_view<wchar> path);

}  // namespace kro::tessel::os
