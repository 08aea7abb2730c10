#include "regex/syntax.h"

#include <algorithm>
#include <cstddef>
#include <optional>
#include <utility>

namespace kro::tessel::regex {
namespace {

byte_set range(unsigned first, unsigned last) {
    byte_set bytes;
    for (unsigned byte = first; byte <= last; ++byte) {
        bytes.set(byte);
    }
    return bytes;
}

byte_set bytes_of(std::string_view text) {
    byte_set bytes;
    for (const char byte : text) {
        bytes.set(static_cast<unsigned char>(byte));
    }
    return bytes;
}

byte_set alphabetic() {
    return range('A', 'Z') | range('a', 'z');
}

std::optional<byte_set> named_bytes(std::string_view name) {
    const byte_set digits = range('0', '9');
    const struct {
        std::string_view name;
        byte_set bytes;
    } rows[] = {
        {"alnum", alphabetic() | digits},
        {"alpha", alphabetic()},
        {"ascii", range(0, 127)},
        {"blank", bytes_of(" \t")},
        {"cntrl", range(0, 31) | range(127, 127)},
        {"digit", digits},
        {"graph", range(33, 126)},
        {"lower", range('a', 'z')},
        {"print", range(32, 126)},
        {"punct", range(33, 126) & ~(alphabetic() | digits)},
        {"space", bytes_of(" \t\n\v\f\r")},
        {"upper", range('A', 'Z')},
        {"xdigit", digits | range('A', 'F') | range('a', 'f')},
    };
    for (const auto& row : rows) {
        if (row.name == name) {
            return row.bytes;
        }
    }
    return std::nullopt;
}

// The sets of \w \W \d \D \s \S.
std::optional<byte_set> shorthand(char letter) {
    switch (letter) {
        case 'w':
            return word_bytes();
        case 'W':
            return ~word_bytes();
        case 'd':
            return named_bytes("digit");
        case 'D':
            return ~*named_bytes("digit");
        case 's':
            return named_bytes("space");
        case 'S':
            return ~*named_bytes("space");
        default:
            return std::nullopt;
    }
}

std::optional<unsigned> hex_value(char digit) {
    if (digit >= '0' && digit <= '9') {
        return static_cast<unsigned>(digit - '0');
    }
    const char lower = static_cast<char>(digit | 0x20);
    if (lower >= 'a' && lower <= 'f') {
        return static_cast<unsigned>(lower - 'a') + 10U;
    }
    return std::nullopt;
}

bool is_digit(char byte) {
    return byte >= '0' && byte <= '9';
}

class parser {
public:
    parser(std::string_view text, compile_error& error) : m_text(text), m_error(error) {}

    bool run(syntax& tree) {
        if (m_text.size() > k_max_pattern) {
            return fail(compile_fault::too_large, k_max_pattern);
        }
        if (!choice(tree.root, 0)) {
            return false;
        }
        if (!at_end()) {
            return fail(compile_fault::unbalanced_group);
        }
        tree.groups = m_groups;
        return true;
    }

private:
    bool at_end() const { return m_position == m_text.size(); }
    bool next_is(char byte) const { return !at_end() && m_text[m_position] == byte; }
    bool take(char byte) {
        if (!next_is(byte)) {
            return false;
        }
        ++m_position;
        return true;
    }
    bool take(std::string_view bytes) {
        if (m_text.substr(m_position, bytes.size()) != bytes) {
            return false;
        }
        m_position += bytes.size();
        return true;
    }
    bool fail(compile_fault fault, std::size_t position) {
        m_error = {fault, position};
        return false;
    }
    bool fail(compile_fault fault) { return fail(fault, m_position); }

    bool choice(node& out, std::size_t depth);
    bool sequence(node& out, std::size_t depth);
    bool item(node& out, std::size_t depth);
    bool group(node& out, std::size_t depth);
    bool quantifier(node& out);
    bool braces(std::uint32_t& least, std::uint32_t& most, bool& present);
    bool number(std::uint32_t& value);
    bool escape(node& out);
    bool escaped_byte(unsigned& byte);
    bool char_class(node& out);
    bool class_members(byte_set& bytes);
    bool class_member(byte_set& bytes, std::optional<unsigned>& single);
    bool class_name(byte_set& bytes);

    const std::string_view m_text;
    compile_error& m_error;
    std::size_t m_position = 0;
    std::uint32_t m_groups = 0;
};

bool parser::choice(node& out, std::size_t depth) {
    if (depth > k_max_nesting) {
        return fail(compile_fault::too_large);
    }
    std::vector<node> branches;
    do {
        if (!sequence(branches.emplace_back(), depth)) {
            return false;
        }
    } while (take('|'));
    if (branches.size() == 1) {
        out = std::move(branches.front());
        return true;
    }
    out.kind = node_kind::choice;
    out.nullable =
        std::any_of(branches.begin(), branches.end(), [](const node& one) { return one.nullable; });
    out.children = std::move(branches);
    return true;
}

bool parser::sequence(node& out, std::size_t depth) {
    out.kind = node_kind::sequence;
    out.nullable = true;
    while (!at_end() && !next_is('|') && !next_is(')')) {
        node one;
        if (!item(one, depth) || !quantifier(one)) {
            return false;
        }
        out.nullable = out.nullable && one.nullable;
        out.children.push_back(std::move(one));
    }
    return true;
}

bool parser::item(node& out, std::size_t depth) {
    const std::size_t start = m_position;
    const char byte = m_text[m_position++];
    switch (byte) {
        case '(':
            return group(out, depth);
        case '[':
            return char_class(out);
        case '\\':
            return escape(out);
        case '*':
        case '+':
        case '?':
            return fail(compile_fault::bad_repeat, start);
        case '^':
            out.kind = node_kind::text_begin;
            out.nullable = true;
            return true;
        case '$':
            out.kind = node_kind::text_end;
            out.nullable = true;
            return true;
        case '.':
            out.bytes = ~bytes_of("\n");
            break;
        default:
            out.bytes.set(static_cast<unsigned char>(byte));
            break;
    }
    out.kind = node_kind::set;
    return true;
}

bool parser::group(node& out, std::size_t depth) {
    const std::size_t start = m_position - 1;
    const bool captures = !take("?:");
    if (captures) {
        if (next_is('?')) {
            return fail(compile_fault::unsupported);
        }
        out.kind = node_kind::group;
        out.number = ++m_groups;
    }
    node inner;
    if (!choice(inner, depth + 1)) {
        return false;
    }
    if (!take(')')) {
        return fail(compile_fault::unbalanced_group, start);
    }
    if (captures) {
        out.nullable = inner.nullable;
        out.children.push_back(std::move(inner));
    } else {
        out = std::move(inner);
    }
    return true;
}

// Puts `out` under a repeat when a quantifier follows.
bool parser::quantifier(node& out) {
    const std::size_t start = m_position;
    std::uint32_t least = 0;
    std::uint32_t most = k_no_limit;
    if (take('+')) {
        least = 1;
    } else if (take('?')) {
        most = 1;
    } else if (!take('*')) {
        bool present = false;
        if (!braces(least, most, present)) {
            return false;
        }
        if (!present) {
            return true;
        }
    }
    if (least > most) {
        return fail(compile_fault::bad_repeat, start);
    }
    node repeat;
    repeat.kind = node_kind::repeat;
    repeat.greedy = !take('?');
    repeat.least = least;
    repeat.most = most;
    repeat.nullable = least == 0 || out.nullable;
    repeat.children.push_back(std::move(out));
    out = std::move(repeat);
    if (next_is('+')) {
        return fail(compile_fault::unsupported);  // possessive
    }
    return true;
}

// "{n}", "{n,}" or "{n,m}"; a brace that begins none of these is a literal.
bool parser::braces(std::uint32_t& least, std::uint32_t& most, bool& present) {
    const std::size_t start = m_position;
    present = take('{') && number(least);
    if (present && take(',')) {
        most = k_no_limit;
        if (!next_is('}')) {
            present = number(most);
        }
    } else {
        most = least;
    }
    present = present && take('}');
    if (!present) {
        m_position = start;
        return true;
    }
    if (least > k_max_repeat || (most != k_no_limit && most > k_max_repeat)) {
        return fail(compile_fault::too_large, start);
    }
    return true;
}

bool parser::number(std::uint32_t& value) {
    const std::size_t start = m_position;
    value = 0;
    while (!at_end() && is_digit(m_text[m_position])) {
        const auto digit = static_cast<std::uint32_t>(m_text[m_position++] - '0');
        value = std::min<std::uint32_t>(value * 10 + digit, k_max_repeat + 1);
    }
    return m_position != start;
}

bool parser::escape(node& out) {
    out.kind = node_kind::set;
    if (const auto bytes = at_end() ? std::nullopt : shorthand(m_text[m_position])) {
        ++m_position;
        out.bytes = *bytes;
        return true;
    }
    if (next_is('b') || next_is('B')) {
        out.kind = next_is('b') ? node_kind::word_edge : node_kind::no_word_edge;
        out.nullable = true;
        ++m_position;
        return true;
    }
    unsigned byte = 0;
    if (!escaped_byte(byte)) {
        return false;
    }
    out.bytes.set(byte);
    return true;
}

// What stands behind a backslash, when it is one byte.
bool parser::escaped_byte(unsigned& byte) {
    const std::size_t start = m_position - 1;
    if (at_end()) {
        return fail(compile_fault::bad_escape, start);
    }
    const char letter = m_text[m_position++];
    constexpr std::string_view k_letters = "tnrfv";
    if (const std::size_t at = k_letters.find(letter); at != std::string_view::npos) {
        byte = static_cast<unsigned char>("\t\n\r\f\v"[at]);
        return true;
    }
    if (letter == 'x') {
        const auto high = at_end() ? std::nullopt : hex_value(m_text[m_position]);
        const auto low = m_text.size() - m_position < 2 ? std::nullopt : hex_value(m_text[m_position + 1]);
        if (!high || !low) {
            return fail(compile_fault::bad_escape, start);
        }
        byte = *high * 16 + *low;
        m_position += 2;
        return true;
    }
    byte = static_cast<unsigned char>(letter);
    if (letter == '0' && (at_end() || !is_digit(m_text[m_position]))) {
        byte = 0;
        return true;
    }
    const bool has_no_meaning = word_bytes().test(byte) && letter != '_';
    return !has_no_meaning || fail(compile_fault::bad_escape, start);
}

bool parser::char_class(node& out) {
    out.kind = node_kind::set;
    const std::size_t start = m_position - 1;
    const bool negated = take('^');
    if (!class_members(out.bytes)) {
        return false;
    }
    if (!take(']')) {
        return fail(compile_fault::unbalanced_class, start);
    }
    if (negated) {
        out.bytes.flip();
    }
    return true;
}

bool parser::class_members(byte_set& bytes) {
    // In first place a closing bracket is a member.
    for (bool is_first = true; !at_end() && (is_first || !next_is(']')); is_first = false) {
        const std::size_t start = m_position;
        std::optional<unsigned> first;
        if (!class_member(bytes, first)) {
            return false;
        }
        const bool is_range =
            first && next_is('-') && m_position + 1 < m_text.size() && m_text[m_position + 1] != ']';
        if (!is_range) {
            continue;
        }
        ++m_position;
        std::optional<unsigned> last;
        if (!class_member(bytes, last)) {
            return false;
        }
        if (!last) {  // "a-\w": the hyphen stands for itself
            bytes.set('-');
        } else if (*last < *first) {
            return fail(compile_fault::bad_class, start);
        } else {
            bytes |= range(*first, *last);
        }
    }
    return true;
}

// One member, added to `bytes`; `single` is set when it is one byte, which may begin or end a range.
bool parser::class_member(byte_set& bytes, std::optional<unsigned>& single) {
    if (next_is('[') && m_text.substr(m_position, 2) == "[:") {
        return class_name(bytes);
    }
    unsigned byte = static_cast<unsigned char>(m_text[m_position++]);
    if (byte == '\\') {
        if (const auto set = at_end() ? std::nullopt : shorthand(m_text[m_position])) {
            ++m_position;
            bytes |= *set;
            return true;
        }
        if (take('b')) {  // only outside of a class it is the edge of a word
            byte = '\b';
        } else if (!escaped_byte(byte)) {
            return false;
        }
    }
    bytes.set(byte);
    single = byte;
    return true;
}

// "[:name:]" or "[:^name:]".
bool parser::class_name(byte_set& bytes) {
    const std::size_t start = m_position;
    const std::size_t end = m_text.find(":]", start + 2);
    if (end == std::string_view::npos) {
        return fail(compile_fault::bad_class, start);
    }
    std::string_view name = m_text.substr(start + 2, end - start - 2);
    const bool negated = !name.empty() && name.front() == '^';
    if (negated) {
        name.remove_prefix(1);
    }
    const auto named = named_bytes(name);
    if (!named) {
        return fail(compile_fault::bad_class, start);
    }
    bytes |= negated ? ~*named : *named;
    m_position = end + 2;
    return true;
}

}  // namespace

bool parse(std::string_view text, syntax& tree, compile_error& error) {
    return parser(text, error).run(tree);
}

const byte_set& word_bytes() {
    static const byte_set bytes = alphabetic() | range('0', '9') | bytes_of("_");
    return bytes;
}

}  // namespace kro::tessel::regex
