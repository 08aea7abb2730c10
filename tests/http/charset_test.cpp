// The body decides which code page it is read in: a wrong row, a declaration missed at the edge of the
// searched bytes, or a text cut inside a character shows as garbage on the host's screen.
#include "http/charset.h"

#include "base/text_pieces.h"
#include "http/buffer_chain.h"
#include "tessel/http/buffer_content.h"
#include "tessel/platform/host.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace std::string_literals;
using kro::tessel::CTString;
using kro::tessel::widen_in_pieces;
using kro::tessel::http::_buffer_content;
using kro::tessel::http::buffer_content_to_string;
using kro::tessel::http::code_page_of_charset;
using kro::tessel::http::detect_code_page;

struct ansi_page {
    explicit ansi_page(std::uint32_t number) { EXPECT_TRUE(kro::tessel::set_ansi_code_page(number)); }
    ~ansi_page() { kro::tessel::set_ansi_code_page(65001); }
};

CTString text_of(const std::string& bytes) {
    _buffer_content* const chunk = kro::tessel::http::make_chunk(bytes.size());
    std::memcpy(chunk->data, bytes.data(), bytes.size());
    CTString text = buffer_content_to_string(chunk, false);
    EXPECT_EQ(text, buffer_content_to_string(chunk, true));
    kro::tessel::http::free_chain(chunk);
    return text;
}

TEST(Charset, HasACodePageForEachNameInAnyCase) {
    const struct {
        const char* name;
        std::uint32_t page;
    } rows[] = {{"Utf-8", 65001},       {"UTF8", 0},        {"Shift_JIS", 932},   {"EUC-KR", 949},
                {"GB2312", 936},        {"BIG5", 950},      {"iso-8859-1", 0},    {"", 0},
                {"WINDOWS-1251", 1251}, {"windows-125", 0}, {"windows-12522", 0}, {"big\xB5", 0}};
    for (const auto& row : rows) {
        EXPECT_EQ(code_page_of_charset(row.name), row.page) << row.name;
    }
    for (std::uint32_t page = 1250; page <= 1258; ++page) {
        EXPECT_EQ(code_page_of_charset("windows-" + std::to_string(page)), page);
    }
}

TEST(Charset, IsFoundWhereTheFirst256BytesDeclareIt) {
    const std::string declaration = "encoding=\"big5\"";
    const std::size_t room = 256 - declaration.size();
    const struct {
        const char* description;
        std::string text;
        std::uint32_t page;
    } rows[] = {
        {"a whole declaration", "<?xml version=\"1.0\" encoding=\"UTF-8\"?><a/>", 65001},
        {"the last place that is seen", std::string(room, ' ') + declaration, 950},
        {"its quote is byte 257", std::string(room + 1, ' ') + declaration, 0},
        {"the first of two counts", declaration + " encoding=\"utf-8\"", 950},
        {"one that can't be is passed over", "encoding=\"\" encoding='x' " + declaration, 950},
        {"an unknown first one hides the second", "encoding=\"latin\" " + declaration, 0},
        {"no name of word characters", "encoding=\"big 5\"", 0},
        {"other case of the keyword", "ENCODING=\"big5\"", 0},
        {"blank around the sign", "encoding = \"big5\"", 0},
        {"zeros in front", "\0\0"s + declaration, 950},
        {"ends inside", "encoding=\"big5", 0},
        {"nothing", "", 0},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(detect_code_page(row.text), row.page) << row.description;
    }
}

TEST(ContentText, IsConvertedFromTheDeclaredPageOrTheAnsiOne) {
    const ansi_page ansi(1252);
    EXPECT_EQ(text_of("<?xml encoding=\"UTF-8\"?>\xC3\xA9\xE4\xB8\xAD"),
              CTString(TESSEL_W("<?xml encoding=\"UTF-8\"?>\u00e9\u4e2d")));
    EXPECT_EQ(text_of("encoding=\"BIG5\" \xA4\xA4"), CTString(TESSEL_W("encoding=\"BIG5\" \u4e2d")));
    EXPECT_EQ(text_of("encoding=\"koi8-r\" \xE9\x80"),
              CTString(TESSEL_W("encoding=\"koi8-r\" \u00e9\u20ac")));
    EXPECT_EQ(text_of("a\0b\0"s), CTString(kro::tessel::wide_string(TESSEL_W("a\0b\0"), 4)));
    EXPECT_EQ(text_of(""), CTString());
    EXPECT_EQ(buffer_content_to_string(nullptr, false), CTString());
    const _buffer_content without_data{nullptr, 5, nullptr};
    EXPECT_EQ(buffer_content_to_string(&without_data, false), CTString());
}

TEST(ContentText, IsTheSameInPiecesAsInOne) {
    const struct {
        std::uint32_t page;
        std::string bytes;
    } rows[] = {
        {65001,
         "ab\xC3\xA9\xE4\xB8\xAD\xF0\x9F\x98\x80z\xE4\xB8\xAD\xE4\xB8\xAD\xE4\xB8\xAD\xC3\xA9\xC3\xA9"},
        {65001, "\xF0\x9F\x98\x80\xF0\x9F\x98\x80\xF0\x9F\x98\x80\xF0\x9F\x98\x80"},
        {65001, "\x80\x80\x80\x80\x80\x80\x80\x80\x80\xF0\x9F\x98\xC3 \xE4\xB8"},
        {932, "\x93\xFA\x96\x7B\x8C\xEA\xB1\x83\x5C\x83\x5C|\x81 \x83\x5C\x83\x5C\x83"},
        {936, "\xD6\xD0\xCE\xC4\xD6\xD0\xCE\xC4\xD6\xD0\xCE\xC4 \xD6 a\xD6"},
        {1252, "plain \xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9\xE9"},
    };
    for (const auto& row : rows) {
        const CTString whole = widen_in_pieces(row.page, row.bytes, 1000);
        for (std::size_t longest = 4; longest < row.bytes.size(); ++longest) {
            EXPECT_EQ(widen_in_pieces(row.page, row.bytes, longest), whole) << row.page << " by " << longest;
        }
    }
}

TEST(ContentText, IsConvertedOnManyThreadsAtOnce) {
    std::vector<std::thread> threads;
    threads.reserve(8);
    for (int number = 0; number < 8; ++number) {
        threads.emplace_back([] {
            for (int round = 0; round < 200; ++round) {
                EXPECT_EQ(detect_code_page("encoding=\"shift_jis\""), 932U);
            }
        });
    }
    for (auto& thread : threads) {
        thread.join();
    }
}

}  // namespace
