// Placeholders are replaced pair by pair, which shows when values hold placeholders; against a plain loop on
// random texts, since the search works in blocks.
#include "tessel/i18n/locale_args.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <string>

namespace {

using kro::tessel::wide_string;
using kro::tessel::i18n::locale_args;
using kro::tessel::i18n::locale_index_args;

TEST(LocaleArgs, ReplacesPairByPair) {
    locale_args args;
    args.insert(L"{a}", L"{b}");
    args.insert(TESSEL_W("{b}"), TESSEL_W("z"));
    args.insert(TESSEL_W("{b}"), TESSEL_W("ignored"));
    args.insert(TESSEL_W(""), TESSEL_W("nowhere"));
    EXPECT_EQ(args.replace_args(L"{a} {b} {c}"), TESSEL_W("z z {c}"));
    locale_args backwards;
    backwards.insert(TESSEL_W("{b}"), TESSEL_W("{a}"));
    backwards.insert(TESSEL_W("{a}"), TESSEL_W("z"));
    EXPECT_EQ(backwards.replace_args(TESSEL_W("{b}")), TESSEL_W("{a}"));
    args = backwards;
    args.remove(L"{a}");
    EXPECT_EQ(args.replace_args(TESSEL_W("{a}{b}")), TESSEL_W("{a}{a}"));
    args.remove_all();
    EXPECT_EQ(args.replace_args(TESSEL_W("{b}")), TESSEL_W("{b}"));
}

TEST(LocaleArgs, CountsPositions) {
    locale_index_args args;
    args.insert(TESSEL_W("a"));
    args.insert(L"b");
    EXPECT_EQ(args.replace_args(TESSEL_W("[1]-[0]-[1]-[2]")), TESSEL_W("b-a-b-[2]"));
    args.insert(TESSEL_W("[name]"), TESSEL_W("c"));
    EXPECT_EQ(args.replace_args(TESSEL_W("[name]")), TESSEL_W("c"));
    args.remove_all();
    for (int index = 0; index < 11; ++index) {
        args.insert(index == 10 ? TESSEL_W("<[2]>") : TESSEL_W("x"));
    }
    EXPECT_EQ(args.replace_args(TESSEL_W("[10][0]")), TESSEL_W("<x>x")) << "[10] comes before [2]";
}

wide_string one_by_one(wide_string text, const std::map<wide_string, wide_string>& pairs) {
    for (const auto& [placeholder, value] : pairs) {
        std::size_t at = 0;
        while ((at = text.find(placeholder, at)) != wide_string::npos) {
            text.replace(at, placeholder.size(), value);
            at += value.size();
        }
    }
    return text;
}

TEST(LocaleArgs, AgreesWithAPlainLoop) {
    std::mt19937 random(7);
    const auto text_of = [&](std::size_t longest) {
        wide_string text;
        for (auto units = random() % (longest + 1); units != 0; --units) {
            text.push_back(static_cast<wchar>(TESSEL_W("ab[]\u0161")[random() % 5]));
        }
        return text;
    };
    for (int round = 0; round < 3000; ++round) {
        locale_args args;
        std::map<wide_string, wide_string> pairs;
        for (auto count = random() % 4; count != 0; --count) {
            const wide_string placeholder = text_of(3);
            const wide_string value = text_of(5);
            args.insert(placeholder, value);
            if (!placeholder.empty()) {
                pairs.emplace(placeholder, value);
            }
        }
        const wide_string text = text_of(round % 3 == 0 ? 5 : 150);
        ASSERT_EQ(args.replace_args(text), one_by_one(text, pairs)) << round;
    }
}

}  // namespace
