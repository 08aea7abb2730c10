#include "os/linux/soap_connector.h"

#include "os/linux/inet_text.h"

#include <atomic>
#include <cstdint>
#include <limits>
#include <utility>

namespace kro::tessel::os {
namespace {

std::atomic<std::uint32_t> g_shorter_timeout{0};

bool names(soap_text property, std::string_view name) {
    return equal_but_for_case(narrow(property), name);
}

[[noreturn]] void refuse(std::uint32_t code) {
    throw soap_error{code};
}

}  // namespace

void shorten_soap_timeout_for_test(std::uint32_t milliseconds) {
    g_shorter_timeout = milliseconds;
}

void http_connector::set_text(soap_text property, soap_text value) {
    const std::pair<std::string_view, wide_string*> texts[] = {{"EndPointURL", &m_route.url},
                                                               {"SoapAction", &m_route.action},
                                                               {"ProxyServer", &m_route.proxy_server},
                                                               {"ProxyUser", &m_route.proxy_user},
                                                               {"ProxyPassword", &m_route.proxy_password}};
    for (const auto& [name, text] : texts) {
        if (names(property, name)) {
            text->assign(value);
            return;
        }
    }
    refuse(k_soap_unknown_name);
}

void http_connector::set_flag(soap_text property, bool value) {
    if (!names(property, "UseProxy")) {
        refuse(k_soap_unknown_name);
    }
    m_route.uses_proxy = value;
}

void http_connector::set_number(soap_text property, std::int32_t value) {
    if (value < 0) {
        refuse(k_soap_invalid_argument);
    }
    if (names(property, "Timeout")) {
        m_route.milliseconds = static_cast<std::uint32_t>(value);
    } else if (!names(property, "ProxyPort")) {
        refuse(k_soap_unknown_name);
    } else if (value > std::numeric_limits<std::uint16_t>::max()) {
        refuse(k_soap_invalid_argument);
    } else {
        m_route.proxy_port = static_cast<std::uint16_t>(value);
    }
}

void http_connector::connect() {
    m_phase = phase::connected;
}

void http_connector::begin_message() {
    require(phase::connected);
    m_message.bytes.clear();
    m_phase = phase::message;
}

soap_stream& http_connector::input_stream() {
    require(phase::message);
    return m_message;
}

void http_connector::end_message() {
    require(phase::message);
    const std::uint32_t shorter = g_shorter_timeout;
    if (shorter != 0) {
        m_route.milliseconds = shorter;
    }
    m_phase = phase::connected;
    soap_post_answer answer = post_soap_message(m_route, m_message.bytes);
    m_answer.bytes = std::move(answer.bytes);
    m_answer.charset = std::move(answer.charset);
    m_phase = phase::answered;
}

soap_stream& http_connector::output_stream() {
    require(phase::answered);
    return m_answer;
}

void http_connector::require(phase wanted) const {
    if (m_phase != wanted) {
        refuse(k_soap_failure);
    }
}

}  // namespace kro::tessel::os
