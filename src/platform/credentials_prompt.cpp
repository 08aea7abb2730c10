#include "os/prompt.h"

#include "tessel/platform/host.h"

namespace kro::tessel {

void set_credentials_prompt(credentials_prompt prompt) {
    os::set_prompt(prompt);
}

}  // namespace kro::tessel
