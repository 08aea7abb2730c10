// The library's trace on standard error, each line with its time and thread.
#pragma once

#include <tessel/tessel.h>

namespace command {

/// From now on every trace line is shown; the calling thread is named "ui". The first other thread that
/// traces is the engine's "service" thread.
void show_trace();

/// Shows one line so; for a sink that looks at the lines itself.
void show_trace_line(const wchar* text);

}  // namespace command
