// Servers read what the coder writes and hosts rely on what the decoder makes of broken escapes: both are
// compared with the rules written down once more, one unit at a time.
#include "tessel/codec/url_coding.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <random>
#include <string>

namespace {

using kro::tessel::CTString;
using kro::tessel::CTStringA;

CTString wide(const CTStringA& text) {
    CTString units;
    std::transform(text.begin(), text.end(), std::back_inserter(units),
                   [](char byte) { return static_cast<wchar>(static_cast<unsigned char>(byte)); });
    return units;
}

std::string shown(const CTString& text) {
    std::string out;
    for (const wchar unit : text) {
        out += unit > 32 && unit < 127 ? std::string(1, static_cast<char>(unit))
                                       : "<" + std::to_string(unit) + ">";
    }
    return out;
}

CTString plainly_encoded(const CTString& text) {
    CTString out;
    for (const wchar unit : text) {
        const bool is_kept =
            std::string("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789'()*-._")
                .find(static_cast<char>(unit)) != std::string::npos;
        if (unit < 0x80 && is_kept) {
            out += unit;
        } else {
            char escape[8];
            std::snprintf(escape, sizeof(escape), "%%%02X", static_cast<unsigned>(unit));
            out += wide(escape);
        }
    }
    return out;
}

CTString plainly_decoded(const CTString& text) {
    const auto value = [](wchar unit) -> unsigned {
        if (unit >= '0' && unit <= '9') {
            return unit - unsigned{'0'};
        }
        const unsigned lower = unit | 0x20U;
        return unit < 0x80 && lower >= 'a' && lower <= 'f' ? lower - 'a' + 10 : 0U;
    };
    CTString out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
        } else if (i + 2 < text.size()) {
            out += static_cast<wchar>(value(text[i + 1]) * 16 + value(text[i + 2]));
            i += 2;
        } else {
            return out += text.substr(i + 1);
        }
    }
    return out;
}

CTStringA narrow(const CTString& text) {
    CTStringA bytes;
    std::transform(text.begin(), text.end(), std::back_inserter(bytes),
                   [](wchar unit) { return static_cast<char>(unit); });
    return bytes;
}

void expect_codes(const CTString& text) {
    const CTString escaped = URLEncoder::Encode(text);
    EXPECT_EQ(shown(escaped), shown(plainly_encoded(text)));
    EXPECT_EQ(shown(URLDecoder::Decode(text)), shown(plainly_decoded(text)));
    if (std::all_of(text.begin(), text.end(), [](wchar unit) { return unit <= 0xFF; })) {
        EXPECT_EQ(shown(URLDecoder::Decode(escaped)), shown(text));
        EXPECT_EQ(shown(wide(URLEncoder::EncodeA(narrow(text)))), shown(escaped));
        EXPECT_EQ(shown(wide(URLDecoder::DecodeA(narrow(text)))), shown(URLDecoder::Decode(text)));
        EXPECT_EQ(URLDecoder::DecodeA(narrow(escaped)), narrow(text));
    }
}

TEST(UrlCoding, WritesWhatServersExpect) {
    const std::pair<const wchar*, const char*> rows[] = {
        {TESSEL_W(""), ""},
        {TESSEL_W("a b&c"), "a%20b%26c"},
        {TESSEL_W("_-.*()'"), "_-.*()'"},
        {TESSEL_W("{|}~+\t\x7f"), "%7B%7C%7D%7E%2B%09%7F"},
        {TESSEL_W("\u00e9\u0100\u0fff\u4e2d"), "%E9%100%FFF%4E2D"},
        {TESSEL_W("\U0001F600"), "%D83D%DE00"},
    };
    for (const auto& [text, escaped] : rows) {
        EXPECT_EQ(URLEncoder::Encode(text), wide(escaped)) << escaped;
        expect_codes(text);
    }
    EXPECT_EQ(URLEncoder::EncodeA("a b\xE4\xFF"), "a%20b%E4%FF");
    EXPECT_EQ(URLEncoder::csUnsafeString.size(), 21U);
    EXPECT_EQ(URLEncoder::Encode(URLEncoder::csUnsafeString).size(), 63U);
}

TEST(UrlCoding, AgreesWithThePlainRulesOnAnyText) {
    std::mt19937 random(51);
    const auto below = [&random](std::size_t count) { return random() % count; };
    const kro::tessel::wide_string marks = TESSEL_W("%%%%%%%%09afAFgG+ ~\u0141\u4e2d");
    for (int run = 0; run < 2000; ++run) {
        CTString text;
        const std::size_t limit = run % 2 == 0 ? 0x100 : 0x10000;
        // Around the sizes at which results are put together.
        for (std::size_t left = run % 100 == 0 ? 400 + below(4000) : below(60); left != 0; --left) {
            text += below(3) == 0 ? static_cast<wchar>(marks[below(marks.size())] % limit)
                                  : static_cast<wchar>(below(limit));
        }
        expect_codes(text);
    }
    CTString all;
    for (unsigned unit = 0; unit <= 0xFFFF; ++unit) {
        all += static_cast<wchar>(unit);
    }
    expect_codes(all);
}

}  // namespace
