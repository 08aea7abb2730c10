// The running system's services, as each system's folder makes them: on first use, there until unload.
#pragma once

#include "os/inet.h"
#include "os/message_window.h"

namespace kro::tessel::os {

inet_service& system_inet();
message_window_service& system_message_windows();

}  // namespace kro::tessel::os
