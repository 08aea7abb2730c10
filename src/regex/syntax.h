// The tree of a pattern, and the parser that makes it.
#pragma once

#include "regex/pattern.h"

#include <bitset>
#include <cstdint>
#include <string_view>
#include <vector>

namespace kro::tessel::regex {

using byte_set = std::bitset<256>;

inline constexpr std::uint32_t k_no_limit = 0xFFFFFFFFU;

enum class node_kind : std::uint8_t {
    set,         // one byte out of `bytes`
    text_begin,  // ^
    text_end,    // $
    word_edge,
    no_word_edge,
    group,     // captures its child as group `number`
    sequence,  // its children one after another; without any it is the empty pattern
    choice,    // the first of its children that leads to a match
    repeat,    // its child `least` to `most` times
};

struct node {
    node_kind kind = node_kind::sequence;
    bool nullable = false;  // can match without consuming a byte
    bool greedy = true;
    std::uint32_t number = 0;
    std::uint32_t least = 0;
    std::uint32_t most = 0;
    byte_set bytes;
    std::vector<node> children;
};

/// A pattern's tree.
struct syntax {
    node root;
    std::uint32_t groups = 0;  // capture groups, the whole match not counted
};

/// Parses a pattern. Returns false with `error` filled in when it is none.
bool parse(std::string_view text, syntax& tree, compile_error& error);

/// Letters, digits and the underscore.
const byte_set& word_bytes();

}  // namespace kro::tessel::regex
