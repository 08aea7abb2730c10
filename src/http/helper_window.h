// The hidden window on whose thread requests take their steps.
#pragma once

#include "tessel/http/session_context.h"

namespace kro::tessel::http {

/// Posts a message that runs the next step of the context, if one is due when it arrives. Any thread.
void post_step(session_context* context);

}  // namespace kro::tessel::http
