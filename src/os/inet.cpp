#include "os/inet.h"

#include "os/system_services.h"

#include <atomic>

namespace kro::tessel::os {
namespace {

std::atomic<inet_service*> g_replacement{nullptr};

}  // namespace

inet_service& inet() {
    inet_service* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : system_inet();
}

inet_service* replace_inet_for_test(inet_service* service) {
    return g_replacement.exchange(service, std::memory_order_acq_rel);
}

}  // namespace kro::tessel::os
