// The sink in force. host.h lets a host replace it; the default one belongs to the system.
#pragma once

#include "tessel/platform/host.h"

namespace kro::tessel {

/// The sink in force: one atomic load. Its functions are never null.
const trace_sink& current_trace_sink() noexcept;

/// False only where the line is certain to be dropped: the default sink is in force and shows lower
/// levels only. A host's sink gets every message.
bool trace_line_is_wanted(int level) noexcept;

}  // namespace kro::tessel
