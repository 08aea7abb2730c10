#include "soap_answer.h"

#include <cstddef>
#include <iterator>
#include <vector>

namespace command {
namespace {

enum class piece_kind { text, start, end, empty, other };

struct piece {
    piece_kind kind = piece_kind::text;
    std::string_view text;
};

bool begins_with(std::string_view text, std::string_view beginning) {
    return text.substr(0, beginning.size()) == beginning;
}

std::size_t behind(std::string_view xml, std::string_view end) {
    const std::size_t at = xml.find(end);
    return at == std::string_view::npos ? xml.size() : at + end.size();
}

// Behind the tag's ">", which isn't one in an attribute's value.
std::size_t behind_tag(std::string_view xml) {
    char quote = 0;
    for (std::size_t at = 0; at < xml.size(); ++at) {
        const char c = xml[at];
        if (quote == 0 && c == '>') {
            return at + 1;
        }
        if (quote == 0 && (c == '"' || c == '\'')) {
            quote = c;
        } else if (c == quote) {
            quote = 0;
        }
    }
    return xml.size();
}

piece first_piece(std::string_view xml) {
    if (xml[0] != '<') {
        return {piece_kind::text, xml.substr(0, xml.find('<'))};
    }
    if (begins_with(xml, "<![CDATA[")) {
        return {piece_kind::text, xml.substr(0, behind(xml, "]]>"))};
    }
    if (begins_with(xml, "<!--")) {
        return {piece_kind::other, xml.substr(0, behind(xml, "-->"))};
    }
    if (begins_with(xml, "<?")) {
        return {piece_kind::other, xml.substr(0, behind(xml, "?>"))};
    }
    const std::string_view tag = xml.substr(0, behind_tag(xml));
    const bool is_empty = tag.size() > 2 && tag[tag.size() - 2] == '/';
    return {begins_with(tag, "</") ? piece_kind::end : is_empty ? piece_kind::empty : piece_kind::start, tag};
}

std::vector<piece> pieces_of(std::string_view xml) {
    std::vector<piece> pieces;
    while (!xml.empty()) {
        const piece next = first_piece(xml);
        xml.remove_prefix(next.text.size());
        const bool is_line_end =
            next.kind == piece_kind::text && next.text.find_first_not_of("\r\n") == std::string_view::npos;
        if (!is_line_end) {
            pieces.push_back(next);
        }
    }
    return pieces;
}

std::string_view local_name(std::string_view tag) {
    tag = tag.substr(1, tag.find_first_of(" \t\r\n/>", 1) - 1);
    const std::size_t colon = tag.find(':');
    return colon == std::string_view::npos ? tag : tag.substr(colon + 1);
}

}  // namespace

std::string indented_xml(std::string_view xml) {
    std::string lines;
    std::size_t depth = 0;
    std::size_t text_depth = 0;  // within an element that has text, counted from it; 0 outside
    const std::vector<piece> pieces = pieces_of(xml);
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        const piece& one = pieces[i];
        const bool closes_at_once =
            i != 0 && one.kind == piece_kind::end && pieces[i - 1].kind == piece_kind::start;
        depth -= one.kind == piece_kind::end ? 1 : 0;
        const bool is_inside_text = text_depth != 0 || one.kind == piece_kind::text;
        if (!lines.empty() && !is_inside_text && !closes_at_once) {
            lines += '\n' + std::string(2 * depth, ' ');
        }
        lines += one.text;
        if (one.kind == piece_kind::text && text_depth == 0) {
            text_depth = 1;
        } else if (text_depth != 0) {
            text_depth += one.kind == piece_kind::start ? 1 : 0;
            text_depth -= one.kind == piece_kind::end ? 1 : 0;
        }
        depth += one.kind == piece_kind::start ? 1 : 0;
    }
    return lines + '\n';
}

bool holds_fault(std::string_view xml) {
    constexpr std::string_view k_path[] = {"Envelope", "Body", "Fault"};
    std::size_t found = 0;
    for (const piece& one : pieces_of(xml)) {
        const bool is_tag = one.kind == piece_kind::start || one.kind == piece_kind::empty;
        if (is_tag && local_name(one.text) == k_path[found] && ++found == std::size(k_path)) {
            return true;
        }
        if (is_tag && found == 2 && local_name(one.text) != k_path[1]) {
            return false;
        }
    }
    return false;
}

}  // namespace command
