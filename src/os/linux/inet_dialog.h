// The dialogue that an error of a request calls for.
#pragma once

#include "os/linux/inet_request.h"

#include <cstdint>

namespace kro::tessel::os {

/// Asks for credentials when the response is a challenge, and stores them in the request's connection.
/// Returns 0 nothing to ask, 12032 send again, 1223 cancelled.
std::uint32_t show_dialog(inet_request& request, std::uint32_t error, std::uint32_t flags);

}  // namespace kro::tessel::os
