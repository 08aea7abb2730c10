// The registry in a file of one's own choice: for tests, which want several, and for measurements.
#pragma once

#include "os/registry.h"

#include <memory>
#include <string>

namespace kro::tessel::os {

/// One that knows nothing of forks: use it in the process that made it.
std::unique_ptr<registry_service> make_registry(std::string file);

}  // namespace kro::tessel::os
