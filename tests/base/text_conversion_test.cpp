// Everything that the library reads or sends as text passes here: lengths around the short texts' limit
// and zeros.
#include "base/text_conversion.h"

#include <gtest/gtest.h>

#include <stdexcept>

namespace {

using kro::tessel::narrow;
using kro::tessel::wide_string;
using kro::tessel::widen;

TEST(TextConversion, GoesThereAndBackAtEveryLength) {
    const struct {
        std::uint32_t page;
        wide_string pattern;
    } rows[] = {
        {65001, TESSEL_W("a\u00E9\u65E5\U0001F600")}, {932, TESSEL_W("\u65E5")}, {1252, TESSEL_W("a\u00E9")}};
    for (const auto& row : rows) {
        for (const std::size_t length : {0U, 1U, 3U, 500U, 511U, 512U, 513U, 2000U, 70000U}) {
            wide_string text;
            while (text.size() < length) {
                text += row.pattern;
            }
            EXPECT_TRUE(widen(row.page, narrow(row.page, text)) == text) << row.page << ", " << length;
        }
    }
    EXPECT_TRUE(widen(65001, std::string_view("a\0b", 3)) == wide_string(TESSEL_W("a\0b"), 3));
    EXPECT_EQ(narrow(1252, TESSEL_W("\u0391")), "?");
}

TEST(TextConversion, RefusesTextsThatAreTooLong) {
    // The length is looked at first, so nothing behind the letter is read.
    const std::string_view too_long("a", std::size_t(1) << 31U);
    EXPECT_THROW(widen(1252, too_long), std::length_error);
}

}  // namespace
