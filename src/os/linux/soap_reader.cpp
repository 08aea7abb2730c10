#include "os/linux/soap_reader.h"

#include "os/linux/inet_text.h"
#include "os/linux/soap_answer_screen.h"
#include "os/linux/soap_buffer.h"
#include "os/linux/soap_document_text.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlerror.h>

#include <algorithm>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kro::tessel::os {
namespace {

constexpr std::string_view k_envelope_namespace = "http://schemas.xmlsoap.org/soap/envelope/";

struct free_context {
    void operator()(xmlParserCtxt* context) const { xmlFreeParserCtxt(context); }
};

bool is_text(const xmlNode* node) {
    return node->type == XML_TEXT_NODE || node->type == XML_CDATA_SECTION_NODE;
}

// The next node in the order of the document, within `top`; `into`: the node's own children come first.
xmlNode* next_node(xmlNode* node, const xmlNode* top, bool into) {
    if (into && node->type == XML_ELEMENT_NODE && node->children != nullptr) {
        return node->children;
    }
    while (node != top && node->next == nullptr) {
        node = node->parent;
    }
    return node == top ? nullptr : node->next;
}

void drop_blank_texts(xmlNode* top) {
    for (xmlNode* node = top; node != nullptr;) {
        xmlNode* const next = next_node(node, top, true);
        if (node->type == XML_TEXT_NODE && xmlIsBlankNode(node) == 1 &&
            xmlNodeGetSpacePreserve(node->parent) != 1) {
            xmlUnlinkNode(node);
            xmlFreeNode(node);
        }
        node = next;
    }
}

wide_string text_of(xmlNode* top) {
    std::string text;
    for (xmlNode* node = top; node != nullptr; node = next_node(node, top, true)) {
        if (is_text(node)) {
            text += view_of(node->content);
        }
    }
    constexpr std::string_view k_blanks = " \t\r\n";
    const std::size_t begin = std::min(text.find_first_not_of(k_blanks), text.size());
    const std::size_t end = text.find_last_not_of(k_blanks) + 1;  // 0 when there are only blanks
    return from_utf8(std::string_view(text).substr(begin, end > begin ? end - begin : 0));
}

xmlNode* first_element(const xmlNode* parent) {
    xmlNode* node = parent == nullptr ? nullptr : parent->children;
    while (node != nullptr && node->type != XML_ELEMENT_NODE) {
        node = node->next;
    }
    return node;
}

bool is_of_envelope(const xmlNode* node, std::string_view name) {
    return node != nullptr && node->ns != nullptr && view_of(node->ns->href) == k_envelope_namespace &&
           view_of(node->name) == name;
}

bool is_fault(const xmlNode* entry) {
    return is_of_envelope(entry, "Fault");
}

wide_string child_text(const xmlNode* parent, std::string_view name) {
    for (xmlNode* node = parent->children; node != nullptr; node = node->next) {
        if (node->type == XML_ELEMENT_NODE && view_of(node->name) == name) {
            return text_of(node);
        }
    }
    return {};
}

class element_nodes final : public soap_nodes {
public:
    element_nodes(std::shared_ptr<xmlDoc> document, const xmlNode* element)
        : m_document(std::move(document)) {
        for (xmlNode* node = element->children; node != nullptr; node = node->next) {
            m_nodes.push_back(node);
        }
    }

    std::int32_t length() override { return static_cast<std::int32_t>(m_nodes.size()); }
    wide_string first_child_text(std::int32_t node) override { return text_of(children(node)); }
    wide_string last_child_text(std::int32_t node) override {
        return text_of(xmlGetLastChild(children(node)->parent));
    }

private:
    // The first of them.
    xmlNode* children(std::int32_t index) const {
        if (index < 0 || static_cast<std::size_t>(index) >= m_nodes.size()) {
            throw soap_error{k_soap_invalid_argument};
        }
        const xmlNode* const node = m_nodes[static_cast<std::size_t>(index)];
        if (node->type != XML_ELEMENT_NODE || node->children == nullptr) {
            throw soap_error{k_soap_null_object};
        }
        return node->children;
    }

    std::shared_ptr<xmlDoc> m_document;
    std::vector<xmlNode*> m_nodes;
};

void ignore_error(void* /*context*/, xmlError* /*error*/) {}

// What the parser says of encodings would go to standard error, whatever its options are. Holds for this
// thread.
class silent_parser {
public:
    silent_parser() { xmlSetStructuredErrorFunc(nullptr, ignore_error); }
    silent_parser(const silent_parser&) = delete;
    silent_parser& operator=(const silent_parser&) = delete;
    ~silent_parser() { xmlSetStructuredErrorFunc(m_context, m_before); }

private:
    void* m_context = xmlStructuredErrorContext;  // the host's own
    xmlStructuredErrorFunc m_before = xmlStructuredError;
};

std::shared_ptr<xmlDoc> parse(const screened_answer& answer) {
    constexpr int k_options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    const silent_parser silence;
    const std::unique_ptr<xmlParserCtxt, free_context> context(xmlNewParserCtxt());
    if (context == nullptr) {
        throw std::bad_alloc();
    }
    std::shared_ptr<xmlDoc> document(
        xmlCtxtReadMemory(context.get(), answer.bytes.data(), static_cast<int>(answer.bytes.size()), nullptr,
                          answer.needs_no_telling ? nullptr : answer.encoding.c_str(), k_options),
        [](xmlDoc* owned) { xmlFreeDoc(owned); });
    if (context->errNo == XML_ERR_NO_MEMORY) {
        throw std::bad_alloc();
    }
    const bool is_right = context->wellFormed == 1 && context->nsWellFormed == 1;
    if (document == nullptr || !is_right || xmlGetIntSubset(document.get()) != nullptr) {
        throw soap_error{k_soap_failure};
    }
    return document;
}

void append_declaration(const xmlDoc& document, std::string& out) {
    constexpr int k_no_declaration = -1;
    constexpr int k_not_said = -2;
    if (document.standalone == k_no_declaration) {
        return;
    }
    out.append("<?xml version=\"").append(view_of(document.version)).append("\"");
    if (document.standalone != k_not_said) {
        out.append(" standalone=\"").append(document.standalone == 1 ? "yes" : "no").append("\"");
    }
    out.append("?>\r\n");
}

}  // namespace

void document_reader::load(soap_stream& answer, soap_text /*soap_action*/) {
    static const bool s_is_started = (xmlInitParser(), true);
    static_cast<void>(s_is_started);
    soap_buffer& buffer = buffer_of(answer);
    m_document.reset();
    const screened_answer screened = screen_answer(std::move(buffer.bytes), buffer.charset);
    const std::shared_ptr<xmlDoc> document = parse(screened);
    drop_blank_texts(xmlDocGetRootElement(document.get()));
    m_document = document;
    m_size = screened.bytes.size();
}

wide_string document_reader::document_xml() {
    if (m_document == nullptr) {
        throw soap_error{k_soap_null_object};
    }
    std::string xml;
    xml.reserve(m_size);
    append_declaration(*m_document, xml);
    for (xmlNode* node = m_document->children; node != nullptr; node = node->next) {
        append_as_xml(xml, node);
        xml.append("\r\n");
    }
    return from_utf8(xml);
}

bool document_reader::fault(wide_string& code, wide_string& text) {
    const xmlNode* const entry = body_entry();
    if (!is_fault(entry)) {
        return false;
    }
    code = child_text(entry, "faultcode");
    text = child_text(entry, "faultstring");
    return true;
}

std::unique_ptr<soap_nodes> document_reader::rpc_result_nodes() {
    const xmlNode* const entry = body_entry();
    const xmlNode* const result = is_fault(entry) ? nullptr : first_element(entry);
    if (result == nullptr) {
        throw soap_error{k_soap_null_object};
    }
    return std::make_unique<element_nodes>(m_document, result);
}

// The first element in the envelope's body; null when the document is no envelope.
xmlNode* document_reader::body_entry() const {
    xmlNode* const envelope = m_document == nullptr ? nullptr : xmlDocGetRootElement(m_document.get());
    if (!is_of_envelope(envelope, "Envelope")) {
        return nullptr;
    }
    for (xmlNode* node = envelope->children; node != nullptr; node = node->next) {
        if (is_of_envelope(node, "Body")) {
            return first_element(node);
        }
    }
    return nullptr;
}

}  // namespace kro::tessel::os
