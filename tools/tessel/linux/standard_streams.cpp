#include "../standard_streams.h"

#include <unistd.h>

namespace command {

void pass_bytes_on() {}  // they always do

bool errors_go_to_a_terminal() {
    return ::isatty(STDERR_FILENO) != 0;
}

}  // namespace command
