#include "os/linux/proxy_helper/script_engine.h"

#include "os/linux/proxy_helper/script_wrapper.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>

namespace kro::tessel::os {
namespace {

bool write_all(int file, std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(file, bytes.data(), bytes.size());
        if (count <= 0) {
            return false;
        }
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

}  // namespace

script_engine::script_engine() : m_factory(px_proxy_factory_new()) {}

bool script_engine::works() {
    if (m_factory == nullptr || !load("function FindProxyForURL(url, host) { return host; }")) {
        return false;
    }
    const script_outcome outcome = evaluate("http://tessel.invalid/");
    return outcome.evaluated && outcome.text == "tessel.invalid";
}

bool script_engine::load(std::string_view script) {
    descriptor file(::memfd_create("pac", MFD_CLOEXEC));
    if (file.number() < 0 || !write_all(file.number(), wrapped_script(script))) {
        return false;
    }
    // libproxy reads a script anew only when its URL is another: the old file stays open until the new one
    // has its number.
    const std::string url = "pac+file:///proc/self/fd/" + std::to_string(file.number());
    m_script = std::move(file);
    return ::setenv("http_proxy", url.c_str(), 1) == 0 && ::setenv("https_proxy", url.c_str(), 1) == 0;
}

script_outcome script_engine::evaluate(const std::string& url) {
    char** const answers = px_proxy_factory_get_proxies(m_factory.get(), url.c_str());
    script_outcome outcome = unwrapped_outcome(answers != nullptr && answers[0] != nullptr ? answers[0] : "");
    px_proxy_factory_free_proxies(answers);
    return outcome;
}

}  // namespace kro::tessel::os
