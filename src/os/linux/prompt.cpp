#include "os/prompt.h"

#include <atomic>

namespace kro::tessel::os {
namespace {

std::atomic<credentials_prompt> g_prompt{nullptr};

}  // namespace

void set_prompt(credentials_prompt prompt) noexcept {
    g_prompt.store(prompt);
}

credentials_prompt current_prompt() noexcept {
    return g_prompt.load();
}

}  // namespace kro::tessel::os
