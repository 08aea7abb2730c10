// Any bytes in any page, and any text towards it: asking for the length gives what the conversion writes,
// nothing is written behind the room, a cut conversion has the beginning of the whole one, and what is valid
// comes back.
#include "os/code_page.h"
#include "os/thread.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <string>

namespace {

using namespace kro::tessel::os;

constexpr std::uint32_t k_pages[] = {65001, 932,  936,  949,  950, 874, 1250, 1251,  1252,  1253,  1254,
                                     1255,  1256, 1257, 1258, 437, 850, 866,  20866, 28591, 28596, 28605};

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// convert(out, capacity). Returns the whole result, empty when the conversion refuses the input.
template <class String, class Convert>
String convert_checked(std::size_t room_seed, Convert convert) {
    using unit = typename String::value_type;
    constexpr auto k_guard = static_cast<unit>(0x5A5A);
    const std::int32_t needed = convert(nullptr, 0);
    if (needed == 0) {
        require(last_error() == 1113);
        return {};
    }
    String whole(static_cast<std::size_t>(needed) + 1, k_guard);
    require(convert(whole.data(), needed) == needed && whole.back() == k_guard);
    whole.pop_back();
    const std::size_t room = room_seed % whole.size();
    if (room != 0) {
        String cut(room + 16, k_guard);
        set_last_error(0);
        require(convert(cut.data(), static_cast<std::int32_t>(room)) == 0 && last_error() == 122);
        require(std::all_of(cut.begin() + static_cast<std::ptrdiff_t>(room), cut.end(),
                            [=](unit one) { return one == k_guard; }));
        require(std::equal(cut.begin(),
                           cut.begin() + static_cast<std::ptrdiff_t>(room) -
                               std::min<std::ptrdiff_t>(3, static_cast<std::ptrdiff_t>(room)),
                           whole.begin()));
    }
    return whole;
}

kro::tessel::wide_string widen(std::uint32_t page, std::uint32_t flags, const std::string& bytes,
                               std::size_t seed) {
    return convert_checked<kro::tessel::wide_string>(seed, [&](wchar* out, std::int32_t capacity) {
        return code_pages().to_wide(page, flags, bytes.data(), static_cast<std::int32_t>(bytes.size()), out,
                                    capacity);
    });
}

std::string narrow(std::uint32_t page, std::uint32_t flags, const kro::tessel::wide_string& text,
                   std::size_t seed) {
    return convert_checked<std::string>(seed, [&](char* out, std::int32_t capacity) {
        return code_pages().to_narrow(page, flags, text.data(), static_cast<std::int32_t>(text.size()), out,
                                      capacity, nullptr, nullptr);
    });
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    if (size < 3) {
        return 0;
    }
    const std::uint32_t page = k_pages[data[0] % std::size(k_pages)];
    const std::size_t seed = data[1] * std::size_t(31);
    const std::string bytes(reinterpret_cast<const char*>(data) + 2, size - 2);

    const auto replaced = widen(page, 0, bytes, seed);
    require(!replaced.empty() && replaced.size() <= bytes.size());
    const auto valid = widen(page, k_wide_error_on_invalid, bytes, seed);
    require(valid.empty() || valid == replaced);
    if (page == k_code_page_utf8 && !valid.empty()) {
        require(narrow(page, k_narrow_error_on_invalid, valid, seed) == bytes);
    }

    kro::tessel::wide_string text(bytes.size() / 2, 0);
    std::memcpy(text.data(), bytes.data(), text.size() * 2);
    if (text.empty()) {
        return 0;
    }
    const std::string page_bytes = narrow(page, 0, text, seed);
    require(page_bytes.size() >= text.size() || page == k_code_page_utf8);
    if (page == k_code_page_utf8) {
        const std::string utf8 = narrow(page, k_narrow_error_on_invalid, text, seed);
        require(utf8.empty() || widen(page, k_wide_error_on_invalid, utf8, seed) == text);
    } else {
        // Once a look-alike or "?" stands for a character, it stays.
        const auto settled = widen(page, 0, page_bytes, seed);
        require(narrow(page, 0, settled, seed).size() == page_bytes.size());
    }
    return 0;
}
