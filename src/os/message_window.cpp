#include "os/message_window.h"

#include "os/system_services.h"

#include <atomic>

namespace kro::tessel::os {
namespace {

std::atomic<message_window_service*> g_replacement{nullptr};

}  // namespace

message_window_service& message_windows() {
    message_window_service* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : system_message_windows();
}

message_window_service* replace_message_windows_for_test(message_window_service* service) {
    return g_replacement.exchange(service, std::memory_order_acq_rel);
}

}  // namespace kro::tessel::os
