#include "os/linux/soap_answer_screen.h"

#include "os/linux/inet_text.h"
#include "os/linux/soap_text.h"
#include "os/soap_toolkit.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <iterator>
#include <utility>

namespace kro::tessel::os {
namespace {

[[noreturn]] void refuse() {
    throw soap_error{k_soap_failure};
}

bool begins_with(std::string_view text, std::string_view beginning) noexcept {
    return text.substr(0, beginning.size()) == beginning;
}

std::uint16_t unit_at(std::string_view bytes, std::size_t at, bool big_endian) noexcept {
    const auto first = static_cast<unsigned char>(bytes[at]);
    const auto second = static_cast<unsigned char>(bytes[at + 1]);
    return static_cast<std::uint16_t>(big_endian ? first << 8U | second : second << 8U | first);
}

std::string utf8_of_utf16(std::string_view bytes, bool big_endian) {
    if (bytes.size() % 2 != 0) {
        refuse();
    }
    wide_string units(bytes.size() / 2, 0);
    for (std::size_t i = 0; i < units.size(); ++i) {
        units[i] = static_cast<wchar>(unit_at(bytes, 2 * i, big_endian));
    }
    std::string utf8;
    try {
        append_as_markup(utf8, units);
    } catch (const soap_error&) {  // no XML, whatever is around it
        refuse();
    }
    return utf8;
}

// Whether the bytes have been turned from UTF-16 into UTF-8.
bool take_utf16(std::string& bytes) {
    using namespace std::string_view_literals;
    const bool marked_big = begins_with(bytes, "\xFE\xFF");
    const bool marked_little = begins_with(bytes, "\xFF\xFE") && !begins_with(bytes, "\xFF\xFE\0\0"sv);
    const bool big = marked_big || begins_with(bytes, "\0<\0"sv);
    if (!big && !marked_little && !(begins_with(bytes, "<\0"sv) && !begins_with(bytes, "<\0\0\0"sv))) {
        return false;
    }
    const std::string_view text = bytes;
    bytes = utf8_of_utf16(text.substr(marked_big || marked_little ? 2 : 0), big);
    return true;
}

// The encoding that the document's own declaration names; empty when there is none.
std::string declared_encoding(std::string_view text) {
    const std::string_view declaration = text.substr(0, text.find("?>"));
    const std::size_t name = declaration.find("encoding");
    if (!begins_with(declaration, "<?xml") || declaration.size() == text.size() ||
        name == std::string_view::npos) {
        return {};
    }
    const std::size_t quote = declaration.find_first_of("\"'", name);
    const std::size_t end =
        quote == std::string_view::npos ? quote : declaration.find(declaration[quote], quote + 1);
    return end == std::string_view::npos ? std::string()
                                         : lowered(declaration.substr(quote + 1, end - quote - 1));
}

// Encodings in which the bytes of "<", ">", "=" and the quotes mean just these, wherever they stand.
bool can_be_screened(std::string_view encoding) noexcept {
    constexpr std::string_view k_families[] = {"utf-8",       "us-ascii", "ascii",     "iso-8859-",
                                               "windows-125", "koi8-",    "shift_jis", "euc-",
                                               "big5",        "gb2312",   "gbk",       "gb18030"};
    return std::any_of(std::begin(k_families), std::end(k_families),
                       [encoding](std::string_view family) { return begins_with(encoding, family); });
}

// Whether the parser, left to itself, finds UTF-8: it goes by the first bytes, then by the declaration.
bool is_plainly_utf8(std::string_view text, std::string_view declared) noexcept {
    return text.size() > 1 && text[0] == '<' && text[1] != 0 && (declared.empty() || declared == "utf-8");
}

// Walks over the markup of a document and counts. Exact as far as the document is well-formed; behind that
// the parser doesn't come.
class markup_walk {
public:
    explicit markup_walk(std::string_view text) noexcept : m_text(text) {}

    void run() {
        for (m_at = m_text.find('<'); m_at != std::string_view::npos; m_at = m_text.find('<', m_at)) {
            switch (m_at + 1 < m_text.size() ? m_text[m_at + 1] : '\0') {
                case '/':
                    leave();
                    skip_past(">", 2);
                    break;
                case '?':
                    count_node();
                    skip_past("?>", 2);
                    break;
                case '!':
                    pass_declaration(m_text.substr(m_at));
                    break;
                default:
                    enter();
            }
        }
    }

private:
    void skip_past(std::string_view end, std::size_t from) noexcept {
        const std::size_t found = m_text.find(end, m_at + from);
        m_at = found == std::string_view::npos ? m_text.size() : found + end.size();
    }

    void count_node() {
        if (++m_nodes > k_max_answer_nodes) {
            refuse();
        }
    }

    void pass_declaration(std::string_view rest) {
        count_node();
        if (begins_with(rest, "<!--")) {
            skip_past("-->", 4);
        } else if (begins_with(rest, "<![CDATA[")) {
            skip_past("]]>", 9);
        } else {
            refuse();
        }
    }

    void leave() noexcept {
        if (m_depth != 0) {
            m_open_attributes -= m_attributes[--m_depth];
        }
    }

    void enter() {
        count_node();
        if (m_depth == k_max_answer_depth) {
            refuse();
        }
        const std::size_t attributes = pass_tag();
        m_open_attributes += attributes;
        if (attributes > k_max_answer_attributes || m_open_attributes > k_max_open_attributes) {
            refuse();
        }
        m_attributes[m_depth++] = static_cast<std::uint16_t>(attributes);
        if (m_at >= 2 && m_text[m_at - 1] == '>' && m_text[m_at - 2] == '/') {
            leave();
        }
    }

    // From "<" to behind ">"; how many attributes the tag has.
    std::size_t pass_tag() {
        std::size_t attributes = 0;
        for (; m_at < m_text.size() && m_text[m_at] != '>'; ++m_at) {
            const char c = m_text[m_at];
            if (c == '=') {
                count_node();
                ++attributes;
            } else if (c == '"' || c == '\'') {
                m_at = std::min(m_text.find(c, m_at + 1), m_text.size() - 1);  // the closing quote
            }
        }
        m_at = std::min(m_at + 1, m_text.size());
        return attributes;
    }

    std::string_view m_text;
    std::size_t m_at = 0;
    std::size_t m_nodes = 0;
    std::size_t m_depth = 0;
    std::size_t m_open_attributes = 0;
    std::array<std::uint16_t, k_max_answer_depth> m_attributes{};  // of each open element
};

}  // namespace

screened_answer screen_answer(std::string bytes, std::string_view charset) {
    if (bytes.size() > k_max_answer_bytes) {
        refuse();
    }
    screened_answer answer;
    answer.encoding = "utf-8";
    if (!take_utf16(bytes)) {
        const bool is_marked = begins_with(bytes, "\xEF\xBB\xBF");
        bytes.erase(0, is_marked ? 3 : 0);
        const std::string declared = declared_encoding(bytes);
        if (!is_marked && !(declared.empty() && charset.empty())) {
            answer.encoding = declared.empty() ? lowered(charset) : declared;
        }
        if (!can_be_screened(answer.encoding)) {
            refuse();
        }
        answer.needs_no_telling = answer.encoding == "utf-8" && is_plainly_utf8(bytes, declared);
    }
    markup_walk(bytes).run();
    answer.bytes = std::move(bytes);
    return answer;
}

}  // namespace kro::tessel::os
