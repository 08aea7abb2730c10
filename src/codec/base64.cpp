#include "tessel/codec/base64.h"

#include "codec/base64_vectors.h"

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>

namespace {

using kro::tessel::codec::best_base64_vectors;

constexpr unsigned char k_alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr unsigned char k_padding = '=';

using decode_table = std::array<unsigned char, 256>;

constexpr decode_table values_of_alphabet() {
    decode_table values{};
    for (unsigned char value = 0; value < 64; ++value) {
        values[k_alphabet[value]] = value;
    }
    return values;
}

constexpr decode_table k_values = values_of_alphabet();
constexpr decode_table k_no_values{};
// Which of the two is in force: the table can be "filled" while other threads decode.
std::atomic<const decode_table*> g_table{&k_no_values};

// What a block that vectors can't decode is taken apart into, before they are tried again.
constexpr std::size_t k_groups_between_vectors = 8;
constexpr std::size_t k_groups_of_a_vector = 4;  // of the smallest

// Vectors read further ahead than single groups do, so a result written over what is still to be read must
// not depend on how far that is.
bool overlap(const unsigned char* one, std::size_t one_bytes, const unsigned char* other,
             std::size_t other_bytes) {
    const auto first = reinterpret_cast<std::uintptr_t>(one);
    const auto second = reinterpret_cast<std::uintptr_t>(other);
    return first < second + other_bytes && second < first + one_bytes;
}

bool is_written_ahead(const unsigned char* from, std::size_t bytes, const unsigned char* to) {
    return to > from && overlap(from, bytes, to, 1);
}

void encode_group(const unsigned char* from, unsigned char* to) {
    const std::uint32_t bits = std::uint32_t{from[0]} << 16U | std::uint32_t{from[1]} << 8U | from[2];
    to[0] = k_alphabet[bits >> 18U];
    to[1] = k_alphabet[bits >> 12U & 63U];
    to[2] = k_alphabet[bits >> 6U & 63U];
    to[3] = k_alphabet[bits & 63U];
}

// One or two bytes, padded.
void encode_rest(const unsigned char* from, std::size_t bytes, unsigned char* to) {
    const unsigned char padded[3] = {from[0], bytes == 2 ? from[1] : static_cast<unsigned char>(0), 0};
    encode_group(padded, to);
    to[3] = k_padding;
    if (bytes == 1) {
        to[2] = k_padding;
    }
}

std::size_t encode(const unsigned char* from, std::size_t bytes, unsigned char* to) {
    const std::size_t characters = (bytes + 2) / 3 * 4;
    std::size_t done = 0;
    if (!overlap(from, bytes, to, characters)) {
        done = best_base64_vectors().encode(from, bytes, to);
        to += done / 3 * 4;
    }
    for (; bytes - done >= 3; done += 3, to += 4) {
        encode_group(from + done, to);
    }
    if (done != bytes) {
        encode_rest(from + done, bytes - done, to);
    }
    return characters;
}

// Returns behind the bytes that the group gives.
unsigned char* decode_group(const decode_table& values, const unsigned char* from, unsigned char* to) {
    const std::uint32_t bits = std::uint32_t{values[from[0]]} << 18U | std::uint32_t{values[from[1]]} << 12U |
                               std::uint32_t{values[from[2]]} << 6U | values[from[3]];
    const bool is_one = from[2] == k_padding;
    const bool is_two = from[3] == k_padding;
    to[0] = static_cast<unsigned char>(bits >> 16U);
    to[1] = static_cast<unsigned char>(is_one ? 0U : bits >> 8U);
    to[2] = static_cast<unsigned char>(is_one || is_two ? 0U : bits);
    return to + (is_one ? 1 : is_two ? 2 : 3);
}

std::size_t decode(const unsigned char* from, std::size_t groups, unsigned char* to) {
    const decode_table& values = *g_table.load(std::memory_order_relaxed);
    const bool use_vectors = &values == &k_values && !is_written_ahead(from, groups * 4, to);
    const unsigned char* const first = to;
    while (groups != 0) {
        std::size_t singles = groups;
        if (use_vectors && groups >= k_groups_of_a_vector) {
            const std::size_t done = best_base64_vectors().decode(from, groups * 4, to);
            from += done;
            to += done / 4 * 3;
            groups -= done / 4;
            singles = groups < k_groups_between_vectors ? groups : k_groups_between_vectors;
        }
        for (groups -= singles; singles != 0; --singles, from += 4) {
            to = decode_group(values, from, to);
        }
    }
    return static_cast<std::size_t>(to - first);
}

const unsigned char* bytes_of(const char* text) {
    return reinterpret_cast<const unsigned char*>(text);
}

unsigned char* bytes_of(char* text) {
    return reinterpret_cast<unsigned char*>(text);
}

}  // namespace

void xbase64_init_decode_table() {
    g_table.store(&k_values, std::memory_order_relaxed);
}

int xbase64_calc_encode_buf_size(char* /*src*/, int len) {
    return static_cast<int>(std::int64_t{len} / 3 * 4 + 4);
}

int xbase64_encode(char* src, int len, char* dst, int /*dstSize*/) {
    return len <= 0 ? 0
                    : static_cast<int>(encode(bytes_of(static_cast<const char*>(src)),
                                              static_cast<std::size_t>(len), bytes_of(dst)));
}

int xbase64_decode(char* src, int len, char* dst, int /*dstSize*/) {
    return len < 4 ? 0
                   : static_cast<int>(decode(bytes_of(static_cast<const char*>(src)),
                                             static_cast<std::size_t>(len) / 4, bytes_of(dst)));
}
