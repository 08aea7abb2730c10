// What every implementation of code page conversion promises. The faults looked for: buffers written past
// their end, lengths that differ between asking and converting, text that swallows or invents characters at
// bad bytes, and look-alikes that turn a harmless character into a quote or a slash without a word.
#pragma once

#include "os/code_page.h"
#include "os/thread.h"

#include "tessel/base/types.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tessel_test {

using kro::tessel::wide_string;
using kro::tessel::os::code_pages;
using kro::tessel::os::last_error;
using kro::tessel::os::set_last_error;

inline std::string hex(const std::string& bytes) {
    std::string out;
    for (const char byte : bytes) {
        constexpr char k_digits[] = "0123456789abcdef";
        const auto value = static_cast<unsigned char>(byte);
        out += {k_digits[value >> 4U], k_digits[value & 15U], ' '};
    }
    return out;
}

inline std::string hex(const wide_string& units) {
    std::string out;
    for (const wchar unit : units.substr(0, 64)) {
        const std::string bytes{static_cast<char>(unit >> 8U), static_cast<char>(unit & 0xFFU)};
        out += hex(bytes).erase(2, 1);
    }
    return out;
}

/// Asks for the length, converts into exactly that room, and checks that the two agree.
inline wide_string to_wide(std::uint32_t page, const std::string& bytes, std::uint32_t flags = 0) {
    const auto count = static_cast<std::int32_t>(bytes.size());
    const std::int32_t needed = code_pages().to_wide(page, flags, bytes.data(), count, nullptr, 0);
    wide_string text(static_cast<std::size_t>(needed) + 1, wchar(0xEEEE));
    if (needed != 0) {
        EXPECT_EQ(code_pages().to_wide(page, flags, bytes.data(), count, text.data(), needed), needed);
        EXPECT_EQ(text.back(), 0xEEEE) << "written past the end";
    }
    text.pop_back();
    return text;
}

struct narrowed {
    std::string bytes;
    bool used_default = false;
};

inline narrowed to_narrow(std::uint32_t page, const wide_string& text, std::uint32_t flags = 0,
                          const char* default_char = nullptr) {
    const auto count = static_cast<std::int32_t>(text.size());
    bool asked_default = false;
    const std::int32_t needed =
        code_pages().to_narrow(page, flags, text.data(), count, nullptr, 0, default_char, &asked_default);
    narrowed result;
    result.bytes.assign(static_cast<std::size_t>(needed) + 1, '\x55');
    if (needed != 0) {
        EXPECT_EQ(code_pages().to_narrow(page, flags, text.data(), count, result.bytes.data(), needed,
                                         default_char, &result.used_default),
                  needed);
        EXPECT_EQ(result.bytes.back(), '\x55') << "written past the end";
        EXPECT_EQ(result.used_default, asked_default);
    }
    result.bytes.pop_back();
    return result;
}

/// The bytes of a literal that may hold zeros.
template <std::size_t k_size>
std::string raw(const char (&literal)[k_size]) {
    return std::string(literal, k_size - 1);
}
template <std::size_t k_size>
wide_string raw(const wchar (&literal)[k_size]) {
    return wide_string(literal, k_size - 1);
}

/// The error of a call that is refused; 0 of one that isn't.
inline std::uint32_t refusal(std::int32_t result) {
    return result == 0 ? last_error() : 0;
}

TEST(CodePageContract, RefusesBadCallsWithTheirNumbers) {
    wchar wide[8] = {};
    char narrow[8] = {};
    auto& pages = code_pages();
    const auto to_bytes = [&](std::uint32_t page, std::uint32_t flags, const wchar* text, std::int32_t length,
                              char* out, std::int32_t room) {
        return refusal(pages.to_narrow(page, flags, text, length, out, room, nullptr, nullptr));
    };
    for (const std::uint32_t page : {65001U, 1252U, 932U}) {
        SCOPED_TRACE(page);
        EXPECT_EQ(refusal(pages.to_wide(page, 0, "a", 0, wide, 8)), 87U) << "empty source";
        EXPECT_EQ(refusal(pages.to_wide(page, 0, nullptr, 1, wide, 8)), 87U) << "null source";
        EXPECT_EQ(refusal(pages.to_wide(page, 0, "a", 1, wide, -1)), 87U) << "negative capacity";
        EXPECT_EQ(refusal(pages.to_wide(page, 0, "a", 1, nullptr, 8)), 87U) << "null output";
        EXPECT_EQ(refusal(pages.to_wide(page, 0x100, "a", 1, wide, 8)), 1004U) << "unknown flag";
        EXPECT_EQ(to_bytes(page, 0, wide, 0, narrow, 8), 87U) << "empty text";
        EXPECT_EQ(to_bytes(page, 0, nullptr, 1, narrow, 8), 87U) << "null text";
        EXPECT_EQ(to_bytes(page, 0, wide, 1, narrow, -8), 87U) << "negative capacity for bytes";
        EXPECT_EQ(to_bytes(page, 0, wide, 1, nullptr, 8), 87U) << "null output for bytes";
        EXPECT_EQ(to_bytes(page, 0x1, wide, 1, narrow, 8), 1004U) << "unknown flag for bytes";
    }
    for (const std::uint32_t page : {1U, 1259U, 1200U, 65000U, 0xFFFFFFFFU}) {
        EXPECT_EQ(refusal(pages.to_wide(page, 0, "a", 1, wide, 8)), 87U) << page;
        EXPECT_EQ(to_bytes(page, 0, wide, 1, narrow, 8), 87U) << page;
    }
}

TEST(CodePageContract, CountsTheZeroOfAZeroTerminatedSource) {
    wchar wide[8] = {};
    char narrow[8] = {};
    for (const std::uint32_t page : {65001U, 1252U, 932U}) {
        EXPECT_EQ(hex(to_wide(page, raw("a\0b"))), hex(raw(TESSEL_W("a\0b")))) << "where a length is given";
        EXPECT_EQ(hex(to_narrow(page, raw(TESSEL_W("a\0b"))).bytes), hex(raw("a\0b")));
        for (const std::int32_t length : {-1, -2, -2147483647 - 1}) {
            const std::int32_t units = code_pages().to_wide(page, 0, "ab", length, wide, 8);
            EXPECT_EQ(hex(wide_string(wide, static_cast<std::size_t>(units))), hex(raw(TESSEL_W("ab\0"))));
            const std::int32_t bytes =
                code_pages().to_narrow(page, 0, TESSEL_W("ab"), length, narrow, 8, nullptr, nullptr);
            EXPECT_EQ(hex(std::string(narrow, static_cast<std::size_t>(bytes))), hex(raw("ab\0")));
        }
    }
}

/// Converts into too small a room and checks what came of it. margin: units that one character can have.
template <class String, class Convert>
void expect_cut(const String& whole, std::size_t room, std::size_t margin, Convert convert) {
    constexpr auto k_guard = static_cast<typename String::value_type>(0x5A5A);
    String out(room + 8, k_guard);
    EXPECT_EQ(convert(out.data(), static_cast<std::int32_t>(room)), 0);
    EXPECT_EQ(last_error(), 122U);
    const std::size_t written = out.find(k_guard);
    EXPECT_TRUE(written <= room && written + margin > room) << written << " written into " << room;
    EXPECT_TRUE(out.compare(0, written, whole, 0, written) == 0);
    EXPECT_EQ(out.find_first_not_of(k_guard, written), String::npos) << "written past the end";
}

TEST(CodePageContract, WritesWhatFitsAndNothingBehindIt) {
    const struct {
        std::uint32_t page;
        wide_string text;
    } rows[] = {
        {65001,
         TESSEL_W("a\u00E9\u4E2D\U0001F600z\u00E9\u4E2D\U0001F600plain text of some length, then \u00E9")},
        {1252, TESSEL_W("caf\u00E9 \u20AC \u2013 and plain text behind it, longer than a block \u00FF")},
        {932, TESSEL_W("\u65E5a\u672C\uFF71\u8A9Eplain text behind it, longer than a block\u65E5")},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.page);
        const std::string bytes = to_narrow(row.page, row.text).bytes;
        EXPECT_EQ(hex(to_wide(row.page, bytes)), hex(row.text));
        for (std::size_t room = 1; room < bytes.size(); ++room) {
            expect_cut(bytes, room, 4, [&](char* out, std::int32_t capacity) {
                return code_pages().to_narrow(row.page, 0, row.text.data(),
                                              static_cast<std::int32_t>(row.text.size()), out, capacity,
                                              nullptr, nullptr);
            });
        }
        for (std::size_t room = 1; room < row.text.size(); ++room) {
            expect_cut(row.text, room, 2, [&](wchar* out, std::int32_t capacity) {
                return code_pages().to_wide(row.page, 0, bytes.data(),
                                            static_cast<std::int32_t>(bytes.size()), out, capacity);
            });
        }
    }
}

struct byte_row {
    const char* what;
    std::uint32_t page;
    std::string bytes;
    wide_string text;
};

// Checks the row, then the same in the middle of longer text, where whole blocks are converted.
inline void expect_text(const byte_row& row) {
    SCOPED_TRACE(std::string(row.what) + ": " + hex(row.bytes));
    EXPECT_EQ(hex(to_wide(row.page, row.bytes)), hex(row.text));
    const std::string ascii = "sixteen letters are a block, sixty-four of them a step, and this is more. ";
    const wide_string wide(ascii.begin(), ascii.end());
    for (std::size_t cut = 0; cut < 32; ++cut) {
        const std::string surrounded = ascii.substr(cut) + row.bytes + '\n' + ascii;
        const wide_string expected = wide.substr(cut) + to_wide(row.page, row.bytes + '\n') + wide;
        EXPECT_TRUE(to_wide(row.page, surrounded) == expected)
            << "behind " << ascii.size() - cut << " letters";
    }
}

TEST(CodePageContract, ReplacesMalformedUtf8) {
    const byte_row rows[] = {
        {"lone continuation", 65001, "\x80", TESSEL_W("\uFFFD")},
        {"cut, two bytes", 65001, "\xC3", TESSEL_W("\uFFFD")},
        {"cut, four bytes", 65001, "\xF0\x9F\x98", TESSEL_W("\uFFFD")},
        {"a letter inside", 65001, "\xE4\xB8z", TESSEL_W("\uFFFDz")},
        {"a letter behind a lead", 65001, "\xF0z", TESSEL_W("\uFFFDz")},
        {"overlong zero", 65001, "\xC0\x80", TESSEL_W("\uFFFD\uFFFD")},
        {"overlong, three bytes", 65001, "\xE0\x9F\xBF", TESSEL_W("\uFFFD\uFFFD")},
        {"overlong, four bytes", 65001, "\xF0\x8F\xBF\xBF", TESSEL_W("\uFFFD\uFFFD\uFFFD")},
        {"a surrogate", 65001, "\xED\xA0\x80", TESSEL_W("\uFFFD\uFFFD")},
        {"above the last code point", 65001, "\xF4\x90\x80\x80", TESSEL_W("\uFFFD\uFFFD\uFFFD")},
        {"no lead byte", 65001, "\xF5\x80", TESSEL_W("\uFFFD\uFFFD")},
        {"five bytes", 65001, "\xF8\x88\x80\x80\x80", TESSEL_W("\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD")},
        {"a zero behind a lead", 65001, raw("\xE4\0"), raw(TESSEL_W("\uFFFD\0"))},
        {"the mark is kept", 65001, "\xEF\xBB\xBFx", TESSEL_W("\uFEFFx")},
        {"the borders", 65001,
         "\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xF0\x90\x80\x80\xF4\x8F\xBF\xBF",
         TESSEL_W("\u0080\u07FF\u0800\uD7FF\uE000\U00010000\U0010FFFF")},
    };
    for (const byte_row& row : rows) {
        expect_text(row);
        const bool valid = row.text.find(wchar(0xFFFD)) == wide_string::npos;
        set_last_error(0);
        EXPECT_EQ(to_wide(65001, row.bytes, kro::tessel::os::k_wide_error_on_invalid).empty(), !valid)
            << row.what;
        EXPECT_EQ(last_error(), valid ? 0U : 1113U) << row.what;
    }
}

TEST(CodePageContract, ReplacesUnpairedSurrogates) {
    const struct {
        const char* what;
        wide_string text;
        const char* bytes;
    } rows[] = {
        {"first half alone", TESSEL_W("\xD83D"), "\xEF\xBF\xBD"},
        {"second half alone", TESSEL_W("x\xDE00x"), "x\xEF\xBF\xBDx"},
        {"two first halves", TESSEL_W("\xD83D\xD83D\xDE00"), "\xEF\xBF\xBD\xF0\x9F\x98\x80"},
        {"a pair", TESSEL_W("\xD83D\xDE00"), "\xF0\x9F\x98\x80"},
    };
    for (const auto& row : rows) {
        const narrowed result = to_narrow(65001, row.text, 0, "!");
        EXPECT_EQ(hex(result.bytes), hex(row.bytes)) << row.what;
        const bool valid = std::string(row.bytes).find("\xEF\xBF\xBD") == std::string::npos;
        set_last_error(0);
        EXPECT_EQ(to_narrow(65001, row.text, kro::tessel::os::k_narrow_error_on_invalid).bytes.empty(),
                  !valid);
        EXPECT_EQ(last_error(), valid ? 0U : 1113U) << row.what;
    }
    EXPECT_EQ(to_narrow(1252, TESSEL_W("\xD83D\xDE00|\xD83D")).bytes, "??|?") << "one for each unit";
}

TEST(CodePageContract, ReplacesBadPairs) {
    const byte_row rows[] = {
        {"cut", 932, "\x81", TESSEL_W("\u30FB")},
        {"a blank is swallowed", 932, "\x81 z", TESSEL_W("\u30FBz")},
        {"unassigned", 932, "\x81\xADz", TESSEL_W("\u30FBz")},
        {"a zero is not", 932, raw("\x81\0"), raw(TESSEL_W("\u30FB\0"))},
        {"cut", 936, "\xC7", TESSEL_W("?")},
        {"a blank is swallowed", 936, "\xD6 z", TESSEL_W("?z")},
        {"a quote is swallowed", 949, "\xC7\"z", TESSEL_W("?z")},
        {"a zero is not", 936, raw("\xC7\0"), raw(TESSEL_W("?\0"))},
        {"a lead as trail", 950, "\xA4\x80z", TESSEL_W("?z")},
    };
    for (const byte_row& row : rows) {
        expect_text(row);
        set_last_error(0);
        EXPECT_TRUE(to_wide(row.page, row.bytes, kro::tessel::os::k_wide_error_on_invalid).empty())
            << row.what;
        EXPECT_EQ(last_error(), 1113U) << row.what;
    }
}

TEST(CodePageContract, GivesEveryByteAMeaning) {
    const byte_row rows[] = {
        {"C1 where nothing is assigned", 1252, "\x80\x81\x8D\x8F\x90\x9D\x9F",
         TESSEL_W("\u20AC\u0081\u008D\u008F\u0090\u009D\u0178")},
        {"Cyrillic", 1251, "\x98\xC0\xFF\xA8", TESSEL_W("\u0098\u0410\u044F\u0401")},
        {"Hebrew", 1255, "\xCA\xD9\xDF\xFB\xFC\xFF", TESSEL_W("\u05BA\uF88D\uF893\uF894\uF895\uF896")},
        {"Japanese", 932, "\x80\xA0\xFD\xFE\xFF", TESSEL_W("\u0080\uF8F0\uF8F1\uF8F2\uF8F3")},
        {"control characters stay", 932, "\x1A\x1C\x7F\x5C\x7E", TESSEL_W("\u001A\u001C\u007F\\~")},
        {"Chinese", 936, "\x80\xFF", TESSEL_W("\u20AC\uF8F5")},
        {"Korean", 949, "\x80\xFF", TESSEL_W("\u0080\uF8F7")},
        {"Taiwanese", 950, "\x80\xFF", TESSEL_W("\u0080\uF8F8")},
        {"user-defined, Japanese", 932, "\xF0\x40", TESSEL_W("\uE000")},
    };
    for (const byte_row& row : rows) {
        expect_text(row);
        EXPECT_EQ(hex(to_narrow(row.page, row.text).bytes), hex(row.bytes)) << row.what;
    }
}

TEST(CodePageContract, UsesLookAlikesSilently) {
    const struct {
        const char* what;
        std::uint32_t page;
        wide_string text;
        const char* bytes;
    } rows[] = {
        {"accents are dropped", 1252, TESSEL_W("\u0100\u0141\u017A"), "ALz"},
        {"infinity", 1252, TESSEL_W("\u221E"), "8"},
        {"full width", 1252, TESSEL_W("\uFF21\uFF0D\uFF07\uFF5E"), "A-'~"},
        {"a combining accent", 1252, TESSEL_W("\u0301"), "\xB4"},
        {"Cyrillic", 1251, TESSEL_W("\u00E9\u250C\u2554"), "e-\xE3"},
        {"Greek", 1253, TESSEL_W("\u00C5\u0191"), "A\x83"},
        {"Japanese", 932, TESSEL_W("\u00E9\u00A5\u00AB"), "e\\\x81\xE1"},
        {"Korean", 949, TESSEL_W("\u20A9\u00E9"), "\\e"},
        {"Taiwanese", 950, TESSEL_W("\u00E9\u20AC"), "e\xA3\xE1"},
        {"a look-alike of the question mark", 1252, TESSEL_W("\uFF1F"), "?"},
    };
    for (const auto& row : rows) {
        const narrowed result = to_narrow(row.page, row.text);
        EXPECT_EQ(hex(result.bytes), hex(row.bytes)) << row.what;
        EXPECT_FALSE(result.used_default) << row.what;
    }
}

TEST(CodePageContract, UsesTheDefaultWhereThereIsNoLookAlike) {
    const struct {
        std::uint32_t page;
        wide_string text;
    } rows[] = {
        {1252, TESSEL_W("\u0391\u2260\u4E2D")},
        {1252, TESSEL_W("\u200B\u034F\uFEFF")},  // those that show nothing: not dropped
        {932, TESSEL_W("\u203E\u00A0\uD55C")},
        {936, TESSEL_W("\uD55C\u3130")},
    };
    for (const auto& row : rows) {
        const narrowed result = to_narrow(row.page, row.text);
        EXPECT_EQ(result.bytes, std::string(row.text.size(), '?')) << hex(row.text);
        EXPECT_TRUE(result.used_default);
        EXPECT_EQ(to_narrow(row.page, row.text, 0, "_").bytes, std::string(row.text.size(), '_'));
    }
}

TEST(CodePageContract, LeavesOutLookAlikesOnRequest) {
    const std::uint32_t flag = kro::tessel::os::k_narrow_no_best_fit;
    const narrowed exact = to_narrow(1252, TESSEL_W("caf\u00E9 \u20AC \u0081?"), flag);
    EXPECT_EQ(exact.bytes, "caf\xE9 \x80 \x81?");
    EXPECT_FALSE(exact.used_default);
    const narrowed replaced =
        to_narrow(1252, TESSEL_W("\u0100\u221E\uFF0F, a line of ordinary text, \u2215"), flag);
    EXPECT_EQ(replaced.bytes, "???, a line of ordinary text, ?");
    EXPECT_TRUE(replaced.used_default);
    EXPECT_EQ(to_narrow(932, TESSEL_W("\u65E5\u00E9\u00A5"), flag, "_").bytes, "\x93\xFA__");
}

TEST(CodePageContract, TakesADefaultOfTwoBytesOnPagesThatHaveThem) {
    EXPECT_EQ(to_narrow(932, TESSEL_W("a\u0391\uD55Cb"), 0, "\x81\xA0").bytes,
              "a\x83\x9F\x81\xA0"
              "b");
    EXPECT_EQ(to_narrow(932, TESSEL_W("\uD55C"), 0, "xy").bytes, "x");
    EXPECT_EQ(to_narrow(1252, TESSEL_W("\uD55C"), 0, "\x81\xA0").bytes, "\x81");
}

TEST(CodePageContract, AnsiPageCanBeSet) {
    auto& pages = code_pages();
    const std::uint32_t before = pages.ansi_code_page();
    for (const std::uint32_t page : {1252U, 932U, 65001U}) {
        EXPECT_TRUE(pages.set_ansi_code_page(page) && pages.ansi_code_page() == page);
        EXPECT_EQ(to_narrow(0, TESSEL_W("\u00B1")).bytes, to_narrow(page, TESSEL_W("\u00B1")).bytes);
    }
    EXPECT_FALSE(pages.set_ansi_code_page(1259) || pages.set_ansi_code_page(0));
    EXPECT_EQ(pages.ansi_code_page(), 65001U);
    EXPECT_TRUE(pages.set_ansi_code_page(before));
}

}  // namespace tessel_test
