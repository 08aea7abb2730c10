#include "http/content_text.h"

#include "os/code_page.h"
#include "os/inet.h"
#include "os/thread.h"

#include "base/text_conversion.h"
#include "http/charset.h"
#include "tessel/http/buffer_content.h"

#include <new>
#include <stdexcept>

namespace kro::tessel::http {
namespace {

constexpr std::size_t k_longest_piece = 0x40000000;

// Length of the first piece of a text that is longer than one.
std::size_t piece_length(bool is_utf8, std::string_view bytes, std::size_t longest) {
    // A byte below 0x80 ends a character in every page, as itself or as the second half of a pair.
    for (std::size_t length = longest; length != 0; --length) {
        if (static_cast<unsigned char>(bytes[length - 1]) < 0x80) {
            return length;
        }
    }
    for (std::size_t length = longest; is_utf8 && length + 4 > longest; --length) {
        if ((static_cast<unsigned char>(bytes[length]) & 0xC0U) != 0x80) {
            return length;  // in front of a byte that begins a character
        }
    }
    return longest;
}

}  // namespace

CTString widen_in_pieces(std::uint32_t page, std::string_view bytes, std::size_t longest) {
    if (bytes.size() <= longest) {
        return widen(page, bytes);
    }
    // One page for all pieces, even when the host changes the ANSI one meanwhile.
    const std::uint32_t number = page == os::k_code_page_ansi ? os::code_pages().ansi_code_page() : page;
    CTString text;
    text.reserve(bytes.size());
    while (!bytes.empty()) {
        const std::size_t length = bytes.size() <= longest
                                       ? bytes.size()
                                       : piece_length(number == os::k_code_page_utf8, bytes, longest);
        text.append(widen(number, bytes.substr(0, length)));
        bytes.remove_prefix(length);
    }
    return text;
}

CTString buffer_content_to_string(const _buffer_content* chunk, bool /*raw*/) {
    if (chunk == nullptr || chunk->data == nullptr) {
        return {};
    }
    const std::string_view bytes(static_cast<const char*>(chunk->data), chunk->size);
    try {
        return widen_in_pieces(detect_code_page(bytes), bytes, k_longest_piece);
    } catch (const std::bad_alloc&) {
        os::set_last_error(os::k_error_not_enough_memory);
    } catch (const std::length_error&) {  // a 32-bit string holds less than a chunk
        os::set_last_error(os::k_error_not_enough_memory);
    }
    return {};
}

}  // namespace kro::tessel::http
