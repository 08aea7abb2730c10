#include "os/profile_contract.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <random>

namespace {

using namespace tessel_test;

struct ansi_page {
    explicit ansi_page(std::uint32_t number) { EXPECT_TRUE(kro::tessel::set_ansi_code_page(number)); }
    ~ansi_page() { kro::tessel::set_ansi_code_page(65001); }
};

TEST(Profile, ReadsTheAnsiCodePageUnlessAMarkSaysUtf8) {
    const ansi_page western(1252);
    const ini_file file("[t\xE9xt]\n\xC4=\xFC\n");
    EXPECT_EQ(read_value(file.name(), TESSEL_W("\u00E4"), 9, nullptr, TESSEL_W("T\u00C9XT")),
              TESSEL_W("\u00FC"));
    const ini_file marked("\xEF\xBB\xBF[text]\n\xC3\x84=\xC3\xBC\nk=v");
    EXPECT_EQ(read_value(marked.name(), TESSEL_W("\u00E4")), TESSEL_W("\u00FC"));
    EXPECT_EQ(read_value(marked.name(), TESSEL_W("k")), TESSEL_W("v"));

    // The second byte of a character may look like a bracket or a letter.
    const ansi_page japanese(932);
    const ini_file pairs("[\x83]x]\n\x83k=1\nk=\x83\\\n");
    EXPECT_EQ(read_value(pairs.name(), TESSEL_W("k"), 9, nullptr, TESSEL_W("\u30BEx")), TESSEL_W("\u30BD"));
}

TEST(Profile, NoLetterBecomesAnAsciiOne) {
    const ini_file file("[text]\n\xC4\xB1=dotless\n\xC5\xBF=long s\ni=i\ns=s\n");
    EXPECT_EQ(read_value(file.name(), TESSEL_W("I")), TESSEL_W("i"));
    EXPECT_EQ(read_value(file.name(), TESSEL_W("S")), TESSEL_W("s"));
    EXPECT_EQ(read_value(file.name(), TESSEL_W("\u0131")), TESSEL_W("dotless"));
}

TEST(Profile, NeverWaitsForWhatIsNoFile) {
    const std::filesystem::path pipe = ini_file::unique_path();
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
    for (const auto& path : {pipe.generic_string<wchar>(), wide_string(TESSEL_W("/dev/zero")),
                             std::filesystem::temp_directory_path().generic_string<wchar>()}) {
        EXPECT_EQ(read_value(path, TESSEL_W("k")), TESSEL_W("-none-"));
        EXPECT_EQ(kro::tessel::os::last_error(), 5U);
    }
    std::filesystem::remove(pipe);
}

// Lines longer than the window that a file is read through, with what counts at each of their ends.
TEST(Profile, ReadsLinesOfAnyLength) {
    for (const std::size_t length : {65529U, 65530U, 65536U, 131072U, 200000U, 1000000U}) {
        SCOPED_TRACE(length);
        const std::string filler(length, 'x');
        const std::string blanks(length, ' ');
        std::string text;
        for (const std::string& piece : {"[text]\na="s, filler, "\nb='"s, filler, "'"s, blanks, "\nc="s,
                                         blanks, "v\n"s, blanks, "d=v\n[text"s, filler, "]\ne="s, filler}) {
            text += piece;
        }
        const ini_file file(text);
        EXPECT_EQ(read_value(file.name(), TESSEL_W("a"), 16383), wide_string(16382, 'x'));
        EXPECT_EQ(read_value(file.name(), TESSEL_W("b"), 16384), wide_string(16383, 'x'));
        EXPECT_EQ(read_value(file.name(), TESSEL_W("c")), TESSEL_W("v"));
        EXPECT_EQ(read_value(file.name(), TESSEL_W("d")), TESSEL_W("v"));
        EXPECT_EQ(read_value(file.name(), TESSEL_W("e")), TESSEL_W("-none-"));
        const ini_file last("[text]\na=\"" + filler + "\"");
        EXPECT_EQ(read_value(last.name(), TESSEL_W("a"), 4), TESSEL_W("xxx"));
        const ini_file open("[text]\na=\"" + filler);
        EXPECT_EQ(read_value(open.name(), TESSEL_W("a"), 4), TESSEL_W("\"xx"));
    }
}

TEST(Profile, ReadsAHugeFileInBoundedMemory) {
    const ini_file file("[text]\n");
    std::filesystem::resize_file(file.path(), std::uintmax_t{1} << 30U);  // a hole: one line of zeros
    std::ofstream(file.path(), std::ios::binary | std::ios::app) << "\nk=v\n";
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    EXPECT_EQ(read_value(file.name(), TESSEL_W("k")), TESSEL_W("v"));
    rusage after{};
    ::getrusage(RUSAGE_SELF, &after);
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 4096) << "KiB";
}

}  // namespace
