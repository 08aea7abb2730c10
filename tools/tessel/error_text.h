// Error numbers as a person can act on them.
#pragma once

#include <cstdint>
#include <string>

namespace command {

/// "12007: the service's text (what to do about it)"; the hint is left out where there is none.
std::string describe_error(std::uint32_t error);

/// Whether the library has a text for the number.
bool is_known_error(std::uint32_t error);

}  // namespace command
