// The host's prompt for credentials, which stands behind the dialogue of the HTTP service.
#pragma once

#include "tessel/platform/host.h"

namespace kro::tessel::os {

/// Puts a prompt in force; null for none. Any thread.
void set_prompt(credentials_prompt prompt) noexcept;

/// The prompt in force; null means the system's own.
credentials_prompt current_prompt() noexcept;

}  // namespace kro::tessel::os
