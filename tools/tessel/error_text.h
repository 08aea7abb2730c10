// Error numbers as a person can act on them.
#pragma once

#include <cstdint>
#include <string>

namespace command {

/// "12007: the service's text (what to do about it)"; the hint is left out where there is none.
std::string describe_error(std::uint32_t error);

/// Whether the library has a text for the number.
bool is_known_error(std::uint32_t error);

/// Whether a status of HTTP says that the server refuses: 400 and above.
bool is_bad_status(std::uint32_t status);

/// "the server answered with HTTP status 407 (what to do about it)".
std::string describe_status(std::uint32_t status);

}  // namespace command
