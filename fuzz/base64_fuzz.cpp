// Any bytes as base64, at any place of a buffer of exactly their size: the vectors agree with one group at a
// time, and what was encoded decodes.
#include "tessel/codec/base64.h"

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>

namespace {

std::string decoded(char* text, std::size_t size) {
    // Of its own, so that the sanitizer watches its end.
    const auto room = std::make_unique<char[]>(size / 4 * 3);
    const int count = xbase64_decode(text, static_cast<int>(size), room.get(), 0);
    return {room.get(), static_cast<std::size_t>(count)};
}

std::string decoded_by_groups(char* text, std::size_t size) {
    std::string bytes;
    for (std::size_t i = 0; i + 4 <= size; i += 4) {
        bytes += decoded(text + i, 4);
    }
    return bytes;
}

std::string encoded(char* bytes, std::size_t size) {
    const auto room = std::make_unique<char[]>((size + 2) / 3 * 4);
    const int count = xbase64_encode(bytes, static_cast<int>(size), room.get(), 0);
    return {room.get(), static_cast<std::size_t>(count)};
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    xbase64_init_decode_table();
    const auto input = std::make_unique<char[]>(size);
    std::copy(data, data + size, input.get());
    if (decoded(input.get(), size) != decoded_by_groups(input.get(), size)) {
        std::abort();
    }
    std::string text = encoded(input.get(), size);
    if (decoded(text.data(), text.size()) != std::string(input.get(), size)) {
        std::abort();
    }
    return 0;
}
