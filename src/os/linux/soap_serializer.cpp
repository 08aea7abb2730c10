#include "os/linux/soap_serializer.h"

#include "os/linux/soap_buffer.h"
#include "os/linux/soap_text.h"

#include <algorithm>
#include <cstddef>

namespace kro::tessel::os {
namespace {

constexpr std::string_view k_declaration = R"(<?xml version="1.0" encoding="UTF-8" standalone="no"?>)";
constexpr std::string_view k_envelope_namespace = "http://schemas.xmlsoap.org/soap/envelope/";
constexpr std::string_view k_standard_encoding = "http://schemas.xmlsoap.org/soap/encoding/";
constexpr std::string_view k_usual_prefix = "SOAP-ENV";
constexpr std::string_view k_own_prefix = "SOAPSDK";  // and a number
constexpr std::size_t k_usual_size = 4096;            // bytes of a message

}  // namespace

void message_serializer::init(soap_stream& message) {
    m_out = &buffer_of(message).bytes;
    m_out->clear();
    m_out->reserve(k_usual_size);
    m_place = place::start;
    m_tag_is_open = false;
    m_open.clear();
    m_namespaces.clear();
}

void message_serializer::start_envelope(soap_text prefix, soap_text encoding_style, soap_text encoding) {
    go(place::start, place::envelope);
    const bool is_utf8 = encoding.empty() || encoding == TESSEL_W("UTF-8") || encoding == TESSEL_W("utf-8");
    if (!is_utf8 || (!prefix.empty() && !is_element_name(prefix))) {
        throw soap_error{k_soap_invalid_argument};
    }
    m_envelope_prefix = k_usual_prefix;
    if (!prefix.empty()) {
        m_envelope_prefix.clear();
        append_as_markup(m_envelope_prefix, prefix);
    }
    m_out->append(k_declaration).append("<").append(m_envelope_prefix).append(":Envelope xmlns:");
    m_out->append(m_envelope_prefix).append("=\"").append(k_envelope_namespace).append("\"");
    m_tag_is_open = true;
    write_encoding_style(encoding_style);
}

void message_serializer::start_body(soap_text encoding_style) {
    go(place::envelope, place::body);
    finish_tag();
    m_out->append("<").append(m_envelope_prefix).append(":Body");
    m_tag_is_open = true;
    write_encoding_style(encoding_style);
}

void message_serializer::start_element(soap_text name, soap_text name_space, soap_text encoding_style) {
    go(place::body, place::body);
    if (!is_element_name(name)) {
        throw soap_error{k_soap_invalid_argument};
    }
    finish_tag();
    m_out->append("<");
    open_element element{m_out->size(), 0, m_namespaces.size()};
    unsigned number = 0;
    const bool is_declared = find_prefix(name_space, number);
    if (!name_space.empty()) {
        m_out->append(k_own_prefix).append(std::to_string(number)).append(":");
    }
    append_as_markup(*m_out, name);
    element.name_size = m_out->size() - element.name_at;
    if (!is_declared) {
        m_out->append(" xmlns:").append(k_own_prefix).append(std::to_string(number)).append("=\"");
        append_as_attribute_value(*m_out, name_space);
        m_out->append("\"");
        m_namespaces.push_back({wide_string(name_space), number});
    }
    m_open.push_back(element);
    m_tag_is_open = true;
    write_encoding_style(encoding_style);
}

void message_serializer::write_string(soap_text text) {
    if (m_open.empty()) {
        throw soap_error{k_soap_failure};
    }
    if (!text.empty()) {
        finish_tag();
        append_as_text(*m_out, text);
    }
}

void message_serializer::end_element() {
    if (m_open.empty()) {
        throw soap_error{k_soap_failure};
    }
    const open_element element = m_open.back();
    m_open.pop_back();
    m_namespaces.resize(element.namespaces);
    if (m_tag_is_open) {
        m_out->append("/>");
        m_tag_is_open = false;
        return;
    }
    m_out->append("</");
    m_out->append(*m_out, element.name_at, element.name_size);
    m_out->append(">");
}

void message_serializer::end_body() {
    if (!m_open.empty()) {
        throw soap_error{k_soap_failure};
    }
    go(place::body, place::after_body);
    finish_tag();
    m_out->append("</").append(m_envelope_prefix).append(":Body>");
}

void message_serializer::end_envelope() {
    go(place::after_body, place::after_envelope);
    m_out->append("</").append(m_envelope_prefix).append(":Envelope>");
}

void message_serializer::go(place from, place to) {
    if (m_place != from) {
        throw soap_error{k_soap_failure};
    }
    m_place = to;
}

void message_serializer::finish_tag() {
    if (m_tag_is_open) {
        m_out->append(">");
        m_tag_is_open = false;
    }
}

void message_serializer::write_encoding_style(soap_text style) {
    if (style.empty() || style == TESSEL_W("NONE")) {
        return;
    }
    m_out->append(" ").append(m_envelope_prefix).append(":encodingStyle=\"");
    if (style == TESSEL_W("STANDARD")) {
        m_out->append(k_standard_encoding);
    } else {
        append_as_attribute_value(*m_out, style);
    }
    m_out->append("\"");
}

// Whether a namespace needs no declaration; number: of its prefix, or of the one to declare.
bool message_serializer::find_prefix(soap_text name_space, unsigned& number) const {
    if (name_space.empty()) {
        return true;
    }
    const auto known = std::find_if(m_namespaces.begin(), m_namespaces.end(), [name_space](const auto& one) {
        return soap_text(one.uri) == name_space;
    });
    number = known != m_namespaces.end() ? known->number : static_cast<unsigned>(m_namespaces.size()) + 1;
    return known != m_namespaces.end();
}

}  // namespace kro::tessel::os
