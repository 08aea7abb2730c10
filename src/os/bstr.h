// The platform's shared text, as a type that can be copied: on Windows its public header only names it.
#pragma once

#include "tessel/base/types.h"
#include "tessel/platform/bstr.h"

#if !defined(TESSEL_HAS_OWN_BSTR)
#include <comdef.h>
#endif

#include <memory>

namespace kro::tessel::os {

/// Makes one of a text without zero units. Throws soap_error{k_soap_no_memory} or std::bad_alloc.
std::shared_ptr<const _bstr_t> make_bstr(const wide_string& text);

}  // namespace kro::tessel::os
