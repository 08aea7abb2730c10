// A host's string code must compile against both forms and must not be able to crash them with null.
#include "tessel/base/string.h"

#include <gtest/gtest.h>

#include <memory>
#include <unordered_set>

namespace {

using kro::tessel::CTString;
using kro::tessel::CTStringA;

TEST(String, NullPointersAreEmptyText) {
    const wchar* none = nullptr;
    CTString text(none);
    EXPECT_TRUE(text.empty());
    text = TESSEL_W("x");
    text += none;
    EXPECT_EQ(text, TESSEL_W("x"));
    text = none;
    EXPECT_TRUE(text.empty());
    EXPECT_TRUE((CTStringA("a") + static_cast<const char*>(nullptr)) == "a");
    EXPECT_TRUE(CTString(none, 0).empty());
}

TEST(String, IsMadeAndAssignedAsAStandardString) {
    const wchar units[] = {'a', 'b', 0, 'c'};
    const kro::tessel::wide_string text(units, 4);
    EXPECT_EQ(CTString(3, wchar('x')), TESSEL_W("xxx"));
    EXPECT_TRUE(CTString(0, wchar('x')).empty());
    EXPECT_EQ(CTString(text.begin(), text.end()), text);
    EXPECT_EQ(CTString(units, units + 2), TESSEL_W("ab"));
    EXPECT_EQ(CTString(text, 1, 1), TESSEL_W("b"));
    EXPECT_EQ(CTString(text, 2), text.substr(2));
    EXPECT_EQ((CTString{'a', 'b'}), TESSEL_W("ab"));
    EXPECT_EQ(CTString(std::basic_string_view<wchar>(text)), text);
    CTString assigned = wchar('x') + CTString();
    assigned = wchar('y');
    EXPECT_EQ(assigned, TESSEL_W("y"));
    assigned = {'a', 'b'};
    EXPECT_EQ(assigned, TESSEL_W("ab"));
    assigned = {};
    EXPECT_TRUE(assigned.empty());
}

TEST(String, EveryConcatenationYieldsTheInterfaceString) {
    const CTString a = TESSEL_W("a");
    const kro::tessel::wide_string b = TESSEL_W("b");
    const CTString sums[] = {a + b,
                             b + a,
                             a + TESSEL_W("b"),
                             TESSEL_W("b") + a,
                             a + a,
                             a + wchar('b'),
                             a + kro::tessel::wide_string(b),
                             kro::tessel::wide_string(b) + a,
                             CTString(a) + CTString(b),
                             L"b" + a,
                             a + L"b"};
    const wchar* expected[] = {TESSEL_W("ab"), TESSEL_W("ba"), TESSEL_W("ab"), TESSEL_W("ba"),
                               TESSEL_W("aa"), TESSEL_W("ab"), TESSEL_W("ab"), TESSEL_W("ba"),
                               TESSEL_W("ab"), TESSEL_W("ba"), TESSEL_W("ab")};
    for (std::size_t i = 0; i < std::size(sums); ++i) {
        EXPECT_EQ(sums[i], expected[i]) << "sum " << i;
    }
    static_assert(std::is_same_v<decltype(a + b), CTString>);
}

// The platform's literals have 32 bits on Linux: a pair of surrogates must come of one unit.
TEST(String, PlatformLiteralsBecomeUtf16) {
    const CTString text = L"a\u00e9\U0001F600";
    EXPECT_EQ(text, TESSEL_W("a\u00e9\U0001F600"));
    EXPECT_EQ(text.length(), 4U);
    EXPECT_TRUE(text == L"a\u00e9\U0001F600");
    EXPECT_TRUE(text != L"a");
#if defined(TESSEL_HAS_FOREIGN_WCHAR_T)
    const wchar_t odd[] = {static_cast<wchar_t>(0xD800), static_cast<wchar_t>(0x110000), 0};
    EXPECT_EQ(CTString(odd), TESSEL_W("\uFFFD\uFFFD"));
#endif
}

TEST(String, CopiesAreIndependentAndKeepZeros) {
    CTString original(kro::tessel::wide_string(TESSEL_W("a\0b"), 3));
    CTString copy = original;
    copy[0] = wchar('z');
    EXPECT_EQ(original.length(), 3U);
    EXPECT_EQ(original[0], wchar('a'));
    EXPECT_EQ(copy.c_str()[3], 0);
    const std::unordered_set<CTString> set{original, copy, original};
    EXPECT_EQ(set.size(), 2U);
}

}  // namespace
