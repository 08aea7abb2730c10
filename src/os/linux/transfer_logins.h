// Which servers and proxies have taken an account in plain: later requests bring it along, which saves them
// the challenge, and with it their body sent twice.
#pragma once

#include "os/linux/transfer.h"

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

/// From any thread.
class plain_logins {
public:
    /// Whether this account was taken at the place, or in a folder that it lies in.
    bool knows(std::string_view place, const transfer_credentials& account);
    void taken(std::string_view place, const transfer_credentials& account);
    void refused(std::string_view place, const transfer_credentials& account);

private:
    struct login {
        std::string place;
        std::size_t account;  // a hash: no password is kept
    };

    std::mutex m_mutex;          // guards m_known
    std::vector<login> m_known;  // the latest last
};

/// Of all requests of the process; never destroyed.
plain_logins& known_logins();

/// Where the server's account of a request counts: the folder that it asks in.
std::string_view server_place(const transfer_request& request) noexcept;
/// Where the proxy's does: all of it.
std::string proxy_place(const transfer_request& request);

}  // namespace kro::tessel::os
