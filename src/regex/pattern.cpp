#include "regex/pattern.h"

#include "regex/program.h"

#include <algorithm>
#include <utility>

namespace kro::tessel::regex {
namespace {

constexpr std::uint32_t k_unset = 0xFFFFFFFFU;

std::uint64_t bound_of(const program& code, std::size_t text_bytes) {
    return std::uint64_t{code.code.size()} * (std::uint64_t{text_bytes} + 1) * (code.levels + 1);
}

// Backtracking that enters no state twice.
//
// A state is (instruction, position, rounds), where `rounds` says how many of the enclosing loops, counted
// from the outermost, have consumed a byte in their current round (an inner round lies within the outer one,
// so the ones that have are always the outermost). What can follow from a state depends on these three
// alone: no instruction reads the captures, and they only ride along with the path. The paths are tried in
// Perl's order, and the first that reaches `found` ends the search. So a state that is met again has been
// left without a match, and would be again: it is dropped, which changes neither the match nor its captures.
// It can't be one that is still being worked on: a way back to the same state would be a loop whose round
// consumed nothing, and close_round leads such a round out of its loop, as Perl does. The same holds from
// one starting position to the next, so the marks are kept for the whole search.
//
// Each state runs one instruction and leaves at most one entry on the stack: states bound work and memory.
class searcher {
public:
    searcher(const program& code, std::string_view text)
        : m_program(code), m_text(text), m_slots(2 * (std::size_t{code.groups} + 1), k_unset) {}

    bool run() {
        for (std::size_t start = 0; start <= m_text.size(); ++start) {
            if (!m_program.prefix.empty()) {
                start = m_text.find(m_program.prefix, start);
                if (start == std::string_view::npos) {
                    return false;
                }
            }
            if (match_from(static_cast<std::uint32_t>(start))) {
                return true;
            }
        }
        return false;
    }

    void report(match& found) const {
        found.groups.clear();
        for (std::size_t slot = 0; slot < m_slots.size(); slot += 2) {
            const std::uint32_t begin = m_slots[slot];
            const std::uint32_t end = m_slots[slot + 1];
            auto& group = found.groups.emplace_back();
            if (begin != k_unset && end != k_unset) {
                group = m_text.substr(begin, end - begin);
            }
        }
    }

    std::uint64_t steps() const { return m_steps; }

private:
    struct state {
        std::uint32_t at;  // instruction
        std::uint32_t rounds;
        std::uint32_t position;  // k_max_text fits
    };
    // Where to go on when a path fails: another state, or a capture to be put back first.
    struct alternative {
        state next;
        bool restores;  // next.at is a slot and next.position its old value
    };

    bool match_from(std::uint32_t start) {
        m_stack.push_back({{0, m_program.levels, start}, false});
        while (!m_stack.empty()) {
            const alternative top = m_stack.back();
            m_stack.pop_back();
            if (top.restores) {
                m_slots[top.next.at] = top.next.position;
            } else if (follow(top.next)) {
                return true;
            }
        }
        return false;
    }

    // Runs a path until it fails (false) or reaches the end of the program.
    bool follow(state now) {
        while (enter(now)) {
            ++m_steps;
            const instruction& one = m_program.code[now.at];
            if (one.op == opcode::found) {
                return true;
            }
            if (!advance(one, now)) {
                return false;
            }
        }
        return false;
    }

    // Marks a state; false when it was entered before.
    bool enter(const state& now) {
        if (m_entered.empty()) {
            m_entered.resize(static_cast<std::size_t>(bound_of(m_program, m_text.size()) / 64 + 1));
        }
        const std::size_t number =
            (std::size_t{now.position} * m_program.code.size() + now.at) * (m_program.levels + 1) +
            now.rounds;
        std::uint64_t& word = m_entered[number / 64];
        const std::uint64_t mark = std::uint64_t{1} << (number % 64);
        const bool is_new = (word & mark) == 0;
        word |= mark;
        return is_new;
    }

    bool advance(const instruction& one, state& now) {
        switch (one.op) {
            case opcode::byte:
                return consume(now, now.position < m_text.size() && byte_at(now.position) == one.first);
            case opcode::set:
                return consume(now, now.position < m_text.size() &&
                                        m_program.sets[one.first].test(byte_at(now.position)));
            case opcode::split:
                m_stack.push_back({{one.second, now.rounds, now.position}, false});
                now.at = one.first;
                return true;
            case opcode::jump:
                now.at = one.first;
                return true;
            case opcode::save:
                m_stack.push_back({{one.first, 0, m_slots[one.first]}, true});
                m_slots[one.first] = now.position;
                break;
            case opcode::open_round:
                now.rounds = std::min(now.rounds, one.first - 1);
                break;
            case opcode::close_round:
                now.at = now.rounds < one.first ? one.second : now.at + 1;
                return true;
            default:
                if (!holds(one.op, now.position)) {
                    return false;
                }
                break;
        }
        ++now.at;
        return true;
    }

    bool consume(state& now, bool matches) const {
        ++now.at;
        ++now.position;
        now.rounds = m_program.levels;
        return matches;
    }

    bool holds(opcode op, std::uint32_t position) const {
        const std::size_t left = m_text.size() - position;
        switch (op) {
            case opcode::text_begin:
                return position == 0;
            case opcode::text_end:
                return left == 0 || (left == 1 && m_text.back() == '\n');
            default: {
                const bool behind = position != 0 && word_bytes().test(byte_at(position - 1));
                const bool ahead = left != 0 && word_bytes().test(byte_at(position));
                return (behind != ahead) == (op == opcode::word_edge);
            }
        }
    }

    std::uint32_t byte_at(std::uint32_t position) const {
        return static_cast<unsigned char>(m_text[position]);
    }

    const program& m_program;
    const std::string_view m_text;
    std::vector<std::uint32_t> m_slots;  // of the current path
    std::vector<alternative> m_stack;
    std::vector<std::uint64_t> m_entered;  // one bit a state, made when the first one is entered
    std::uint64_t m_steps = 0;
};

}  // namespace

std::optional<pattern> pattern::compile(std::string_view text, compile_error& error) {
    error = {};
    syntax tree;
    if (!parse(text, tree, error)) {
        return std::nullopt;
    }
    auto code = std::make_unique<program>();
    if (!generate(tree, *code)) {
        error = {compile_fault::too_large, text.size()};
        return std::nullopt;
    }
    return pattern(std::move(code));
}

pattern::pattern(std::unique_ptr<const program> code) : m_program(std::move(code)) {}
pattern::pattern(pattern&&) noexcept = default;
pattern& pattern::operator=(pattern&&) noexcept = default;
pattern::~pattern() = default;

std::uint64_t pattern::state_bound(std::size_t text_bytes) const {
    return bound_of(*m_program, text_bytes);
}

search_result pattern::search(std::string_view text, match& found) const {
    found.groups.clear();
    found.steps = 0;
    if (text.size() > k_max_text || state_bound(text.size()) > k_max_states) {
        return search_result::too_large;
    }
    searcher one(*m_program, text);
    const bool is_found = one.run();
    found.steps = one.steps();
    if (!is_found) {
        return search_result::none;
    }
    one.report(found);
    return search_result::found;
}

}  // namespace kro::tessel::regex
