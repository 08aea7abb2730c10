#include "soap/service_namespace.h"

#include "tessel/platform/host.h"

#include <mutex>

namespace kro::tessel {
namespace {

struct namespace_setting {
    std::mutex mutex;  // guards uri
    CTString uri;
};

namespace_setting& setting() {
    static namespace_setting s_setting;
    return s_setting;
}

}  // namespace

void set_soap_service_namespace(const CTString& uri) {
    const std::lock_guard lock(setting().mutex);
    setting().uri = uri;
}

CTString soap::service_namespace() {
    const std::lock_guard lock(setting().mutex);
    return setting().uri.empty() ? CTString(k_soap_service_namespace) : setting().uri;
}

}  // namespace kro::tessel
