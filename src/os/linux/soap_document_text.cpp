#include "os/linux/soap_document_text.h"

#include <algorithm>
#include <cstdint>
#include <string_view>

namespace kro::tessel::os {
namespace {

// What stands for a character in text, or between double quotes; empty where it stands for itself.
std::string_view reference(char c, bool in_attribute) {
    switch (c) {
        case '<':
            return "&lt;";
        case '>':
            return "&gt;";
        case '&':
            return "&amp;";
        case '\r':
            return "&#13;";
        case '"':
            return in_attribute ? "&quot;" : "";
        case '\n':
            return in_attribute ? "&#10;" : "";
        case '\t':
            return in_attribute ? "&#9;" : "";
        default:
            return {};
    }
}

// Below 64 are all characters that have one, so that a word of bits tells them from others.
constexpr std::uint64_t bits_of(std::string_view characters) {
    std::uint64_t bits = 0;
    for (const char c : characters) {
        bits |= std::uint64_t{1} << static_cast<unsigned>(c);
    }
    return bits;
}

void append_escaped(std::string& out, std::string_view text, bool in_attribute) {
    constexpr std::uint64_t k_in_text = bits_of("<>&\r");
    constexpr std::uint64_t k_in_attribute = bits_of("<>&\r\"\n\t");
    const std::uint64_t special = in_attribute ? k_in_attribute : k_in_text;
    const char* at = text.data();
    const char* const end = at + text.size();
    while (at != end) {
        const char* const next = std::find_if(at, end, [special](char c) {
            const auto byte = static_cast<unsigned char>(c);
            return byte < 64 && (special >> byte & 1U) != 0;
        });
        out.append(at, next);
        at = next;
        if (at != end) {
            out.append(reference(*at++, in_attribute));
        }
    }
}

void append_name(std::string& out, const xmlNs* name_space, const xmlChar* name) {
    if (name_space != nullptr && name_space->prefix != nullptr) {
        out.append(view_of(name_space->prefix)).append(":");
    }
    out.append(view_of(name));
}

// The parser leaves each "&" of a namespace's URI as the reference "&#38;", and resolves all others.
void append_uri(std::string& out, std::string_view uri) {
    for (std::size_t at = uri.find('&'); at != std::string_view::npos; at = uri.find('&')) {
        append_escaped(out, uri.substr(0, at), true);
        out.append("&");
        uri.remove_prefix(at + 1);
    }
    append_escaped(out, uri, true);
}

void append_declarations(std::string& out, const xmlNs* first) {
    for (const xmlNs* one = first; one != nullptr; one = one->next) {
        const std::string_view prefix = view_of(one->prefix);
        out.append(prefix.empty() ? " xmlns" : " xmlns:").append(prefix).append("=\"");
        append_uri(out, view_of(one->href));
        out.append("\"");
    }
}

// Without entities in the tree, a value is one run of text or none.
void append_attributes(std::string& out, const xmlAttr* first) {
    for (const xmlAttr* one = first; one != nullptr; one = one->next) {
        out.append(" ");
        append_name(out, one->ns, one->name);
        out.append("=\"");
        for (const xmlNode* part = one->children; part != nullptr; part = part->next) {
            append_escaped(out, view_of(part->content), true);
        }
        out.append("\"");
    }
}

void append_start(std::string& out, const xmlNode* element) {
    out.append("<");
    append_name(out, element->ns, element->name);
    append_declarations(out, element->nsDef);
    append_attributes(out, element->properties);
    out.append(element->children == nullptr ? "/>" : ">");
}

void append_end(std::string& out, const xmlNode* element) {
    out.append("</");
    append_name(out, element->ns, element->name);
    out.append(">");
}

void append_instruction(std::string& out, const xmlNode* node) {
    out.append("<?").append(view_of(node->name));
    if (node->content != nullptr) {
        out.append(" ").append(view_of(node->content));
    }
    out.append("?>");
}

// All of a node that comes in front of its children.
void append_opening(std::string& out, const xmlNode* node) {
    switch (node->type) {
        case XML_ELEMENT_NODE:
            append_start(out, node);
            break;
        case XML_TEXT_NODE:
            append_escaped(out, view_of(node->content), false);
            break;
        case XML_CDATA_SECTION_NODE:
            out.append("<![CDATA[").append(view_of(node->content)).append("]]>");
            break;
        case XML_COMMENT_NODE:
            out.append("<!--").append(view_of(node->content)).append("-->");
            break;
        case XML_PI_NODE:
            append_instruction(out, node);
            break;
        default:  // the parser makes no other without a DOCTYPE
            break;
    }
}

}  // namespace

std::string_view view_of(const xmlChar* text) {
    return text == nullptr ? std::string_view() : std::string_view(reinterpret_cast<const char*>(text));
}

void append_as_xml(std::string& out, const xmlNode* top) {
    for (const xmlNode* node = top;;) {
        append_opening(out, node);
        if (node->type == XML_ELEMENT_NODE && node->children != nullptr) {
            node = node->children;
            continue;
        }
        while (node != top && node->next == nullptr) {
            node = node->parent;
            append_end(out, node);
        }
        if (node == top) {
            return;
        }
        node = node->next;
    }
}

}  // namespace kro::tessel::os
