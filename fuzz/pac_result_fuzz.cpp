// Any bytes as the result of a script for proxies: whatever it says, routes are names that fit into a list of
// proxies, or there is a problem.
#include "os/linux/proxy_script_result.h"

#include <cstdint>
#include <cstdlib>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    namespace os = kro::tessel::os;
    const auto answer = os::parse_script_result({reinterpret_cast<const char*>(data), size});
    if (answer.routes.empty() == answer.problem.empty()) {
        std::abort();
    }
    for (const os::proxy_route& route : answer.routes) {
        const bool direct = route.type == os::proxy_route::kind::direct;
        if (route.host.find_first_of(":;= \t") != std::string::npos || route.host.empty() != direct ||
            (route.port == 0) != direct) {
            std::abort();
        }
    }
    return 0;
}
