#include "os/url_contract.h"

#include <algorithm>
#include <iterator>

namespace {

using kro::tessel::os::inet_error_text;

// One line that ends a sentence, and short enough for the callers' buffer of 259 units.
bool is_a_short_line(std::basic_string_view<wchar> text) {
    return text.size() > 10 && text.size() < 259 && text.substr(text.size() - 3) == TESSEL_W(".\r\n") &&
           text.find(wchar('\r')) == text.size() - 2;
}

bool is_documented(std::uint32_t error) {
    constexpr struct {
        std::uint32_t first, last;
    } k_ranges[] = {{12001, 12020}, {12024, 12024}, {12026, 12026}, {12028, 12034},
                    {12036, 12050}, {12052, 12052}, {12055, 12055}, {12057, 12057},
                    {12150, 12157}, {12159, 12160}, {12163, 12172}, {12174, 12175}};
    return std::any_of(std::begin(k_ranges), std::end(k_ranges),
                       [error](const auto& range) { return error >= range.first && error <= range.last; });
}

TEST(InetErrorText, EveryNumberOfTheServiceHasOneAndNoOther) {
    for (std::uint32_t error = 11990; error < 12200; ++error) {
        const auto text = inet_error_text(error);
        EXPECT_TRUE(is_documented(error) ? is_a_short_line(text) : text.empty()) << error;
    }
    EXPECT_TRUE(inet_error_text(0).empty() && inet_error_text(0xFFFFFFFF).empty());
}

TEST(InetErrorText, SaysWhatThePlatformSays) {
    EXPECT_TRUE(inet_error_text(12002) == TESSEL_W("The request has timed out.\r\n"));
    EXPECT_TRUE(inet_error_text(12007) == TESSEL_W("The server name could not be resolved.\r\n"));
    EXPECT_TRUE(inet_error_text(12029) == TESSEL_W("The attempt to connect to the server failed.\r\n"));
}

}  // namespace
