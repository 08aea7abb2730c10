// What differs between the systems about the standard streams.
#pragma once

namespace command {

/// From now on bytes written to standard output arrive unchanged.
void pass_bytes_on();

/// Whether somebody looks at standard error.
bool errors_go_to_a_terminal();

}  // namespace command
