#include "base/text_pieces.h"

#include "os/code_page.h"
#include "os/memory.h"

#include "base/uncleared.h"

#include <algorithm>
#include <new>

namespace kro::tessel {
namespace {

// A conversion takes less than 2^31 bytes. Only a double-byte text that holds no ASCII character at all ever
// comes to this; it is even, as its pairs are.
constexpr std::size_t k_longest_piece = 0x40000000;

// A conversion that comes near the end of its output goes on with care.
constexpr std::size_t k_room_to_spare = 16;

// Length of the first piece of `bytes`: about `piece`, and up to the end of a character.
std::size_t piece_length(bool is_utf8, std::string_view bytes, std::size_t piece) {
    if (bytes.size() <= piece) {
        return bytes.size();
    }
    // A byte below 0x80 ends a character in every page, as itself or as the second half of a pair.
    const auto is_ascii = [](char byte) { return static_cast<unsigned char>(byte) < 0x80; };
    const auto first = bytes.rend() - static_cast<std::ptrdiff_t>(piece);
    const auto last_ascii = std::find_if(first, bytes.rend(), is_ascii);
    if (last_ascii != bytes.rend()) {
        return static_cast<std::size_t>(bytes.rend() - last_ascii);
    }
    if (is_utf8) {
        // In front of a byte that begins a sequence; none has more than four bytes.
        std::size_t length = piece;
        while (length + 3 >= piece && (static_cast<unsigned char>(bytes[length]) & 0xC0U) == 0x80) {
            --length;
        }
        return length + 3 >= piece ? length : piece;
    }
    const auto next_ascii =
        std::find_if(bytes.begin() + static_cast<std::ptrdiff_t>(piece), bytes.end(), is_ascii);
    const auto length =
        static_cast<std::size_t>(next_ascii - bytes.begin()) + (next_ascii != bytes.end() ? 1 : 0);
    return std::min(length, k_longest_piece);
}

}  // namespace

CTString widen_in_pieces(std::uint32_t page, std::string_view bytes, std::size_t piece) {
    os::code_page_service& pages = os::code_pages();
    // One page for all pieces, even when the host changes the ANSI one meanwhile.
    const std::uint32_t number = page == os::k_code_page_ansi ? pages.ansi_code_page() : page;
    const std::size_t total = bytes.size();
    CTString text;
    while (!bytes.empty()) {
        const std::size_t length = piece_length(number == os::k_code_page_utf8, bytes, piece);
        const auto count = static_cast<std::int32_t>(length);
        const std::size_t before = text.size();
        append_uncleared(text, length + k_room_to_spare, [&](wchar* units) {  // no page makes more of it
            const std::int32_t room = count + static_cast<std::int32_t>(k_room_to_spare);
            return static_cast<std::size_t>(pages.to_wide(number, 0, bytes.data(), count, units, room));
        });
        const std::size_t written = text.size() - before;
        if (written == 0) {
            throw std::bad_alloc();  // bytes never convert to nothing, so it was the page's tables
        }
        if (before == 0 && length != total) {
            // The rest will need about as much for each byte; a little more, so that this holds as a rule.
            const std::size_t expected = total / length * written;
            text.reserve(std::min(total, expected + expected / 16 + length) + k_room_to_spare);
            os::expect_to_fill(text.data(), text.capacity() * sizeof(wchar));
        }
        bytes.remove_prefix(length);
    }
    return text;
}

}  // namespace kro::tessel
