// The HTTP service on a network of one's choice: what os::inet() is made of, and how tests script it.
#pragma once

#include "os/inet.h"
#include "os/linux/transfer.h"

#include <memory>

namespace kro::tessel::os {

/// network: must outlive the service and everything that is under way.
std::unique_ptr<inet_service> make_inet_service(transfer_service& network);

}  // namespace kro::tessel::os
