#include "json_line.h"

#include <fmt/core.h>

namespace command {

std::string json_line(const nlohmann::ordered_json& value) {
    return value.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

void print_json_line(const nlohmann::ordered_json& value) {
    fmt::print("{}\n", json_line(value));
}

}  // namespace command
