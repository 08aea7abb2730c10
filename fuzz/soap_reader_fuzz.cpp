// The reader of SOAP answers: whatever comes, all that it tells can be asked for, and the text of a document
// is a document with that text.
#include "os/linux/soap_buffer.h"
#include "os/linux/soap_reader.h"

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
