// What the verbs that work on text read.
#pragma once

#include <tessel/tessel.h>

#include <string>

namespace command {

/// The bytes of a file; "-" is standard input. Throws std::runtime_error that says why it can't be read.
std::string read_input(const std::string& file);

/// Bytes as text: UTF-16 or UTF-8 with a mark, UTF-8 without one, else in the character set that the text
/// declares, else in that of the locale.
kro::tessel::CTString decode_text(std::string bytes);

/// Writes bytes to standard output.
void write_output(const std::string& bytes);

}  // namespace command
