// The reader of SOAP answers: whatever comes, all that it tells can be asked for, and the text of a document
// is a document with that text. The writer of that text against the parser's own.
#include "os/linux/soap_buffer.h"
#include "os/linux/soap_document_text.h"
#include "os/linux/soap_reader.h"

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/xmlsave.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iterator>
#include <string>
#include <string_view>

using namespace kro::tessel;

namespace {

bool load(os::document_reader& reader, std::string_view bytes, std::string_view charset) {
    os::soap_buffer answer;
    answer.bytes = bytes;
    answer.charset = charset;
    try {
        reader.load(answer, {});
        return true;
    } catch (const os::soap_error&) {
        return false;
    }
}

void ask_everything(os::document_reader& reader) {
    wide_string code;
    wide_string text;
    const bool is_fault = reader.fault(code, text);
    try {
        const auto nodes = reader.rpc_result_nodes();
        if (is_fault) {
            std::abort();
        }
        for (std::int32_t node = 0; node < nodes->length(); ++node) {
            nodes->first_child_text(node);
            nodes->last_child_text(node);
        }
    } catch (const os::soap_error&) {  // no result, or a node without children
    }
}

std::string saved(xmlNode* node) {
    xmlBuffer* const buffer = xmlBufferCreate();
    xmlSaveCtxt* const saving = xmlSaveToBuffer(buffer, "UTF-8", XML_SAVE_NO_DECL | XML_SAVE_AS_XML);
    xmlSaveTree(saving, node);
    xmlSaveClose(saving);
    std::string text(os::view_of(xmlBufferContent(buffer)));
    xmlBufferFree(buffer);
    return text;
}

xmlDoc* parsed(std::string_view bytes) {
    constexpr int k_options = XML_PARSE_NONET | XML_PARSE_NOERROR | XML_PARSE_NOWARNING;
    return xmlReadMemory(bytes.data(), static_cast<int>(bytes.size()), nullptr, "utf-8", k_options);
}

// Both texts of an element must be the same document. The parser's own isn't one where a namespace has a "<".
void compare_writers(xmlNode* element) {
    std::string text;
    os::append_as_xml(text, element);
    xmlDoc* const ours = parsed(text);
    xmlDoc* const theirs = parsed(saved(element));
    if (theirs != nullptr &&
        (ours == nullptr || saved(xmlDocGetRootElement(ours)) != saved(xmlDocGetRootElement(theirs)))) {
        std::abort();
    }
    xmlFreeDoc(ours);
    xmlFreeDoc(theirs);
}

void compare_writers(std::string_view bytes) {
    xmlDoc* const document = parsed(bytes);
    if (document != nullptr && xmlGetIntSubset(document) == nullptr) {
        compare_writers(xmlDocGetRootElement(document));
    }
    xmlFreeDoc(document);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    constexpr std::string_view k_charsets[] = {"", "utf-8", "iso-8859-1", "shift_jis", "nonsense"};
    if (size == 0) {
        return 0;
    }
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    os::document_reader reader;
    if (!load(reader, bytes, k_charsets[data[0] % std::size(k_charsets)])) {
        return 0;
    }
    ask_everything(reader);
    compare_writers(bytes);
    const wide_string xml = reader.document_xml();
    std::string utf16("\xFF\xFE");
    for (const wchar unit : xml) {
        utf16 += static_cast<char>(unit & 0xFFU);
        utf16 += static_cast<char>(unit >> 8U);
    }
    os::document_reader again;
    if (!load(again, utf16, "") || again.document_xml() != xml) {
        std::abort();
    }
    return 0;
}
