// The finder that stands on the system's settings.
#pragma once

#include "tessel/proxy/proxy_finder.h"

#include <memory>

namespace kro::tessel::proxy {

/// Answers each query at once from the settings as they are then. Where they name a script it is asked, and
/// the answer comes by `sink`, on a thread of the finder's; one that fails is empty, with a warning in the
/// trace: it must not look like a decision for a direct connection. It needs no accounts and keeps none.
std::unique_ptr<IProxyFinder> make_settings_finder(IProxyFinderSink* sink);

}  // namespace kro::tessel::proxy
