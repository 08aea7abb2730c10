#include "html_reader.h"

#include <algorithm>
#include <cstring>

namespace kro::tessel::os {
namespace {

constexpr char lower(char character) {
    return character >= 'A' && character <= 'Z' ? static_cast<char>(character | 0x20) : character;
}

constexpr bool is_letter(char character) {
    return lower(character) >= 'a' && lower(character) <= 'z';
}

bool ends_tag_name(char character) {
    return is_html_space(character) || character == '/' || character == '>';
}

std::string_view trimmed(std::string_view text) {
    while (!text.empty() && is_html_space(text.front())) {
        text.remove_prefix(1);
    }
    while (!text.empty() && is_html_space(text.back())) {
        text.remove_suffix(1);
    }
    return text;
}

// One "property: value" of a style attribute; "!important" makes no difference to the last one's winning
// here.
void apply_declaration(std::string_view declaration, html_marks& marks) {
    const std::size_t colon = declaration.find(':');
    if (colon == std::string_view::npos) {
        return;
    }
    const std::string_view property = trimmed(declaration.substr(0, colon));
    const std::string_view value = trimmed(declaration.substr(colon + 1, declaration.find('!') - colon - 1));
    if (equals_ignoring_case(property, "display")) {
        marks.style_display =
            equals_ignoring_case(value, "none") ? html_marks::display::none : html_marks::display::other;
    } else if (equals_ignoring_case(property, "visibility")) {
        const bool hides = equals_ignoring_case(value, "hidden") || equals_ignoring_case(value, "collapse");
        marks.shows = hides                                    ? visibility::hidden
                      : equals_ignoring_case(value, "visible") ? visibility::visible
                                                               : visibility::inherited;
    }
}

void apply_style(std::string_view style, html_marks& marks) {
    while (!style.empty()) {
        const std::size_t end = std::min(style.find(';'), style.size());
        apply_declaration(style.substr(0, end), marks);
        style.remove_prefix(std::min(end + 1, style.size()));
    }
}

}  // namespace

bool is_html_space(char character) {
    return character == ' ' || character == '\n' || character == '\t' || character == '\r' ||
           character == '\f';
}

bool equals_ignoring_case(std::string_view text, std::string_view lower_case) {
    return text.size() == lower_case.size() &&
           std::equal(text.begin(), text.end(), lower_case.begin(),
                      [](char one, char other) { return lower(one) == other; });
}

html_token html_reader::next() {
    html_token token;
    if (at_end()) {
        return token;
    }
    if (current() != '<') {
        token.what = html_token::kind::text;
        const std::size_t end = std::min(m_markup.find('<', m_at), m_markup.size());
        token.text = m_markup.substr(m_at, end - m_at);
        m_at = end;
        return token;
    }
    const char second = m_at + 1 < m_markup.size() ? m_markup[m_at + 1] : '\0';
    const char third = m_at + 2 < m_markup.size() ? m_markup[m_at + 2] : '\0';
    if (is_letter(second)) {
        m_at += 1;
        return tag(html_token::kind::start);
    }
    if (second == '/' && is_letter(third)) {
        m_at += 2;
        return tag(html_token::kind::end);
    }
    if (second == '!') {
        return declaration();
    }
    if (second == '?' || (second == '/' && m_at + 2 < m_markup.size())) {
        return up_to(">", html_token::kind::comment);
    }
    token.what = html_token::kind::text;
    token.text = m_markup.substr(m_at++, 1);
    return token;
}

html_token html_reader::declaration() {
    if (m_markup.compare(m_at, 4, "<!--") != 0) {
        const bool is_doctype = equals_ignoring_case(m_markup.substr(m_at + 2, 7), "doctype");
        return up_to(">", is_doctype ? html_token::kind::doctype : html_token::kind::comment);
    }
    m_at += 4;
    for (const std::string_view at_once : {">", "->"}) {
        if (m_markup.compare(m_at, at_once.size(), at_once) == 0) {
            return up_to(">", html_token::kind::comment);
        }
    }
    for (std::size_t dashes = m_markup.find("--", m_at); dashes != std::string_view::npos;
         dashes = m_markup.find("--", dashes + 1)) {
        m_at = dashes;
        if (m_markup.compare(dashes, 3, "-->") == 0 || m_markup.compare(dashes, 4, "--!>") == 0) {
            return up_to(">", html_token::kind::comment);
        }
    }
    m_at = m_markup.size();
    return up_to(">", html_token::kind::comment);
}

html_token html_reader::up_to(std::string_view end, html_token::kind what) {
    const std::size_t found = m_markup.find(end, m_at);
    const std::size_t behind = found == std::string_view::npos ? m_markup.size() : found + end.size();
    html_token token;
    token.what = what;
    token.text = m_markup.substr(m_at, behind - m_at);
    m_at = behind;
    return token;
}

// A tag that the text ends in is none.
html_token html_reader::tag(html_token::kind what) {
    const std::size_t begin = m_at;
    while (!at_end() && !ends_tag_name(current())) {
        ++m_at;
    }
    html_token token;
    token.name = m_markup.substr(begin, m_at - begin);
    token.tag = gumbo_tagn_enum(token.name.data(), static_cast<unsigned>(token.name.size()));
    while (attribute(token.marks)) {
    }
    if (!at_end()) {
        token.what = what;
        token.self_closing = m_markup[m_at - 1] == '/';
        ++m_at;
    }
    return token;
}

void html_reader::skip_space() {
    while (!at_end() && is_html_space(current())) {
        ++m_at;
    }
}

// Reads one attribute; false at the end of the tag. Of two with one name the first counts, but for marks that
// can't be taken back it makes no difference.
bool html_reader::attribute(html_marks& marks) {
    while (!at_end() && (is_html_space(current()) || current() == '/')) {
        ++m_at;
    }
    if (at_end() || current() == '>') {
        return false;
    }
    const std::size_t begin = m_at++;
    while (!at_end() && !ends_tag_name(current()) && current() != '=') {
        ++m_at;
    }
    const std::string_view name = m_markup.substr(begin, m_at - begin);
    const std::string_view value = attribute_value();
    if (name.size() < 3 || name.size() > 8) {
        return true;
    }
    marks.open = marks.open || equals_ignoring_case(name, "open");
    marks.controls = marks.controls || equals_ignoring_case(name, "controls");
    marks.has_source = marks.has_source || equals_ignoring_case(name, "src");
    marks.has_data = marks.has_data || equals_ignoring_case(name, "data");
    if (equals_ignoring_case(name, "hidden")) {
        marks.hidden = true;
    } else if (equals_ignoring_case(name, "style")) {
        apply_style(value, marks);
    } else if (equals_ignoring_case(name, "type")) {
        marks.is_hidden_input = equals_ignoring_case(value, "hidden");
    }
    return true;
}

std::string_view html_reader::attribute_value() {
    const std::size_t behind_name = m_at;
    skip_space();
    if (at_end() || current() != '=') {
        m_at = behind_name;
        return {};
    }
    ++m_at;
    skip_space();
    if (at_end() || current() == '>') {
        return {};
    }
    std::size_t begin = m_at;
    if (current() == '"' || current() == '\'') {
        begin = m_at + 1;
        const std::size_t end = std::min(m_markup.find(current(), begin), m_markup.size());
        m_at = std::min(end + 1, m_markup.size());
        return m_markup.substr(begin, end - begin);
    }
    while (!at_end() && !is_html_space(current()) && current() != '>') {
        ++m_at;
    }
    return m_markup.substr(begin, m_at - begin);
}

std::string_view html_reader::raw_content(std::string_view name) {
    const std::size_t begin = m_at;
    for (;; ++m_at) {
        m_at = std::min(m_markup.find("</", m_at), m_markup.size());
        const std::size_t behind = m_at + 2 + name.size();
        if (behind >= m_markup.size()) {
            m_at = m_markup.size();
            return m_markup.substr(begin);
        }
        const std::string_view written = m_markup.substr(m_at + 2, name.size());
        const bool is_name = std::equal(written.begin(), written.end(), name.begin(),
                                        [](char one, char other) { return lower(one) == lower(other); });
        if (is_name && ends_tag_name(m_markup[behind])) {
            const std::string_view content = m_markup.substr(begin, m_at - begin);
            m_at += 2;
            tag(html_token::kind::end);
            return content;
        }
    }
}

std::string_view html_reader::rest() {
    const std::string_view left = m_markup.substr(m_at);
    m_at = m_markup.size();
    return left;
}

}  // namespace kro::tessel::os
