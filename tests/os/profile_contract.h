// What every implementation of the INI reader promises. The faults looked for: a value that belongs to
// another key or section, rules for blanks and quotes that differ from those that translators know, cuts that
// write past the buffer, and encodings that garble.
#pragma once

#include "os/profile.h"
#include "os/thread.h"

#include "support/ascii.h"
#include "tessel/base/types.h"
#include "tessel/platform/host.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

namespace tessel_test {

using kro::tessel::wide_string;
using namespace std::string_literals;

/// A file that holds these bytes; its name isn't ASCII.
class ini_file {
public:
    explicit ini_file(const std::string& bytes) : m_path(unique_path()) { write(bytes); }
    ~ini_file() { std::filesystem::remove(m_path); }
    ini_file(const ini_file&) = delete;
    ini_file& operator=(const ini_file&) = delete;

    void write(const std::string& bytes) const { std::ofstream(m_path, std::ios::binary) << bytes; }
    const std::filesystem::path& path() const { return m_path; }
    wide_string name() const { return m_path.generic_string<wchar>(); }

    static std::filesystem::path unique_path() {
        static unsigned count = 0;
        static const unsigned base = std::random_device()();  // other tests run at the same time
        return std::filesystem::temp_directory_path() /
               std::filesystem::u8path("tessel_\xC3\xA9_" + std::to_string(base) + "_" +
                                       std::to_string(++count) + ".ini");
    }

private:
    std::filesystem::path m_path;
};

constexpr wchar k_guard = 0xEEEE;

inline wide_string read_value(const wide_string& file, const wide_string& key, std::uint32_t capacity = 1024,
                              const wchar* fallback = TESSEL_W("-none-"),
                              const wide_string& section = TESSEL_W("text")) {
    wide_string out(capacity + 1, k_guard);
    const std::uint32_t units = kro::tessel::os::profiles().get_string(section.c_str(), key.c_str(), fallback,
                                                                       out.data(), capacity, file.c_str());
    EXPECT_EQ(out.back(), k_guard) << "written past the end";
    if (capacity == 0) {
        EXPECT_EQ(units, 0U);
        return {};
    }
    EXPECT_LT(units, capacity);
    EXPECT_EQ(out[units], 0);
    out.resize(units);
    return out;
}

TEST(ProfileContract, TakesTheFirstKeyOfTheFirstSection) {
    const struct {
        const char* what;
        std::string file;
        const char* value;
    } rows[] = {
        {"plain", "[text]\nk=v\n", "v"},
        {"no last line end", "[text]\nk=v", "v"},
        {"CR alone", "[text]\ra=b\rk=v\r", "v"},
        {"other case", "[TexT]\nK=v", "v"},
        {"blanks everywhere", " \t[ text ] \n\t k \t=\t v \t\n", "v"},
        {"something behind the bracket", "[text] [x] ;y\nk=v", "-none-"},
        {"something without a bracket behind it", "[text] x\nk=v", "v"},
        {"no bracket", "[text\nk=v", "-none-"},
        {"a line like a section", "[text]\n[k=x\nk=v", "v"},
        {"before any section", "k=v\n[text]\n", "-none-"},
        {"another section", "[other]\nk=x\n[text]\nk=v\n[last]\nk=y", "v"},
        {"section twice", "[text]\na=b\n[other]\n[text]\nk=v", "-none-"},
        {"key twice", "[text]\nk=v\nk=x", "v"},
        {"a longer key", "[text]\nkk=x\nk k=x\nk=v", "v"},
        {"a shorter line", "[text]\n\n=\nk", "-none-"},
        {"without a sign, which is first", "[text]\nk\nk=v", "-none-"},
        {"only blanks", "[text]\nk=  \t\n", ""},
        {"a sign in the value", "[text]\nk=a=b", "a=b"},
        {"comments", "[text]\n;k=x\n ; k=x\nk=v", "v"},
        {"no comment behind a value", "[text]\nk=v ;c", "v ;c"},
        {"a hash is a character", "[text]\n#k=x\nk=#v", "#v"},
        {"nothing is escaped", "[text]\nk=a\\n%PATH%\\\nb=c", "a\\n%PATH%\\"},
        {"a zero ends a value", "[text]\nk=a\0b\nl=c"s, "a"},
        {"a zero ends a line", "[text]\n\0k=x\nk=v"s, "v"},
        {"end-of-file characters are none", "[text]\n\x1A\nk=a\x1A"s + "b",
         "a\x1A"
         "b"},
        {"garbage around it", "\x01\xFE\x80[\n\xFF=\n[text]\n\x81\nk=v\n\x00\xFF"s, "v"},
        {"empty file", "", "-none-"},
    };
    for (const auto& row : rows) {
        const ini_file file(row.file);
        EXPECT_EQ(read_value(file.name(), TESSEL_W("k")), wide(row.value)) << row.what;
    }
}

TEST(ProfileContract, RemovesOnePairOfQuotes) {
    const struct {
        const char* written;
        const char* value;
    } rows[] = {
        {"\"v\"", "v"},     {"\" v \"", " v "},   {"\"\"v\"\"", "\"v\""}, {"\"a\" \"b\"", "a\" \"b"},
        {"\"v", "\"v"},     {"\"v'", "\"v'"},     {"\"", "\""},           {"\"\"", ""},
        {"  \"v\"\t", "v"}, {"'\"v\"'", "\"v\""},
    };
    for (const auto& row : rows) {
        const ini_file file("[text]\nk="s + row.written + "\n");
        EXPECT_EQ(read_value(file.name(), TESSEL_W("k")), wide(row.value)) << row.written;
    }
}

TEST(ProfileContract, CutsWhatDoesNotFit) {
    const ini_file file("[text]\nk=hello\nlong=" + std::string(1500, 'x') + "\nfits=\"" +
                        std::string(1023, 'y') + "\"\n");
    const struct {
        std::uint32_t capacity;
        const char* value;
    } rows[] = {{6, "hello"}, {5, "hell"}, {2, "h"}, {1, ""}, {0, ""}};
    for (const auto& row : rows) {
        EXPECT_EQ(read_value(file.name(), TESSEL_W("k"), row.capacity), wide(row.value)) << row.capacity;
    }
    EXPECT_EQ(read_value(file.name(), TESSEL_W("long")), wide_string(1023, 'x'));
    EXPECT_EQ(read_value(file.name(), TESSEL_W("none"), 4), TESSEL_W("-no"));
    EXPECT_EQ(read_value(file.name(), TESSEL_W("none"), 9, TESSEL_W(" a \t ")), TESSEL_W(" a"));
    EXPECT_EQ(read_value(file.name(), TESSEL_W("none"), 9, nullptr), TESSEL_W(""));
}

TEST(ProfileContract, TrimsTheNamesThatAreAsked) {
    const ini_file file("[text]\nk=v\n=unnamed\n[two words]\na b=c\n");
    EXPECT_EQ(read_value(file.name(), TESSEL_W(" k\t"), 9, nullptr, TESSEL_W("\ttext ")), TESSEL_W("v"));
    EXPECT_EQ(read_value(file.name(), TESSEL_W("A B"), 9, nullptr, TESSEL_W("Two Words")), TESSEL_W("c"));
    EXPECT_EQ(read_value(file.name(), TESSEL_W("")), TESSEL_W("unnamed"));
}

inline std::string utf16(const wide_string& text, bool big) {
    std::string bytes = big ? "\xFE\xFF" : "\xFF\xFE";
    for (const wchar unit : text) {
        const char high = static_cast<char>(unit >> 8U);
        const char low = static_cast<char>(unit & 0xFFU);
        bytes += {big ? high : low, big ? low : high};
    }
    return bytes;
}

TEST(ProfileContract, ReadsMarkedUtf16) {
    const wide_string text = TESSEL_W("[text]\r\nk=\"\u65E5\u010D\U0001F600\"\r\nl=v");
    for (const bool big : {false, true}) {
        const ini_file file(utf16(text, big));
        EXPECT_EQ(read_value(file.name(), TESSEL_W("k")), TESSEL_W("\u65E5\u010D\U0001F600"));
        EXPECT_EQ(read_value(file.name(), TESSEL_W("l")), TESSEL_W("v"));
        const ini_file odd(utf16(text, big) + "x");
        EXPECT_EQ(read_value(odd.name(), TESSEL_W("l")).substr(0, 1), TESSEL_W("v"));
    }
}

TEST(ProfileContract, AnswersWithTheFallbackWhereThereIsNoFile) {
    const std::filesystem::path missing = ini_file::unique_path();
    EXPECT_EQ(read_value(missing.generic_string<wchar>(), TESSEL_W("k")), TESSEL_W("-none-"));
    EXPECT_EQ(kro::tessel::os::last_error(), 2U);
    EXPECT_EQ(read_value((missing / "x").generic_string<wchar>(), TESSEL_W("k")), TESSEL_W("-none-"));
    EXPECT_EQ(kro::tessel::os::last_error(), 3U);
    EXPECT_EQ(read_value(std::filesystem::temp_directory_path().generic_string<wchar>(), TESSEL_W("k")),
              TESSEL_W("-none-"));
    const ini_file file("[text]\nk=v");
    read_value(file.name(), TESSEL_W("none"));
    EXPECT_EQ(kro::tessel::os::last_error(), 0U);
}

}  // namespace tessel_test
