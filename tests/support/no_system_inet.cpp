// For tests that put a service of their own in force: nobody may reach the system's.
#include "os/system_services.h"

#include <cstdlib>

namespace kro::tessel::os {

inet_service& system_inet() {
    std::abort();
}

}  // namespace kro::tessel::os
