#include "os/url_contract.h"

namespace {

using kro::tessel::os::inet_error_text;

// Callers have a buffer of 259 units for a text; a number that the service can fail with must have one.
TEST(InetErrorText, EveryNumberHasAShortLineOfText) {
    const struct {
        std::uint32_t first, last;
    } ranges[] = {{12001, 12020}, {12024, 12024}, {12026, 12026}, {12028, 12034},
                  {12036, 12050}, {12052, 12052}, {12055, 12055}, {12057, 12057},
                  {12150, 12157}, {12159, 12160}, {12163, 12172}, {12174, 12175}};
    for (const auto& range : ranges) {
        for (std::uint32_t error = range.first; error <= range.last; ++error) {
            const auto text = inet_error_text(error);
            EXPECT_GT(text.size(), 10U) << error;
            EXPECT_LT(text.size(), 259U) << error;
            EXPECT_TRUE(text.size() > 3 && text.substr(text.size() - 3) == TESSEL_W(".\r\n")) << error;
            EXPECT_EQ(text.find(wchar('\r')), text.size() - 2) << error;
        }
        EXPECT_TRUE(inet_error_text(range.first - 1).empty()) << range.first - 1;
        EXPECT_TRUE(inet_error_text(range.last + 1).empty()) << range.last + 1;
    }
    EXPECT_TRUE(inet_error_text(0).empty());
    EXPECT_TRUE(inet_error_text(0xFFFFFFFF).empty());
}

TEST(InetErrorText, SaysWhatThePlatformSays) {
    EXPECT_TRUE(inet_error_text(12002) == TESSEL_W("The request has timed out.\r\n"));
    EXPECT_TRUE(inet_error_text(12007) == TESSEL_W("The server name could not be resolved.\r\n"));
    EXPECT_TRUE(inet_error_text(12029) == TESSEL_W("The attempt to connect to the server failed.\r\n"));
}

}  // namespace
