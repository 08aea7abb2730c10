// JSON as the command writes it.
#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace command {

/// On one line, without its end. What isn't UTF-8, as bytes from the shell may not be, becomes U+FFFD.
std::string json_line(const nlohmann::ordered_json& value);

/// The same, as a line of standard output.
void print_json_line(const nlohmann::ordered_json& value);

}  // namespace command
