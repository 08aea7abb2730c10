// The hidden window on whose thread requests take their steps.
#pragma once

#include "tessel/http/session_context.h"

namespace kro::tessel::http {

/// Posts a message that runs the next step of the context, if one is due when it arrives. Any thread.
void post_step(session_context* context);

/// Posts the message by which received data is announced; the window's procedure passes it by. Any thread.
void post_data_received(session_context* context);

}  // namespace kro::tessel::http
