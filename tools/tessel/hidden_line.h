// A line that nobody looking on may see: a password.
#pragma once

#include <string>

namespace command {

/// Asks on standard error and reads a line of standard input, without an echo where that is a terminal; a
/// pipe isn't asked. False at its end, or when the terminal can't be told to keep quiet.
bool read_hidden_line(const std::string& question, std::string& line);

}  // namespace command
