// One SOAP message over the HTTP service, and its answer.
#pragma once

#include "tessel/base/types.h"

#include <cstdint>
#include <string>
#include <string_view>

namespace kro::tessel::os {

/// Where a message goes and how.
struct soap_route {
    wide_string url;
    wide_string action;
    bool uses_proxy = false;
    wide_string proxy_server;  ///< empty: the system's own choice
    std::uint16_t proxy_port = 0;
    wide_string proxy_user;
    wide_string proxy_password;
    std::uint32_t milliseconds = 0;  ///< for the exchange; 0 for no limit
};

struct soap_post_answer {
    std::string bytes;
    std::string charset;  ///< of the Content-Type, may be empty
};

/// Posts a message. Redirects aren't followed: a message may hold a password, which goes where the caller
/// said. Throws soap_error: k_soap_error_number and the HTTP service's number; k_soap_proxy_account for
/// status 407; k_soap_http_status and the status for every other one but 2xx, and 500 with an XML document;
/// k_soap_error_number and 13 for an answer in a content coding, 223 for one that is too large;
/// k_soap_invalid_argument for an action that no header can hold.
soap_post_answer post_soap_message(const soap_route& route, std::string_view message);

}  // namespace kro::tessel::os
