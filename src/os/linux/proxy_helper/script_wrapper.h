// Makes of a script for proxies one whose outcome, an error included, comes unchanged through libproxy, which
// takes a script that fails for a decision for a direct connection and drops what it doesn't know.
#pragma once

#include "os/linux/proxy_helper/script_engine.h"

#include <string>
#include <string_view>

namespace kro::tessel::os {

/// script: UTF-8, with or without its mark, or else Latin-1.
/// Returns: a script in ASCII that returns a PROXY whose name is the outcome in disguise.
std::string wrapped_script(std::string_view script);

/// Reads libproxy's first answer to a wrapped script.
script_outcome unwrapped_outcome(std::string_view answer);

}  // namespace kro::tessel::os
