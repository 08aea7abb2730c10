// What a response with a Location makes of the request that got it.
#pragma once

#include "os/linux/inet_headers.h"
#include "os/linux/inet_outgoing.h"

#include <cstdint>

namespace kro::tessel::os {

inline constexpr std::uint32_t k_max_redirects = 100;

enum class redirect_step {
    deliver,  ///< the response is the answer
    follow,   ///< `next` is to be sent
    fail,     ///< the request ends with `error`; the response stays readable
};

struct redirect_decision {
    redirect_step step = redirect_step::deliver;
    std::uint32_t error = 0;
    outgoing next;
    bool same_server = true;  ///< else the accounts of this server don't go along
};

/// hops: how many redirects the request has followed already.
redirect_decision decide_redirect(const outgoing& sent, const message_head& response, std::uint32_t hops);

}  // namespace kro::tessel::os
