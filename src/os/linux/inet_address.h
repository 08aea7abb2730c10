// Where a request goes: server and target as they travel on the wire.
#pragma once

#include "os/linux/inet_text.h"

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace kro::tessel::os {

struct inet_address {
    bool secure = false;
    std::string host;  ///< ASCII, lower case; an IPv6 address stands in brackets
    std::uint16_t port = 0;
    std::string target = "/";  ///< path and query, escaped

    bool has_default_port() const noexcept { return port == (secure ? 443 : 80); }
    std::string server() const;  ///< host, and ":port" when it isn't the scheme's default
    std::string url() const;
    std::string origin() const;  ///< scheme, host and port: what connections are shared by
    bool same_server(const inet_address& other) const noexcept;
};

/// A host name as it is looked up: IDNA for what isn't ASCII. Nothing when it can't be a name.
std::optional<std::string> ascii_host(wide_view host);

/// The target of a request for `object`, a path and query as a caller writes them: a missing "/" is added,
/// a fragment cut off, blanks and controls escaped; other characters are UTF-8 and escaped in the path, in
/// the ANSI code page and bare in the query.
std::string escaped_target(wide_view object);

enum class location_kind { followable, other_scheme, invalid };

struct located {
    location_kind kind = location_kind::invalid;
    inet_address address;
};

/// What a Location header means, seen from the address that answered with it.
located resolve_location(const inet_address& base, std::string_view location);

}  // namespace kro::tessel::os
