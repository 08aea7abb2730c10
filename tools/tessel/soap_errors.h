// Why a SOAP call failed, for a person.
#pragma once

#include <string>

namespace command {

/// Listens to the library's trace while it lives, since that is where SOAP calls say why they failed. Lines
/// go on to standard error when they are wanted: all of them, or up to the level that TESSEL_TRACE names.
class soap_errors {
public:
    explicit soap_errors(bool shows_trace);
    soap_errors(const soap_errors&) = delete;
    soap_errors& operator=(const soap_errors&) = delete;
    ~soap_errors();

    /// "80072ee7: what that means (what to do)" for the last failure; empty when there was none.
    static std::string last();
};

}  // namespace command
