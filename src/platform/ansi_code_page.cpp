#include "os/code_page.h"

#include "tessel/platform/host.h"

namespace kro::tessel {

bool set_ansi_code_page(std::uint32_t number) {
    return number != os::k_code_page_ansi && os::code_pages().set_ansi_code_page(number);
}

}  // namespace kro::tessel
