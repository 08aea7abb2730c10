// Header lines from the command line.
#pragma once

#include <string>
#include <vector>

namespace command {

/// The lines joined with CR LF. Throws usage_error for one that is no header line.
std::string joined_headers(const std::vector<std::string>& lines);

}  // namespace command
