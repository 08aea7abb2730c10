// The request as it goes out: request line, headers, proxy, accounts.
#pragma once

#include "os/linux/inet_address.h"
#include "os/linux/inet_headers.h"
#include "os/linux/transfer.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kro::tessel::os {

/// What a request is made from; changes from hop to hop while redirects are followed.
struct outgoing {
    std::string verb;
    inet_address address;
    std::uint32_t flags = 0;  ///< request flags of the service
    std::string agent;
    header_list headers;  ///< the caller's
    std::uint64_t body_bytes = 0;
};

/// The headers in the order in which they go out, Host included.
std::vector<header_field> wire_headers(const outgoing& what);

/// Fills in what the network needs: verb, URL, origin, headers, body length, certificate rules.
void compose(const outgoing& what, transfer_request& request);

/// Request line and headers, as text with CR LF and the empty line at the end.
std::string wire_head(const outgoing& what);

}  // namespace kro::tessel::os
