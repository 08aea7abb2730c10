// The running system's services, as each system's folder makes them: on first use, there until unload.
#pragma once

#include "os/inet.h"
#include "os/message_window.h"
#include "os/soap_toolkit.h"

namespace kro::tessel::os {

inet_service& system_inet();
message_window_service& system_message_windows();
soap_toolkit& system_soap_toolkit();

}  // namespace kro::tessel::os
