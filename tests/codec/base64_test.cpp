// The plain functions trust their caller, so hosts live with their exact results: padding inside, characters
// outside the alphabet, bytes read or written past an end. The vectors must be indistinguishable from the
// plain loops, which stand here once more.
#include "tessel/codec/base64.h"

#include "codec/base64_vectors.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <string>
#include <string_view>
#include <utility>

namespace {

using namespace std::string_literals;

constexpr std::string_view k_alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr char k_untouched = '\x5A';

unsigned value_of(char character) {
    const std::size_t place = k_alphabet.find(character);
    return place == std::string_view::npos ? 0U : static_cast<unsigned>(place);
}

std::string plainly_encoded(const std::string& bytes) {
    std::string text;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        unsigned bits = 0;
        for (std::size_t j = i; j < i + 3; ++j) {
            bits = bits << 8U | (j < bytes.size() ? static_cast<unsigned char>(bytes[j]) : 0U);
        }
        for (unsigned j = 0; j < 4; ++j) {
            text += i + j > bytes.size() ? '=' : k_alphabet[bits >> (18U - 6U * j) & 63U];
        }
    }
    return text;
}

struct decoded_text {
    std::string written;  // with the zeros behind a padded group
    std::size_t count = 0;
};

decoded_text plainly_decoded(const std::string& text) {
    decoded_text out;
    for (std::size_t i = 0; i + 4 <= text.size(); i += 4) {
        unsigned bits = 0;
        for (std::size_t j = i; j < i + 4; ++j) {
            bits = bits << 6U | value_of(text[j]);
        }
        const std::size_t kept = text[i + 2] == '=' ? 1 : text[i + 3] == '=' ? 2 : 3;
        out.written.resize(out.count);
        for (unsigned j = 0; j < 3; ++j) {
            out.written += j < kept ? static_cast<char>(bits >> (16U - 8U * j)) : '\0';
        }
        out.count += kept;
    }
    return out;
}

// Room of exactly this size, so that the sanitizers see whatever goes past its ends; without them, writing
// there shows in the bytes around it.
class exact_buffer {
public:
    explicit exact_buffer(std::size_t bytes)
        : m_bytes(bytes), m_room(std::make_unique<char[]>(bytes + 2 * k_around)) {
        std::fill_n(m_room.get(), bytes + 2 * k_around, k_untouched);
    }
    explicit exact_buffer(const std::string& content) : exact_buffer(content.size()) {
        std::copy(content.begin(), content.end(), data());
    }

    char* data() { return m_room.get() + k_around; }
    std::string content() { return {data(), m_bytes}; }
    bool is_whole() const {
        const auto untouched = [](char byte) { return byte == k_untouched; };
        const char* const first = m_room.get();
        return std::all_of(first, first + k_around, untouched) &&
               std::all_of(first + k_around + m_bytes, first + 2 * k_around + m_bytes, untouched);
    }

private:
#if defined(__SANITIZE_ADDRESS__)
    static constexpr std::size_t k_around = 0;
#else
    static constexpr std::size_t k_around = 64;
#endif
    std::size_t m_bytes;
    std::unique_ptr<char[]> m_room;
};

constexpr std::size_t k_most_bytes = 400;

class Base64 : public testing::Test {
protected:
    Base64() { xbase64_init_decode_table(); }

    static void expect_encodes(const std::string& bytes) {
        const std::string wanted = plainly_encoded(bytes);
        exact_buffer in(bytes);
        exact_buffer out(wanted.size());
        EXPECT_EQ(xbase64_encode(in.data(), static_cast<int>(bytes.size()), out.data(), 0),
                  static_cast<int>(wanted.size()));
        EXPECT_EQ(out.content(), wanted);
        EXPECT_TRUE(out.is_whole());
    }

    static void expect_decodes(const std::string& text) {
        const decoded_text wanted = plainly_decoded(text);
        exact_buffer in(text);
        exact_buffer out(wanted.written.size());
        EXPECT_EQ(xbase64_decode(in.data(), static_cast<int>(text.size()), out.data(), 0),
                  static_cast<int>(wanted.count));
        EXPECT_EQ(out.content(), wanted.written) << text;
        EXPECT_TRUE(out.is_whole());
    }

    std::string random_bytes(std::size_t count) {
        std::string bytes(count, '\0');
        std::generate(bytes.begin(), bytes.end(), [this] { return static_cast<char>(m_random()); });
        return bytes;
    }

    std::string random_text(std::size_t count) {
        std::string text = random_bytes(count);
        std::transform(text.begin(), text.end(), text.begin(),
                       [](char byte) { return k_alphabet[static_cast<unsigned char>(byte) % 64]; });
        return text;
    }

    std::mt19937 m_random{20};
};

// First in this file: the table can't be emptied again.
TEST(Base64Table, GivesZerosUntilItIsFilled) {
    std::string text = "Zm9vZg==Zm8=" + std::string(64, 'Z');
    std::string out(60, k_untouched);
    EXPECT_EQ(xbase64_decode(text.data(), static_cast<int>(text.size()), out.data(), 0), 3 + 1 + 2 + 48);
    EXPECT_EQ(out, std::string(54, '\0') + std::string(6, k_untouched));
}

TEST_F(Base64, KeepsTheStandardsVectors) {
    const std::pair<const char*, const char*> rows[] = {{"", ""},
                                                        {"f", "Zg=="},
                                                        {"fo", "Zm8="},
                                                        {"foo", "Zm9v"},
                                                        {"foob", "Zm9vYg=="},
                                                        {"fooba", "Zm9vYmE="},
                                                        {"foobar", "Zm9vYmFy"},
                                                        {"\xFB\xFF\xBF", "+/+/"}};
    for (const auto& [bytes, text] : rows) {
        ASSERT_EQ(plainly_encoded(bytes), text);
        expect_encodes(bytes);
        expect_decodes(text);
    }
    EXPECT_EQ(xbase64_encode(nullptr, 0, nullptr, 0), 0);
    EXPECT_EQ(xbase64_encode(nullptr, -3, nullptr, 0), 0);
    EXPECT_EQ(xbase64_decode(nullptr, -8, nullptr, 0), 0);
}

TEST_F(Base64, CalculatesTheRoom) {
    const std::pair<int, int> rows[] = {
        {0, 4}, {1, 4}, {3, 8}, {4, 8}, {-1, 4}, {-6, -4}, {1'500'000'000, 2'000'000'004}};
    for (const auto& [bytes, room] : rows) {
        EXPECT_EQ(xbase64_calc_encode_buf_size(nullptr, bytes), room) << bytes;
    }
}

TEST_F(Base64, TouchesNothingOutsideAtAnyLength) {
    for (std::size_t size = 0; size <= 260; ++size) {
        SCOPED_TRACE(size);
        expect_encodes(random_bytes(size));
        expect_decodes(random_text(size));
    }
}

// Every byte value at every place of a vector, and padding that moves what follows.
TEST_F(Base64, DecodesAnythingAnywhere) {
    const std::string text = random_text(132);
    for (std::size_t place = 0; place < 64; ++place) {
        for (unsigned value = 0; value < 256; ++value) {
            std::string changed = text;
            changed[place] = static_cast<char>(value);
            expect_decodes(changed);
        }
    }
    for (int run = 0; run < 3000; ++run) {
        std::string changed = random_text(4 + m_random() % 200);
        for (unsigned change = m_random() % 8; change != 0; --change) {
            changed[m_random() % changed.size()] = "=*\n\0\x80\xFF-_"[m_random() % 8];
        }
        expect_decodes(changed);
    }
}

TEST_F(Base64, DecodesInPlaceAndOverlapping) {
    const std::string text = random_text(100) + "Zg==" + random_text(96);
    const decoded_text wanted = plainly_decoded(text);
    for (const std::size_t ahead : {0U, 1U, 5U, 40U}) {  // how far the output begins before the input
        std::string buffer = std::string(ahead, k_untouched) + text;
        EXPECT_EQ(xbase64_decode(buffer.data() + ahead, static_cast<int>(text.size()), buffer.data(), 0),
                  static_cast<int>(wanted.count));
        EXPECT_EQ(buffer.substr(0, wanted.count), wanted.written.substr(0, wanted.count));
    }
    // An output inside the input: each group is read after the one before it was written.
    std::string buffer = random_text(140);
    std::string expected = buffer;
    for (std::size_t i = 0; i + 4 <= 100; i += 4) {
        const std::string group = plainly_decoded(expected.substr(i, 4)).written;
        std::copy(group.begin(), group.end(), expected.begin() + static_cast<std::ptrdiff_t>(9 + i / 4 * 3));
    }
    xbase64_decode(buffer.data(), 100, buffer.data() + 9, 0);
    EXPECT_EQ(buffer, expected);
}

// The processor's best is tested above; the others must be as right.
TEST_F(Base64, IsTheSameWithAllVectors) {
    for (const auto* kind = kro::tessel::codec::all_base64_vectors(); kind->name != nullptr; ++kind) {
        SCOPED_TRACE(kind->name);
        for (std::size_t size = 0; size <= k_most_bytes; ++size) {
            const std::string bytes = random_bytes(size);
            const std::string text = plainly_encoded(bytes);
            std::string out(text.size(), k_untouched);
            const auto* in = reinterpret_cast<const unsigned char*>(bytes.data());
            const std::size_t taken =
                kind->vectors.encode(in, size, reinterpret_cast<unsigned char*>(out.data()));
            EXPECT_LT(size - taken, 28U);
            EXPECT_EQ(out.substr(0, taken / 3 * 4), text.substr(0, taken / 3 * 4));
            EXPECT_EQ(out.find_first_not_of(k_untouched, taken / 3 * 4), std::string::npos);

            in = reinterpret_cast<const unsigned char*>(text.data());
            out.assign(size + 3, k_untouched);
            const std::size_t read =
                kind->vectors.decode(in, text.size(), reinterpret_cast<unsigned char*>(out.data()));
            EXPECT_LE(text.size() - read, 16U + 15U);
            EXPECT_EQ(out.substr(0, read / 4 * 3), bytes.substr(0, read / 4 * 3));
            EXPECT_EQ(out.find_first_not_of(k_untouched, read / 4 * 3), std::string::npos);
        }
    }
}

}  // namespace
