#include "regex/program.h"

#include <algorithm>
#include <cstddef>

namespace kro::tessel::regex {
namespace {

// Repeats are written out copy by copy. Copies of a node that makes no instructions cost work all the same,
// so visited nodes are counted too.
constexpr std::size_t k_max_visits = 8 * k_max_program;

class generator {
public:
    explicit generator(program& out) : m_out(out) {}

    bool run(const syntax& tree) {
        emit(opcode::save, 0);
        write(tree.root, 0);
        emit(opcode::save, 1);
        emit(opcode::found);
        m_out.groups = tree.groups;
        m_out.prefix = prefix_of(tree.root);
        return !is_full();
    }

private:
    bool is_full() const { return m_out.code.size() > k_max_program || m_visits > k_max_visits; }
    std::uint32_t here() const { return static_cast<std::uint32_t>(m_out.code.size()); }
    std::uint32_t emit(opcode op, std::uint32_t first = 0, std::uint32_t second = 0) {
        m_out.code.push_back({op, first, second});
        return here() - 1;
    }
    void aim_second(const std::vector<std::uint32_t>& jumps) {
        for (const std::uint32_t jump : jumps) {
            m_out.code[jump].second = here();
        }
    }

    void write(const node& one, std::uint32_t level);
    void write_set(const byte_set& bytes);
    void write_choice(const node& one, std::uint32_t level);
    void write_repeat(const node& one, std::uint32_t level);
    static std::string prefix_of(const node& root);

    program& m_out;
    std::size_t m_visits = 0;
};

void generator::write(const node& one, std::uint32_t level) {
    ++m_visits;
    if (is_full()) {
        return;
    }
    switch (one.kind) {
        case node_kind::set:
            write_set(one.bytes);
            break;
        case node_kind::text_begin:
            emit(opcode::text_begin);
            break;
        case node_kind::text_end:
            emit(opcode::text_end);
            break;
        case node_kind::word_edge:
            emit(opcode::word_edge);
            break;
        case node_kind::no_word_edge:
            emit(opcode::no_word_edge);
            break;
        case node_kind::group:
            emit(opcode::save, 2 * one.number);
            write(one.children.front(), level);
            emit(opcode::save, 2 * one.number + 1);
            break;
        case node_kind::sequence:
            for (const node& child : one.children) {
                write(child, level);
            }
            break;
        case node_kind::choice:
            write_choice(one, level);
            break;
        case node_kind::repeat:
            write_repeat(one, level);
            break;
    }
}

void generator::write_set(const byte_set& bytes) {
    if (bytes.count() == 1) {
        std::uint32_t byte = 0;
        while (!bytes.test(byte)) {
            ++byte;
        }
        emit(opcode::byte, byte);
        return;
    }
    const auto known = std::find(m_out.sets.begin(), m_out.sets.end(), bytes);
    emit(opcode::set, static_cast<std::uint32_t>(known - m_out.sets.begin()));
    if (known == m_out.sets.end()) {
        m_out.sets.push_back(bytes);
    }
}

void generator::write_choice(const node& one, std::uint32_t level) {
    std::vector<std::uint32_t> ends;
    for (std::size_t branch = 0; branch < one.children.size(); ++branch) {
        if (branch + 1 == one.children.size()) {
            write(one.children[branch], level);
            break;
        }
        const std::uint32_t fork = emit(opcode::split, here() + 1);
        write(one.children[branch], level);
        ends.push_back(emit(opcode::jump));
        m_out.code[fork].second = here();
    }
    for (const std::uint32_t end : ends) {
        m_out.code[end].first = here();
    }
}

// x{2,4} is written   x  R(x)  split R(x)  split R(x)     with every split and empty round leading to the
// end, x{2,}               x  L: R(x)  split L                 where R(x) is  open_round x close_round  when
// x may x*                  split L: R(x)  split L              match nothing, else x alone. Rounds are told
// apart from the last required one on: only there an empty one leaves the loop.
void generator::write_repeat(const node& one, std::uint32_t level) {
    const node& child = one.children.front();
    const bool tracked = child.nullable && one.most > 1 && one.least != one.most;
    const std::uint32_t inner_level = tracked ? level + 1 : level;
    m_out.levels = std::max(m_out.levels, inner_level);
    std::vector<std::uint32_t> exits;  // their second targets lead to the end; a lazy split is turned below
    std::vector<std::uint32_t> forks;
    const auto fork_to = [&](std::uint32_t body) {
        const std::uint32_t fork = emit(opcode::split, body);
        exits.push_back(fork);
        forks.push_back(fork);
    };
    const auto write_round = [&] {
        if (tracked) {
            emit(opcode::open_round, inner_level);
        }
        write(child, inner_level);
        if (tracked) {
            exits.push_back(emit(opcode::close_round, inner_level));
        }
    };

    for (std::uint32_t copy = 1; copy < one.least && !is_full(); ++copy) {
        write(child, inner_level);
    }
    if (one.most == k_no_limit) {
        if (one.least == 0) {
            fork_to(here() + 1);
        }
        const std::uint32_t loop = here();
        write_round();
        fork_to(loop);
    } else {
        if (one.least > 0) {
            write_round();
        }
        for (std::uint32_t copy = one.least; copy < one.most && !is_full(); ++copy) {
            fork_to(here() + 1);
            write_round();
        }
    }
    aim_second(exits);
    if (!one.greedy) {
        for (const std::uint32_t fork : forks) {
            std::swap(m_out.code[fork].first, m_out.code[fork].second);
        }
    }
}

std::string generator::prefix_of(const node& root) {
    std::string prefix;
    if (root.kind != node_kind::sequence) {
        return prefix;
    }
    for (const node& child : root.children) {
        if (child.kind != node_kind::set || child.bytes.count() != 1) {
            break;
        }
        std::size_t byte = 0;
        while (!child.bytes.test(byte)) {
            ++byte;
        }
        prefix.push_back(static_cast<char>(byte));
    }
    return prefix;
}

}  // namespace

bool generate(const syntax& tree, program& out) {
    return generator(out).run(tree);
}

}  // namespace kro::tessel::regex
