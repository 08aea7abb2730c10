// A small pattern matcher over bytes, with Perl's syntax and Perl's choice among several matches.
//
// Syntax: literals; "." (any byte but LF); classes with ranges, escapes and [:alnum:]-style names, negated
// by "^"; \w \W \d \D \s \S; \t \n \r \f \v \0 and \xHH; a backslash in front of punctuation; (group),
// (?:group); "|"; the quantifiers * + ? {n} {n,} {n,m}, lazy with a "?" behind; ^ and $ (the ends of the
// text, $ also in front of a final LF), \b and \B. Letters, digits and spaces are ASCII's; there are no
// modes, back references or look-arounds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

namespace kro::tessel::regex {

// Ceilings, so that no pattern and no text can cost more than is sensible.
inline constexpr std::size_t k_max_pattern = 4096;   ///< bytes of a pattern
inline constexpr std::size_t k_max_nesting = 50;     ///< groups within groups: the parser recurses on them
inline constexpr std::size_t k_max_repeat = 1000;    ///< in {n,m}
inline constexpr std::size_t k_max_program = 4096;   ///< instructions, repeats written out
inline constexpr std::size_t k_max_text = 0x100000;  ///< bytes searched
/// Instructions x positions of one search: its worst case, about 0.1 s and 64 MiB.
inline constexpr std::size_t k_max_states = 0x400000;

enum class compile_fault : std::uint8_t {
    none,
    unbalanced_group,
    unbalanced_class,
    bad_class,   ///< a range out of order or an unknown [:name:]
    bad_escape,  ///< a backslash at the end, in front of a letter or digit without a meaning, or a bad \xHH
    bad_repeat,  ///< nothing to repeat, or {n,m} out of order
    unsupported,
    too_large,  ///< one of the ceilings above
};

struct compile_error {
    compile_fault fault = compile_fault::none;
    std::size_t position = 0;  ///< in the pattern, of the byte that can't be
};

enum class search_result : std::uint8_t {
    found,
    none,
    too_large,  ///< the text is longer than the ceilings allow with this pattern; nothing was searched
};

/// What a search found.
struct match {
    /// The whole match, then the capture groups in the order of their opening parentheses; a group that
    /// took no part is unset. Views into the text that was searched.
    std::vector<std::optional<std::string_view>> groups;
    std::uint64_t steps = 0;  ///< instructions that were run, whatever the result
};

struct program;

/// A compiled pattern. Immutable; any number of threads may search with one at once.
class pattern {
public:
    /// Compiles a pattern; empty when it is none, with the reason in `error`.
    static std::optional<pattern> compile(std::string_view text, compile_error& error);

    pattern(pattern&&) noexcept;
    pattern& operator=(pattern&&) noexcept;
    ~pattern();

    /// Finds the leftmost match; of several at that place, the one that Perl's backtracking meets first.
    /// Takes at most state_bound(text.size()) steps.
    search_result search(std::string_view text, match& found) const;

    /// Steps that no search of a text of this length can exceed.
    std::uint64_t state_bound(std::size_t text_bytes) const;

private:
    explicit pattern(std::unique_ptr<const program> code);

    std::unique_ptr<const program> m_program;
};

}  // namespace kro::tessel::regex
