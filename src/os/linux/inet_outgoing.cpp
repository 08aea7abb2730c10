#include "os/linux/inet_outgoing.h"

#include "os/inet.h"

namespace kro::tessel::os {
namespace {

bool is_framing(std::string_view name) noexcept {
    return equal_but_for_case(name, "Content-Length") || equal_but_for_case(name, "Transfer-Encoding");
}

bool asks_past_caches(const outgoing& what) noexcept {
    const bool stores_nothing = (what.flags & k_request_no_cache_write) != 0 && what.verb != "GET";
    return (what.flags & k_request_reload) != 0 || stores_nothing;
}

template <class Visitor>
void each_wire_header(const outgoing& what, Visitor&& visit) {
    const header_list& callers = what.headers;
    const auto unless_given = [&](std::string_view name, std::string_view value) {
        if (callers.find(name) == nullptr) {
            visit(name, value);
        }
    };
    if (what.body_bytes != 0) {
        visit("Content-Length", std::to_string(what.body_bytes));
    } else if (what.verb != "GET" && what.verb != "HEAD") {
        visit("Content-Length", "0");
    }
    if (!what.agent.empty()) {
        unless_given("User-Agent", what.agent);
    }
    for (const header_field& field : callers) {
        if (!is_framing(field.name)) {  // the body's length is known better here
            visit(field.name, field.value);
        }
    }
    if ((what.flags & k_request_keep_connection) != 0) {
        unless_given("Connection", "Keep-Alive");
    }
    if (asks_past_caches(what)) {
        unless_given("Cache-Control", "no-cache");
    }
    if ((what.flags & k_request_pragma_nocache) != 0) {
        unless_given("Pragma", "no-cache");
    }
}

}  // namespace

std::vector<header_field> wire_headers(const outgoing& what) {
    std::vector<header_field> fields;
    if (what.headers.find("Host") == nullptr) {
        fields.push_back({"Host", what.address.server()});
    }
    each_wire_header(what, [&fields](std::string_view name, std::string_view value) {
        fields.push_back({std::string(name), std::string(value)});
    });
    return fields;
}

void compose(const outgoing& what, transfer_request& request) {
    request.verb = what.verb;
    request.url = what.address.url();
    request.origin = what.address.origin();
    request.has_body = what.body_bytes != 0;
    request.body_bytes = what.body_bytes;
    request.ignore_cert_dates = what.address.secure && (what.flags & k_request_ignore_cert_date_invalid) != 0;
    request.ignore_cert_name = what.address.secure && (what.flags & k_request_ignore_cert_cn_invalid) != 0;
    const std::string* const connection = what.headers.find("Connection");
    request.closes_connection = connection != nullptr && equal_but_for_case(*connection, "close");
    request.uses_cookies = (what.flags & k_request_no_cookies) == 0;
    std::string& lines = request.header_lines;
    lines.reserve(256);
    each_wire_header(what, [&lines](std::string_view name, std::string_view value) {
        lines.append(name).append(": ").append(value).push_back('\0');
    });
    // What libcurl would add on its own; a name alone takes it back.
    if (what.headers.find("Accept") == nullptr) {
        lines.append("Accept:").push_back('\0');
    }
    if (request.has_body && what.headers.find("Expect") == nullptr) {
        lines.append("Expect:").push_back('\0');
    }
}

std::string wire_head(const outgoing& what) {
    std::string text = what.verb + ' ' + what.address.target + " HTTP/1.1\r\n";
    for (const header_field& field : wire_headers(what)) {
        text.append(field.name).append(": ").append(field.value).append("\r\n");
    }
    return text + "\r\n";
}

}  // namespace kro::tessel::os
