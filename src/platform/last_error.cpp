#include "tessel/platform/last_error.h"

#include "os/thread.h"

namespace kro::tessel {

void set_last_error(unsigned long error) {
    os::set_last_error(static_cast<std::uint32_t>(error));
}

unsigned long get_last_error() {
    return os::last_error();
}

}  // namespace kro::tessel
