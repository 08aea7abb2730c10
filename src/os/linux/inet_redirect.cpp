#include "os/linux/inet_redirect.h"

#include "os/inet.h"

#include <utility>

namespace kro::tessel::os {
namespace {

bool is_followed(std::uint32_t status) noexcept {
    return status == 301 || status == 302 || status == 303 || status == 307 || status == 308;
}

std::uint32_t scheme_change_error(const outgoing& sent, const inet_address& to) noexcept {
    if (to.secure == sent.address.secure) {
        return 0;
    }
    const std::uint32_t allowing =
        to.secure ? k_request_ignore_redirect_to_https : k_request_ignore_redirect_to_http;
    if ((sent.flags & allowing) != 0) {
        return 0;
    }
    return to.secure ? k_error_inet_redirect_to_https : k_error_inet_redirect_to_http;
}

// 307 and 308 repeat the request; the older three ask for the new place with GET, whatever was sent.
void change_verb(outgoing& next, std::uint32_t status) {
    if (status == 307 || status == 308) {
        return;
    }
    if (next.verb != "HEAD") {
        next.verb = "GET";
    }
    if (next.body_bytes != 0) {  // else the header speaks of nothing that is dropped here
        next.body_bytes = 0;
        next.headers.remove("Content-Type");
    }
}

}  // namespace

redirect_decision decide_redirect(const outgoing& sent, const message_head& response, std::uint32_t hops) {
    redirect_decision decision;
    const auto location = response.find("Location");
    if (!is_followed(response.status()) || !location || (sent.flags & k_request_no_auto_redirect) != 0) {
        return decision;
    }
    located place = resolve_location(sent.address, *location);
    if (place.kind == location_kind::other_scheme) {
        return decision;
    }
    decision.step = redirect_step::fail;
    if (place.kind == location_kind::invalid) {
        decision.error = k_error_inet_invalid_url;
        return decision;
    }
    decision.error = scheme_change_error(sent, place.address);
    if (decision.error == 0 && hops >= k_max_redirects) {
        decision.error = k_error_http_redirect_failed;
    }
    if (decision.error != 0) {
        return decision;
    }
    decision.step = redirect_step::follow;
    decision.next = sent;
    decision.same_server = sent.address.same_server(place.address);
    decision.next.address = std::move(place.address);
    change_verb(decision.next, response.status());
    if (!decision.same_server) {
        for (const char* const secret : {"Authorization", "Cookie", "Host"}) {
            decision.next.headers.remove(secret);
        }
    }
    return decision;
}

}  // namespace kro::tessel::os
