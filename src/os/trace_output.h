// Where trace lines go while the host has set no sink.
#pragma once

#include "tessel/base/types.h"

namespace kro::tessel::os {

/// The level that the user asked for; read once, at first use.
int default_trace_level() noexcept;

/// Writes one line and its end, as a whole even when several threads write. text: zero-terminated.
void write_default_trace(const wchar* text) noexcept;

}  // namespace kro::tessel::os
