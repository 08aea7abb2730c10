#include "os/bstr.h"

#include "os/soap_toolkit.h"

namespace kro::tessel::os {

std::shared_ptr<const _bstr_t> make_bstr(const wide_string& text) {
    try {
        return std::make_shared<const _bstr_t>(text.c_str());
    } catch (const _com_error& failure) {
        throw soap_error{static_cast<std::uint32_t>(failure.Error())};
    }
}

}  // namespace kro::tessel::os
