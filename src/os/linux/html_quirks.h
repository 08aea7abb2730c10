// Which doctypes put a document into quirks mode (https://html.spec.whatwg.org/#the-initial-insertion-mode).
#pragma once

#include <string_view>

namespace kro::tessel::os {

/// doctype: from its "<!" to its ">". gumbo knows the identifiers too, but doesn't find them.
bool is_quirky_doctype(std::string_view doctype);

}  // namespace kro::tessel::os
