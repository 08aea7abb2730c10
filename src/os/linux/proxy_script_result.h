// What a script for proxies (PAC) returns: "PROXY proxy:3128; DIRECT".
#pragma once

#include "os/proxy_script.h"

#include <string_view>

namespace kro::tessel::os {

/// Items are divided by ";": DIRECT, PROXY and HTTP host[:port] with port 80, HTTPS host[:port] with port
/// 443, in any case. What else there may be (SOCKS above all) is left out. Returns: routes, or the problem
/// that none is left.
proxy_script_answer parse_script_result(std::string_view result);

}  // namespace kro::tessel::os
