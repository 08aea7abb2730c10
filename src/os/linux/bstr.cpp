#include "os/bstr.h"

namespace kro::tessel::os {

std::shared_ptr<const _bstr_t> make_bstr(const wide_string& text) {
    return std::make_shared<const _bstr_t>(text);
}

}  // namespace kro::tessel::os
