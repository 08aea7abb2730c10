#include "os/proxy_script.h"

#include "os/linux/proxy_helper.h"
#include "os/linux/proxy_script_pool.h"

namespace kro::tessel::os {

std::unique_ptr<proxy_script_service> make_proxy_script_service() {
    return make_proxy_script_pool(proxy_helper_program(), {});
}

}  // namespace kro::tessel::os
