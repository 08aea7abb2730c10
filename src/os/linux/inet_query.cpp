// The queries of a request handle.
#include "os/linux/inet_request.h"

#include <algorithm>
#include <iterator>

namespace kro::tessel::os {
namespace {

struct named_level {
    std::uint32_t level;
    const char* name;
};

constexpr named_level k_header_levels[] = {
    {k_query_content_type, "Content-Type"},
    {k_query_content_length, "Content-Length"},
    {k_query_content_encoding, "Content-Encoding"},
    {k_query_location, "Location"},
    {k_query_www_authenticate, "WWW-Authenticate"},
    {k_query_proxy_authenticate, "Proxy-Authenticate"},
    {k_query_set_cookie, "Set-Cookie"},
};

// The header that a level stands for; empty for levels that are no header.
std::string header_name(std::uint32_t level, const wide_string& custom) {
    if (level == k_query_custom) {
        return narrow(custom);
    }
    const auto* const found = std::find_if(std::begin(k_header_levels), std::end(k_header_levels),
                                           [level](const named_level& one) { return one.level == level; });
    return found == std::end(k_header_levels) ? std::string() : found->name;
}

bool counts_no_index(std::uint32_t level) noexcept {
    return level >= k_query_version && level <= k_query_raw_headers_crlf;
}

constexpr std::string_view k_line_end = "\r\n";
constexpr std::string_view k_zero("\0", 1);

}  // namespace

// Levels that are no header of the response.
std::uint32_t inet_request::query_fixed(std::uint32_t what, std::string& value) const {
    switch (what) {
        case k_query_version:
            value = m_head.version();
            break;
        case k_query_status_code:
            value = std::to_string(m_published ? m_head.status() : 0);
            break;
        case k_query_status_text:
            value = m_head.reason();
            break;
        case k_query_raw_headers:
            value = m_published ? m_head.joined(k_zero) : std::string();
            return 0;
        case k_query_raw_headers_crlf:
            value = m_published ? m_head.joined(k_line_end) : std::string();
            return 0;
        default:
            return k_error_http_header_not_found;
    }
    return m_published || what == k_query_status_code ? 0 : k_error_http_header_not_found;
}

std::uint32_t inet_request::query_request(std::uint32_t what, const std::string& name, std::uint32_t index,
                                          std::string& value) const {
    const outgoing sent = m_was_sent ? m_outgoing : first_hop();
    if (what == k_query_raw_headers_crlf || what == k_query_raw_headers) {
        const bool is_crlf = what == k_query_raw_headers_crlf;
        value = message_head(wire_head(sent)).joined(is_crlf ? k_line_end : k_zero);
        return 0;
    }
    if (name.empty()) {
        return k_error_http_invalid_query_request;
    }
    for (const header_field& field : wire_headers(sent)) {
        if (equal_but_for_case(field.name, name) && index-- == 0) {
            value = field.value;
            return 0;
        }
    }
    return k_error_http_header_not_found;
}

std::uint32_t inet_request::query(std::uint32_t what, const std::string& name, std::uint32_t index,
                                  std::string& value) const {
    const std::lock_guard lock(m_mutex);
    if (m_closed) {
        return k_error_inet_incorrect_handle_type;
    }
    const std::uint32_t level = what & ~k_query_request_headers;
    if (level != what) {
        return query_request(level, name, index, value);
    }
    if (m_was_sent && m_two_steps && !m_published && !m_failed) {
        return k_error_inet_incorrect_handle_state;
    }
    if (level == k_query_request_method) {
        value = m_was_sent ? m_outgoing.verb : m_verb;
        return 0;
    }
    if (name.empty()) {
        return index == 0 || !counts_no_index(level) ? query_fixed(level, value)
                                                     : k_error_http_header_not_found;
    }
    // A length beside chunks says nothing of the body.
    const bool is_void = level == k_query_content_length && m_head.has_token("Transfer-Encoding", "chunked");
    const auto found = m_published && !is_void ? m_head.find(name, index) : std::nullopt;
    if (found) {
        value = *found;
    }
    return found ? 0 : k_error_http_header_not_found;
}

inet_status inet_request::query_text(std::uint32_t what, std::uint32_t& index, wide_string& text) const {
    const std::uint32_t level = what & ~k_query_request_headers;
    std::string value;
    const std::uint32_t error = query(what, header_name(level, text), index, value);
    if (error == 0) {
        text = widen(value);
        index += counts_no_index(level) ? 0 : 1;
    }
    return {error};
}

inet_request::challenge inet_request::challenge_of_response() const {
    const std::lock_guard lock(m_mutex);
    if (!m_published) {
        return {};
    }
    const bool from_proxy = m_head.status() == 407;
    challenge result;
    result.status = m_head.status();
    result.host =
        from_proxy ? m_route.proxy : m_outgoing.address.host + ':' + std::to_string(m_outgoing.address.port);
    const char* const name = from_proxy ? "Proxy-Authenticate" : "WWW-Authenticate";
    for (std::uint32_t index = 0; const auto one = m_head.find(name, index); ++index) {
        result.text.append(index == 0 ? "" : ", ").append(*one);
    }
    return result;
}

inet_status inet_request::query_number(std::uint32_t what, std::uint32_t& number) const {
    std::string text;
    const std::uint32_t error = query(what, header_name(what & ~k_query_request_headers, {}), 0, text);
    if (error != 0) {
        return {error};
    }
    const auto value = whole_number(text, 0xFFFFFFFFU);
    if (!value) {
        return {k_error_http_invalid_header};
    }
    number = static_cast<std::uint32_t>(*value);
    return {0};
}

}  // namespace kro::tessel::os
