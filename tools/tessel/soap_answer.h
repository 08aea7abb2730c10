// The answer of a SOAP call, as it is shown.
#pragma once

#include <tessel/tessel.h>

#include <string>
#include <string_view>

namespace command {

std::string text_of_answer(const CLumSoapClient& client);  ///< as UTF-8

/// A well-formed document with a line for each element; what has text in it stays in one line.
std::string indented_xml(std::string_view xml);

/// Whether the body of an envelope holds a fault.
bool holds_fault(std::string_view xml);

}  // namespace command
