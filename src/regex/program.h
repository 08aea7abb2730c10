// The instructions of a compiled pattern, and the generator that makes them from its tree.
#pragma once

#include "regex/syntax.h"

#include <cstdint>
#include <string>
#include <vector>

namespace kro::tessel::regex {

enum class opcode : std::uint8_t {
    byte,   // the byte `first`
    set,    // a byte of the set `first`
    split,  // goes on at `first`, and when that leads nowhere at `second`
    jump,   // goes on at `first`
    save,   // puts the position into slot `first`
    text_begin,
    text_end,
    word_edge,
    no_word_edge,
    open_round,   // a round of the loop of level `first` begins
    close_round,  // the round ends: an empty one leaves the loop, to `second`
    found,
};

struct instruction {
    opcode op;
    std::uint32_t first;
    std::uint32_t second;
};

/// A program starts at instruction 0 and ends with `found`, the only one of its kind.
struct program {
    std::vector<instruction> code;
    std::vector<byte_set> sets;
    std::string prefix;        // bytes that every match begins with
    std::uint32_t groups = 0;  // capture groups, the whole match not counted
    std::uint32_t levels = 0;  // deepest nesting of loops whose rounds may be empty
};

/// Returns false when the program would exceed k_max_program.
bool generate(const syntax& tree, program& out);

}  // namespace kro::tessel::regex
