// A body decides what the matcher sees, so the faults to catch are a wrong choice among several matches,
// a group that reports the wrong bytes, and a pattern or text that makes a search run away.
#include "regex/pattern.h"

#include <gtest/gtest.h>

#include <cctype>
#include <random>
#include <regex>
#include <sstream>
#include <string>

namespace {

using namespace std::string_literals;
using kro::tessel::regex::compile_error;
using kro::tessel::regex::compile_fault;
using kro::tessel::regex::match;
using kro::tessel::regex::pattern;
using kro::tessel::regex::search_result;

// The groups, each in angle brackets and "-" for one that took no part; "none"; or the fault's number.
std::string searched(std::string_view expression, std::string_view text) {
    compile_error error;
    const auto compiled = pattern::compile(expression, error);
    if (!compiled) {
        return "fault " + std::to_string(static_cast<int>(error.fault));
    }
    match found;
    if (compiled->search(text, found) != search_result::found) {
        return "none";
    }
    EXPECT_LE(found.steps, compiled->state_bound(text.size()));
    std::string groups;
    for (const auto& group : found.groups) {
        groups += group ? "<" + std::string(*group) + ">" : "-";
    }
    return groups;
}

struct row {
    std::string expression;
    std::string text;
    std::string expected;
};

void check(const std::vector<row>& rows) {
    for (const auto& [expression, text, expected] : rows) {
        EXPECT_EQ(searched(expression, text), expected) << expression << "  in  " << text;
    }
}

TEST(Pattern, ChoosesTheMatchThatBacktrackingMeetsFirst) {
    check({
        {"a|ab", "ab", "<a>"},  // the first branch wins, not the longest
        {"(a|ab)(c|bcd)(d*)", "abcd", "<abcd><a><bcd><>"},
        {"b|abc", "zabc", "<abc>"},  // leftmost before first branch
        {"a*", "baaa", "<>"},
        {"(a+?)(a*)", "aaa", "<aaa><a><aa>"},
        {"<(.+)>", "<a><b>", "<<a><b>><a><b>"},
        {"<(.+?)>", "<a><b>", "<<a>><a>"},
        {"a{1,3}?", "aaaa", "<a>"},
        {"^(?:ab?){2,3}$", "aaba", "<aaba>"},
        {"(a)|(b)", "b", "<b>-<b>"},
        {"(a|(b))+", "ba", "<ba><a><b>"},     // a group keeps its last capture
        {"a{,3}x{", "a{,3}x{", "<a{,3}x{>"},  // no quantifiers, so literal braces
        {"(x+x+)+y", "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx", "none"},
    });
}

// An empty round is taken and ends the loop.
TEST(Pattern, LeavesALoopAfterAnEmptyRound) {
    check({
        {"(|a)*", "aa", "<><>"},
        {"(a*)*", "aab", "<aa><>"},
        {"(|a){0,3}b", "aab", "<aab><>"},
        {"(|a){2,}b", "aaab", "<aaab><>"},
        {"(?:(a?)(?:b|c*)*)*d", "abccad", "<abccad><>"},
        {"((?:|a)*?c)*d", "acd", "<acd><ac>"},
        {"(?:^|a)+b", "aab", "<aab>"},
    });
}

TEST(Pattern, KnowsEscapesClassesAndAnchors) {
    check({
        {"[\\w\\-]+", "=utf-8\"", "<utf-8>"},
        {"\\W\\D\\S", "a1 x!", "< x!>"},
        {"\\t\\n\\r\\f\\v\\x41\\x7e", "\t\n\r\f\vA~", "<\t\n\r\f\vA~>"},
        {"a\\0b", "a\0b"s, "<a\0b>"s},
        {".", "\n\xE9", "<\xE9>"},
        {"[^a]", "a\n", "<\n>"},
        {"[]a]+", "x]a]", "<]a]>"},
        {"[a-]+[-b]+[a-\\d]+", "-ab-5-a", "<-ab-5-a>"},
        {"[+--]+", "*+,-.", "<+,->"},
        {"[\\x80-\\xff]+", "a\x80\xC3\xFF", "<\x80\xC3\xFF>"},
        {"[[:upper:][:digit:]_]+", "aB9_c", "<B9_>"},
        {"[^[:^space:]]", "ab\t", "<\t>"},
        {"[\\b]", "a\b", "<\b>"},
        {"^a|b$", "cb\n", "<b>"},
        {"\\bo\\w+\\B.\\b", "foo open", "<open>"},
    });
}

TEST(Pattern, NamesClassesAsTheCLocaleDoes) {
    const struct {
        const char* name;
        int (*contains)(int);
    } rows[] = {{"alnum", std::isalnum},
                {"alpha", std::isalpha},
                {"blank", std::isblank},
                {"cntrl", std::iscntrl},
                {"digit", std::isdigit},
                {"graph", std::isgraph},
                {"lower", std::islower},
                {"print", std::isprint},
                {"punct", std::ispunct},
                {"space", std::isspace},
                {"upper", std::isupper},
                {"xdigit", std::isxdigit},
                {"ascii", [](int byte) { return byte < 128 ? 1 : 0; }}};
    for (const auto& row : rows) {
        compile_error error;
        const auto compiled = pattern::compile("[[:"s + row.name + ":]]", error);
        ASSERT_TRUE(compiled) << row.name;
        for (int byte = 0; byte < 256; ++byte) {
            match found;
            const char text = static_cast<char>(byte);
            EXPECT_EQ(compiled->search({&text, 1}, found) == search_result::found, row.contains(byte) != 0)
                << row.name << " " << byte;
        }
    }
}

TEST(Pattern, RefusesWhatItCannotDo) {
    const struct {
        std::string expression;
        compile_fault fault;
        std::size_t position;
    } rows[] = {
        {"a(b", compile_fault::unbalanced_group, 1},
        {"a[b", compile_fault::unbalanced_class, 1},
        {"x[b-a]", compile_fault::bad_class, 2},
        {"[[:word:]]", compile_fault::bad_class, 1},
        {"a\\", compile_fault::bad_escape, 1},
        {"(a)\\1", compile_fault::bad_escape, 3},
        {"\\x4g", compile_fault::bad_escape, 0},
        {"\\07", compile_fault::bad_escape, 0},
        {"*a", compile_fault::bad_repeat, 0},
        {"a**", compile_fault::bad_repeat, 2},
        {"a{3,2}", compile_fault::bad_repeat, 1},
        {"(?=a)", compile_fault::unsupported, 1},
        {"a++", compile_fault::unsupported, 2},
        {"a{1001}", compile_fault::too_large, 1},
        {"a{99999999999999999999}", compile_fault::too_large, 1},
        {"(?:a{1000}){1000}", compile_fault::too_large, 17},
        {"(?:(?:(?:(?:){1000}){1000}){1000}){1000}", compile_fault::too_large, 40},  // copies of nothing
        {std::string(60, '(') + std::string(60, ')'), compile_fault::too_large, 51},
        {std::string(5000, 'a'), compile_fault::too_large, 4096},
    };
    for (const auto& row : rows) {
        compile_error error;
        EXPECT_FALSE(pattern::compile(row.expression, error)) << row.expression;
        EXPECT_EQ(error.fault, row.fault) << row.expression;
        EXPECT_EQ(error.position, row.position) << row.expression;
    }
}

TEST(Pattern, EndsWithinItsBoundOnPatternsThatExplodeElsewhere) {
    for (const char* expression : {"(a*)*b", "(a|a)*b", "(a|aa)+$", "((a*)*)*b", "(.*)(.*)(.*)(.*)[^ac]",
                                   "(?:a?){40}a{40}b", "(((a?)*)?)*?b", "(a{0,9}){0,9}b"}) {
        compile_error error;
        const auto compiled = pattern::compile(expression, error);
        ASSERT_TRUE(compiled) << expression;
        match found;
        const std::string text = std::string(3000, 'a') + "c";
        EXPECT_EQ(compiled->search(text, found), search_result::none) << expression;
        EXPECT_LE(found.steps, compiled->state_bound(text.size())) << expression;
    }
    compile_error error;
    match found;
    const auto compiled = pattern::compile("a{1000}b", error);
    EXPECT_EQ(compiled->search(std::string(0x10000, 'a'), found), search_result::too_large);
    EXPECT_EQ(pattern::compile("a", error)->search(std::string(0x100001, 'b'), found),
              search_result::too_large);
}

// Random patterns in the part of the syntax on which both libraries agree: no loop over something that may
// be empty, and no captures inside loops, which the other one resets.
class random_pattern {
public:
    explicit random_pattern(std::uint32_t seed) : m_random(seed) {}

    std::string choice(int depth, bool may_capture) {
        std::string text = sequence(depth, may_capture);
        while (below(4) == 0) {
            text += "|" + sequence(depth, may_capture);
        }
        return text;
    }
    std::string text() {
        std::string letters;
        for (unsigned left = below(12); left != 0; --left) {
            letters += "abc-1 "[below(6)];
        }
        return letters;
    }

private:
    unsigned below(unsigned limit) { return static_cast<unsigned>(m_random()) % limit; }

    std::string sequence(int depth, bool may_capture) {
        std::string text;
        for (unsigned left = 1 + below(3); left != 0; --left) {
            text += item(depth, may_capture);
        }
        return text;
    }
    std::string atom() {
        static const char* const k_atoms[] = {"a",   "b",   "c",   "[ab]",        "[^a]", ".",
                                              "\\w", "\\W", "\\d", "[[:alpha:]]", "\\s",  "[\\w\\-]"};
        return k_atoms[below(12)];
    }
    std::string quantifier() {
        static const char* const k_quantifiers[] = {"*",  "+",  "?",  "{2}",   "{1,2}",  "{0,3}",
                                                    "*?", "+?", "??", "{1,}?", "{1,3}?", "{2,}"};
        return k_quantifiers[below(12)];
    }
    std::string item(int depth, bool may_capture) {
        const unsigned kind = below(10);
        if (kind == 0) {
            static const char* const k_anchors[] = {"^", "$", "\\b", "\\B"};
            return k_anchors[below(4)];
        }
        if (depth == 0 || kind < 5) {
            return atom() + (below(2) == 0 ? quantifier() : "");
        }
        if (kind < 7) {
            return "(?:" + atom() + choice(depth - 1, false) + ")" + quantifier();
        }
        return (may_capture ? "(" : "(?:") + choice(depth - 1, may_capture) + ")";
    }

    std::mt19937 m_random;
};

std::string searched_by_standard(const std::string& expression, const std::string& text) {
    const std::regex compiled(expression);
    std::smatch found;
    if (!std::regex_search(text, found, compiled)) {
        return "none";
    }
    std::string groups;
    for (const auto& group : found) {
        groups += group.matched ? "<" + group.str() + ">" : "-";
    }
    return groups;
}

TEST(Pattern, AgreesWithTheStandardLibraryOnRandomPatterns) {
    for (std::uint32_t seed = 0; seed < 4000; ++seed) {
        random_pattern random(seed);
        const std::string expression = random.choice(2, true);
        const std::string text = random.text();
        ASSERT_EQ(searched(expression, text), searched_by_standard(expression, text))
            << "seed " << seed << ": " << expression << "  in  " << text;
    }
}

}  // namespace
