// What hosts have stored must stay readable: the form of the digits, the padding, what an odd length or a
// character that is no digit gives, and what happens to the output when it fails.
#include "tessel/codec/aes_string.h"

#include "os/cipher.h"

#include "codec/hexadecimal.h"
#include "support/ascii.h"
#include "tessel/platform/host.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <iterator>
#include <random>
#include <string>

namespace {

using kro::tessel::CTString;
using kro::tessel::wide_string;
using tessel_test::wide;

using aes_function = int (*)(const CTString&, CTString&, int);
struct named_function {
    aes_function function;
    const char* key;
};
constexpr named_function k_functions[] = {{RZV_AES_Encrypt, "5 e6UBCRD,LSBQGBCN61HCR6B9DHUu90"},
                                          {AVScan_AES_Encrypt, "sSmbhbrEJne8#Dsjrv.f DSSUgld8w1s"},
                                          {SSOInfo_AES_Encrypt, "B9Gp8Ny57SOljH2WyH1S4qp5xo4t1D8n"}};

struct ansi_page {
    explicit ansi_page(std::uint32_t number) { EXPECT_TRUE(kro::tessel::set_ansi_code_page(number)); }
    ~ansi_page() { kro::tessel::set_ansi_code_page(65001); }
};

// The digits by way of the cipher alone.
CTString digits_of(std::string bytes, const char* key) {
    const unsigned char vector[16] = {};
    bytes.resize((bytes.size() + 15) / 16 * 16);
    auto* const data = reinterpret_cast<unsigned char*>(bytes.data());
    EXPECT_TRUE(kro::tessel::os::aes256_cbc(kro::tessel::os::cipher_direction::encrypt,
                                            reinterpret_cast<const unsigned char*>(key), vector, data,
                                            bytes.size()));
    wide_string digits(bytes.size() * 2, 0);
    kro::tessel::codec::write_hexadecimal(data, bytes.size(), digits.data());
    return digits;
}

CTString lower(CTString text) {
    for (wchar& unit : text) {
        unit = unit >= 'A' && unit <= 'Z' ? static_cast<wchar>(unit | 0x20U) : unit;
    }
    return text;
}

TEST(AesString, EncryptsWholeBlocksAndComesBack) {
    for (const named_function& one : k_functions) {
        for (const std::size_t size : {1U, 15U, 16U, 17U, 32U, 511U, 513U, 5000U}) {
            const std::string text = std::string(size - 1, 'x') + "y";
            CTString digits = TESSEL_W("old");
            EXPECT_EQ(one.function(wide(text), digits, 1), 1);
            EXPECT_EQ(digits, digits_of(text, one.key));
            CTString back = TESSEL_W("old");
            EXPECT_EQ(one.function(lower(digits), back, 0), 1);
            EXPECT_EQ(back, wide(text));
            EXPECT_EQ(one.function(digits, digits, 0), 1);  // in place
            EXPECT_EQ(digits, wide(text));
        }
    }
    CTString digits;
    CTString garbled;
    AVScan_AES_Encrypt(TESSEL_W("only with the same key"), digits, 1);
    EXPECT_EQ(RZV_AES_Encrypt(digits, garbled, 0), 1);
    EXPECT_NE(garbled, CTString(TESSEL_W("only with the same key")));
}

TEST(AesString, RefusesHalfAHalfBlockAndLeavesTheOutput) {
    ASSERT_TRUE(kro::tessel::set_ansi_code_page(65001));  // a letter of two bytes is among the rows
    const CTString digits = digits_of(std::string(32, 'p'), k_functions[0].key);
    const struct {
        const char* what;
        CTString in;
        int result;
        CTString out;
    } rows[] = {
        {"40 digits", digits.substr(0, 40), 0, TESSEL_W("kept")},
        {"one digit", TESSEL_W("A"), 0, TESSEL_W("kept")},
        {"not a whole half in bytes of the code page", CTString(digits.substr(0, 15) + wchar(0xE9)), 0,
         TESSEL_W("kept")},
        {"nothing", CTString(), 1, CTString()},
        {"nothing before a zero", CTString(wide_string(20, 0)), 1, CTString()},
        {"digits behind a zero", CTString(digits.substr(0, 32) + wide_string(1, 0) + TESSEL_W("12345")), 1,
         CTString(wide_string(16, 'p'))},
    };
    for (const auto& row : rows) {
        CTString out = TESSEL_W("kept");
        EXPECT_EQ(RZV_AES_Encrypt(row.in, out, 0), row.result) << row.what;
        EXPECT_EQ(out, row.out) << row.what;
    }
    CTString out = TESSEL_W("replaced");
    EXPECT_EQ(RZV_AES_Encrypt(CTString(), out, 1), 1);
    EXPECT_TRUE(out.empty());
}

// One and a half blocks: the half is decrypted as if zeros followed it. What comes out is looked for, so that
// no zero byte or broken character hides it.
TEST(AesString, DecryptsAHalfBlock) {
    const ansi_page ansi(1252);
    const CTString whole = digits_of(std::string(16, 'w'), k_functions[2].key);
    std::mt19937 random(53);
    int compared = 0;
    for (int run = 0; run < 50; ++run) {
        unsigned char blocks[32] = {};
        kro::tessel::codec::read_hexadecimal(whole.data(), 16, blocks);
        wide_string half(16, 0);
        for (int i = 16; i < 24; ++i) {
            blocks[i] = static_cast<unsigned char>(random());
        }
        kro::tessel::codec::write_hexadecimal(blocks + 16, 8, half.data());
        CTString out;
        EXPECT_EQ(SSOInfo_AES_Encrypt(whole + half, out, 0), 1);
        const unsigned char vector[16] = {};
        kro::tessel::os::aes256_cbc(kro::tessel::os::cipher_direction::decrypt,
                                    reinterpret_cast<const unsigned char*>(k_functions[2].key), vector,
                                    blocks, 32);
        for (std::size_t i = 0; i < 24 && blocks[i] != 0; ++i) {
            ASSERT_LT(i, out.size());
            if (blocks[i] < 0x80) {
                EXPECT_EQ(out[i], blocks[i]);
                compared += i >= 16 ? 1 : 0;
            }
        }
        EXPECT_LE(out.size(), 24U);
    }
    EXPECT_GT(compared, 50);
}

TEST(AesString, CodesTextInTheAnsiPage) {
    const ansi_page ansi(1252);
    CTString digits;
    CTString back;
    EXPECT_EQ(RZV_AES_Encrypt(TESSEL_W("caf\u00e9 \u20ac \u0141 \u4e2d"), digits, 1), 1);
    EXPECT_EQ(digits, digits_of("caf\xE9 \x80 L ?", k_functions[0].key));
    EXPECT_EQ(RZV_AES_Encrypt(digits, back, 0), 1);
    EXPECT_EQ(back, CTString(TESSEL_W("caf\u00e9 \u20ac L ?")));
    // Full-width digits are digits in this page, as their best fit.
    CTString full_width = digits;
    for (wchar& unit : full_width) {
        unit = static_cast<wchar>(unit + 0xFEE0);
    }
    CTString same;
    EXPECT_EQ(RZV_AES_Encrypt(full_width, same, 0), 1);
    EXPECT_EQ(same, back);
    EXPECT_EQ(RZV_AES_Encrypt(CTString(wide_string(TESSEL_W("ab\0cd"), 5)), digits, 1), 1);
    EXPECT_EQ(digits, digits_of("ab", k_functions[0].key));
}

// A host's global may code a text when the process ends; what its thread has kept is destroyed by then.
struct codes_at_the_end {
    ~codes_at_the_end() {
        CTString digits;
        CTString back;
        const bool coded =
            RZV_AES_Encrypt(TESSEL_W("text"), digits, 1) == 1 && RZV_AES_Encrypt(digits, back, 0) == 1;
        std::_Exit(coded && back == TESSEL_W("text") ? 7 : 1);
    }
};

[[noreturn]] void end_with_a_global_that_codes() {
    CTString digits;
    RZV_AES_Encrypt(TESSEL_W("text"), digits, 1);
    static const codes_at_the_end global;
    std::exit(static_cast<int>(digits.empty()));
}

TEST(AesStringDeathTest, CodesForGlobalsThatEndWithTheProcess) {
    testing::GTEST_FLAG(death_test_style) = "threadsafe";
    EXPECT_EXIT(end_with_a_global_that_codes(), testing::ExitedWithCode(7), "");
}

// Each unit at each place of a vector, beside one digit at a time.
TEST(AesString, KnowsDigitsFromOtherUnits) {
    for (unsigned unit = 0; unit <= 0xFFFF; unit = unit < 0x300 ? unit + 1 : unit + 61) {
        wide_string text(128, '5');
        text[unit % 128] = static_cast<wchar>(unit);
        unsigned char bytes[64];
        const bool is_digit = unit < 0x80 && std::isxdigit(static_cast<int>(unit)) != 0;
        EXPECT_EQ(kro::tessel::codec::read_hexadecimal(text.data(), 64, bytes), is_digit) << unit;
        const std::string pair = {is_digit ? static_cast<char>(unit) : '0', '5'};
        const std::string ordered = unit % 2 == 0 ? pair : std::string{pair[1], pair[0]};
        EXPECT_EQ(bytes[unit % 128 / 2], std::stoi(ordered, nullptr, 16)) << unit;
        EXPECT_EQ(std::count(std::begin(bytes), std::end(bytes), 0x55), unit == '5' ? 64 : 63) << unit;
    }
}

}  // namespace
