#include "host_port.h"

#include <CLI/CLI.hpp>

namespace command {

host_port split_host_port(const std::string& text) {
    const auto colon = text.rfind(':');
    unsigned port = 0;
    if (colon == std::string::npos || !CLI::detail::lexical_cast(text.substr(colon + 1), port) || port == 0 ||
        port > 0xFFFF) {
        return {};
    }
    return {text.substr(0, colon), static_cast<std::uint16_t>(port)};
}

}  // namespace command
