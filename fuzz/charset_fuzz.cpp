// Any bytes as a received body: they convert, in pieces of any size to the same text as in one.
#include "base/text_pieces.h"
#include "http/charset.h"
#include "tessel/http/buffer_content.h"

#include <cstdint>
#include <cstdlib>
#include <string_view>

namespace http = kro::tessel::http;

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size == 0) {
        return 0;
    }
    // The first byte sets the size of a piece.
    const std::size_t piece = std::size_t{4} + data[0];
    const std::string_view bytes(reinterpret_cast<const char*>(data) + 1, size - 1);
    http::_buffer_content chunk = {nullptr, static_cast<std::uint32_t>(bytes.size()),
                                   const_cast<char*>(bytes.data())};
    const auto text = http::buffer_content_to_string(&chunk, false);
    const std::uint32_t page = http::detect_code_page(bytes);
    if (text.size() > bytes.size() || text != kro::tessel::widen_in_pieces(page, bytes, piece)) {
        std::abort();
    }
    return 0;
}
