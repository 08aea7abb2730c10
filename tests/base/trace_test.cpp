// Hosts filter and match trace lines by level and text: prefixes, the cut and the scopes' condition.
#include "tessel/base/trace.h"

#include "support/trace_recorder.h"

#include <gtest/gtest.h>

#include <sstream>
#include <stdexcept>

namespace {

using kro::tessel::CTString;
using kro::tessel::CTStringA;
using kro::tessel::trace_message;
using kro::tessel::trace_scope;
using tessel_test::trace_recorder;

CTString letters(std::size_t count) {
    return CTString(kro::tessel::wide_string(count, wchar('a')));
}

TEST(Trace, EachLevelHasItsPrefixAndOthersNone) {
    const trace_recorder recorder(0);
    for (const int level : {0, 3, 6, 9, 4, 10, -1}) {
        trace_message(level) << TESSEL_W("x");
    }
    const std::vector<trace_recorder::line> expected = {
        {0, TESSEL_W("Error: x")}, {3, TESSEL_W("Warnning: x")}, {6, TESSEL_W("Info: x")},
        {9, TESSEL_W("Debug: x")}, {4, TESSEL_W("x")},           {10, TESSEL_W("x")},
        {-1, TESSEL_W("x")}};
    EXPECT_EQ(trace_recorder::lines(), expected);
    EXPECT_EQ(kro::tessel::trace_level_prefix(3), TESSEL_W("Warnning: "));
    EXPECT_TRUE(kro::tessel::trace_level_prefix(4).empty());
}

TEST(Trace, ScopesAndDebugLinesAreWrittenAtExactlyNine) {
    for (const int level : {0, 6, 8, 10}) {
        const trace_recorder recorder(level);
        {
            const trace_scope scope(TESSEL_W("f()"));
            kro::tessel::trace_debug_line(TESSEL_W("line"));
        }
        EXPECT_TRUE(trace_recorder::lines().empty()) << "level " << level;
    }
    const trace_recorder recorder(9);
    try {
        const trace_scope scope(CTString(TESSEL_W("f()")));
        const trace_scope platform_literal(L"g()");
        kro::tessel::trace_debug_line(TESSEL_W("line"));
        throw std::runtime_error("out");
    } catch (const std::runtime_error&) {
        kro::tessel::trace_debug_line(L"caught");
    }
    const std::vector<trace_recorder::line> expected = {{9, TESSEL_W("Debug: ---->>>> Enter f()")},
                                                        {9, TESSEL_W("Debug: ---->>>> Enter g()")},
                                                        {9, TESSEL_W("Debug: line")},
                                                        {9, TESSEL_W("Debug: <<<<---- Leave g()")},
                                                        {9, TESSEL_W("Debug: <<<<---- Leave f()")},
                                                        {9, TESSEL_W("Debug: caught")}};
    EXPECT_EQ(trace_recorder::lines(), expected);
}

TEST(Trace, PartsAreComposedInOrderAndLongOnesKept) {
    const trace_recorder recorder;
    trace_message(9) << CTString(TESSEL_W("[t] ")) << 12029UL << TESSEL_W(" ") << -7 << L" \u00e9 "
                     << reinterpret_cast<const void*>(0xABC0) << letters(300) << TESSEL_W("!");
    ASSERT_EQ(trace_recorder::lines().size(), 1U);
    EXPECT_EQ(trace_recorder::lines()[0].second,
              TESSEL_W("Debug: [t] 12029 -7 \u00e9 0xabc0") + letters(300) + TESSEL_W("!"));
}

// Only strings of the interface's type are cut; text put in otherwise goes in whole.
TEST(Trace, StringsAreCutBehindTwoThousandUnits) {
    const trace_recorder recorder;
    trace_message(9) << letters(2000);
    trace_message(9) << letters(2001) << TESSEL_W("|");
    trace_message(9) << letters(2001).c_str();
    const auto lines = trace_recorder::lines();
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].second, TESSEL_W("Debug: ") + letters(2000));
    EXPECT_EQ(lines[1].second, TESSEL_W("Debug: ") + letters(2000) + TESSEL_W("...|"));
    EXPECT_EQ(lines[2].second, TESSEL_W("Debug: ") + letters(2001));

    std::basic_ostringstream<wchar> wide;
    kro::tessel::trace_insert(wide, letters(2001));
    EXPECT_EQ(wide.str(), letters(2000) + TESSEL_W("..."));
    std::ostringstream narrow;
    kro::tessel::trace_insert(narrow, CTStringA(std::string(2001, 'a')));
    EXPECT_EQ(narrow.str().substr(0, 2002), std::string(2000, 'a') + "0x");
}

}  // namespace
