// Text as XML carries it: what may stand in it, and its UTF-8.
#pragma once

#include "os/soap_toolkit.h"

#include "tessel/base/types.h"

#include <string>

namespace kro::tessel::os {

// All append UTF-8 and throw soap_error{k_soap_invalid_argument} at a character that XML 1.0 has no place
// for: most controls, U+FFFE, U+FFFF and unpaired surrogates. What they appended until then stays.

void append_as_text(std::string& out, soap_text text);             ///< of an element
void append_as_attribute_value(std::string& out, soap_text text);  ///< between double quotes
void append_as_markup(std::string& out, soap_text text);           ///< nothing escaped

/// Whether an element can be called so: a name of XML 1.0, fifth edition, without a colon.
bool is_element_name(soap_text name) noexcept;

}  // namespace kro::tessel::os
