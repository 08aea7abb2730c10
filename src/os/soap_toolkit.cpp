#include "os/soap_toolkit.h"

#include "os/system_services.h"

#include <atomic>

namespace kro::tessel::os {
namespace {

std::atomic<soap_toolkit*> g_replacement{nullptr};

}  // namespace

soap_toolkit& soap() {
    soap_toolkit* const replacement = g_replacement.load(std::memory_order_acquire);
    return replacement != nullptr ? *replacement : system_soap_toolkit();
}

soap_toolkit* replace_soap_toolkit_for_test(soap_toolkit* toolkit) {
    return g_replacement.exchange(toolkit, std::memory_order_acq_rel);
}

}  // namespace kro::tessel::os
