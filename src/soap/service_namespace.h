// The namespace of the service that knows clients' configurations.
#pragma once

#include "tessel/base/string.h"

namespace kro::tessel::soap {

CTString service_namespace();  ///< the one in force; any thread

}  // namespace kro::tessel::soap
