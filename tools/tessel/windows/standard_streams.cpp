#include "../standard_streams.h"

#include <fcntl.h>
#include <io.h>

#include <cstdio>

namespace command {

void pass_bytes_on() {
    ::_setmode(::_fileno(stdout), _O_BINARY);  // no CR in front of each LF
}

bool errors_go_to_a_terminal() {
    return ::_isatty(::_fileno(stderr)) != 0;
}

}  // namespace command
