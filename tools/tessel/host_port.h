// A proxy as it stands on the command line.
#pragma once

#include <cstdint>
#include <string>

namespace command {

struct host_port {
    std::string host;  ///< empty: the text wasn't of that form
    std::uint16_t port = 0;
};

/// Splits "HOST:PORT".
host_port split_host_port(const std::string& text);

}  // namespace command
