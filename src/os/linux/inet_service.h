// The HTTP service on a network of one's choice: what os::inet() is made of, and how tests script it.
#pragma once

#include "os/inet.h"
#include "os/linux/transfer.h"

#include <memory>

namespace kro::tessel::os {

/// network:     for asynchronous requests; must outlive the service and everything that is under way.
/// make_turned: makes the network of one synchronous request.
std::unique_ptr<inet_service> make_inet_service(
    transfer_service& network, std::unique_ptr<turned_transfers> (*make_turned)() = make_turned_transfers);

}  // namespace kro::tessel::os
