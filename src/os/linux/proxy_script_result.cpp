#include "os/linux/proxy_script_result.h"

#include "os/linux/inet_text.h"
#include "os/linux/proxy_bypass.h"

#include <charconv>
#include <optional>

namespace kro::tessel::os {
namespace {

struct script_item {
    std::string kind;
    std::string_view address;
};

script_item split(std::string_view text) {
    const std::size_t end = std::min(text.find_first_of(" \t"), text.size());
    return {lowered(text.substr(0, end)), trimmed(text.substr(end))};
}

bool is_name(std::string_view host) {
    return !host.empty() && std::all_of(host.begin(), host.end(), [](char c) {
        return (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_';
    });
}

std::optional<proxy_route> named_proxy(std::string_view address, proxy_route::kind type) {
    proxy_route route;
    route.type = type;
    route.port = type == proxy_route::kind::https ? 443 : 80;
    const std::size_t colon = address.find(':');
    if (colon != std::string_view::npos) {
        const std::string_view digits = address.substr(colon + 1);
        const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), route.port);
        if (end.ec != std::errc() || end.ptr != digits.data() + digits.size()) {
            return std::nullopt;
        }
    }
    route.host = lowered(address.substr(0, colon));
    return is_name(route.host) && route.port != 0 ? std::optional(route) : std::nullopt;
}

std::optional<proxy_route> route_of(const script_item& item) {
    if (item.kind == "direct") {
        return proxy_route();
    }
    if (item.kind == "proxy" || item.kind == "http") {
        return named_proxy(item.address, proxy_route::kind::http);
    }
    if (item.kind == "https") {
        return named_proxy(item.address, proxy_route::kind::https);
    }
    return std::nullopt;
}

}  // namespace

proxy_script_answer parse_script_result(std::string_view result) {
    proxy_script_answer answer;
    each_list_entry(result, ";", [&answer](std::string_view text) {
        const std::string item(trimmed(text));
        if (item.empty()) {
            return;
        }
        if (const auto route = route_of(split(item))) {
            answer.routes.push_back(*route);
        } else {
            answer.left_out += (answer.left_out.empty() ? "" : ", ") + item;
        }
    });
    if (answer.routes.empty()) {
        answer.problem = "it names no HTTP proxy: " + answer.left_out;
    }
    return answer;
}

}  // namespace kro::tessel::os
