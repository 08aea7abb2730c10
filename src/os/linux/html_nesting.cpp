#include "html_nesting.h"

#include "html_quirks.h"
#include "html_tags.h"

#include <algorithm>
#include <cstring>
#include <iterator>

namespace kro::tessel::os {
namespace {

// Each end tag of an inline element that hides may have hundreds of blocks go on behind it, in as many bytes
// of output for each of its own: beyond so many of a document they end with it.
constexpr std::size_t k_most_reopened = std::size_t{64} * 1024;

// FNV-1a over the lower-case name.
std::uint32_t hash_of(std::string_view name) {
    std::uint32_t hash = 2166136261U;
    for (const char character : name) {
        const bool is_upper = character >= 'A' && character <= 'Z';
        hash = (hash ^ static_cast<unsigned char>(is_upper ? character | 0x20 : character)) * 16777619U;
    }
    return hash;
}

// With what is hidden by its kind marked so, and newer elements, which the tag table doesn't know, as an
// older one with the same rules.
html_token known(html_token token) {
    if (token.tag == GUMBO_TAG_UNKNOWN && equals_ignoring_case(token.name, "search")) {
        token.tag = GUMBO_TAG_SECTION;
    } else if (token.tag == GUMBO_TAG_UNKNOWN && equals_ignoring_case(token.name, "dialog")) {
        token.tag = GUMBO_TAG_ASIDE;
        token.marks.hidden = token.marks.hidden || !token.marks.open;
    } else if (token.tag == GUMBO_TAG_IMAGE) {
        token.tag = GUMBO_TAG_IMG;
    } else if (token.tag == GUMBO_TAG_TEMPLATE) {
        token.marks.style_display = html_marks::display::none;
    } else if (token.tag == GUMBO_TAG_AUDIO) {
        token.marks.hidden = token.marks.hidden || !token.marks.controls;
    } else if (token.tag == GUMBO_TAG_OBJECT) {
        token.marks.open = !token.marks.has_data;  // has nothing to show but what is in it
    }
    return token;
}

// The private characters U+10FF00 to U+10FFFF begin so in UTF-8; the third byte is BC to BF.
constexpr std::string_view k_control_begin = "\xF4\x8F";

// A byte that is a control character but white space, or begins one of U+0080 to U+009F.
bool may_be_control(char character) {
    const auto byte = static_cast<unsigned char>(character);
    return (byte < 0x20 && !is_html_space(character)) || byte == 0x7F || byte == 0xC2;
}

}  // namespace

// ---- The open elements

bool html_nesting::find_in_scope(std::initializer_list<GumboTag> wanted, std::uint16_t boundaries,
                                 std::size_t& index) const {
    if (std::none_of(wanted.begin(), wanted.end(), [this](GumboTag tag) { return is_open(tag); })) {
        return false;
    }
    for (index = m_open.size(); index-- != 0;) {
        if (is_one_of(m_open[index].tag, wanted)) {
            return true;
        }
        if (has_trait(m_open[index].tag, boundaries)) {
            return false;
        }
    }
    return false;
}

void html_nesting::open(const element& opened) {
    if (m_open.size() >= k_max_html_depth) {
        pop();
    }
    m_open.push_back(opened);
    ++m_counts[opened.tag];
    if (opened.written != nullptr) {
        write_start(opened, false);
    }
}

void html_nesting::push(const html_token& token, const char* written) {
    element opened;
    opened.tag = token.tag;
    opened.name_hash = token.tag == GUMBO_TAG_UNKNOWN ? hash_of(token.name) : 0;
    opened.written = written;
    opened.marks = token.marks;
    open(opened);
}

void html_nesting::push_implied(GumboTag tag, const char* written) {
    html_token token;
    token.tag = tag;
    push(token, written);
}

void html_nesting::pop() {
    const element closed = m_open.back();
    m_open.pop_back();
    --m_counts[closed.tag];
    if (closed.written != nullptr) {
        m_piece.append("</").append(closed.written).append(">");
        m_left_out = false;
        m_behind_pre = false;
        if (std::strcmp(closed.written, "span") == 0) {
            --m_hiding_inline;
        }
    }
}

void html_nesting::pop_through(std::size_t index) {
    while (m_open.size() > index) {
        pop();
    }
}

void html_nesting::clear_to(std::initializer_list<GumboTag> context) {
    while (!m_open.empty() && !is_one_of(top(), context)) {
        pop();
    }
}

void html_nesting::close_p() {
    std::size_t index = 0;
    if (find_in_scope({GUMBO_TAG_P}, k_scope | k_button_scope, index)) {
        pop_through(index);
    }
}

bool html_nesting::hides_its_text() const {
    return top() == GUMBO_TAG_SVG || top() == GUMBO_TAG_SELECT ||
           (top() == GUMBO_TAG_OPTGROUP && is_open(GUMBO_TAG_SELECT));
}

// ---- Output

void html_nesting::write_start(const element& opened, bool is_continued) {
    m_piece.append("<").append(opened.written);
    if (opened.marks.hides()) {
        m_piece.append({' ', k_mark_hidden});
    }
    if (is_one_of(opened.tag, {GUMBO_TAG_DETAILS, GUMBO_TAG_OBJECT}) && opened.marks.open) {
        m_piece.append({' ', k_mark_open});
    }
    if (is_continued) {
        m_piece.append({' ', k_mark_continued});
    }
    if (opened.marks.shows != visibility::inherited) {
        m_piece.append({' ', k_mark_visible, '=', opened.marks.shows == visibility::visible ? '1' : '0'});
    }
    m_piece.append(">");
    m_left_out = false;
    m_behind_pre = !is_continued && (opened.tag == GUMBO_TAG_PRE || opened.tag == GUMBO_TAG_LISTING);
    if (is_continued && (opened.tag == GUMBO_TAG_PRE || opened.tag == GUMBO_TAG_LISTING)) {
        m_piece.append("<!---->");  // a line end that isn't the first of its text stays
    }
    m_has_content = true;
}

void html_nesting::write_replaced(const char* name) {
    m_piece.append("<").append(name).append(">");
    m_left_out = false;
    m_behind_pre = false;
    m_has_content = true;
}

bool html_nesting::ends_in_reference() const {
    constexpr std::size_t k_longest_name = 40;
    const std::size_t size = m_piece.size();
    for (std::size_t back = 1; back <= std::min(size, k_longest_name); ++back) {
        const char character = m_piece[size - back];
        if (character == '&') {
            return true;
        }
        const char letter = static_cast<char>(character | 0x20);
        if (!(letter >= 'a' && letter <= 'z') && !(character >= '0' && character <= '9') &&
            character != '#') {
            return false;
        }
    }
    return false;
}

// Texts that were apart must not join to a character reference, and a line end that wasn't right behind a pre
// must not come there.
void html_nesting::keep_apart() {
    if (m_left_out && (m_behind_pre || ends_in_reference())) {
        m_piece.append("<!---->");
    }
    m_left_out = false;
    m_behind_pre = false;
}

void html_nesting::text(std::string_view content) {
    if (hides_its_text()) {
        m_left_out = true;
        return;
    }
    if (!m_has_content) {
        m_has_content = !std::all_of(content.begin(), content.end(), is_html_space);
    }
    keep_apart();
    if (content == "<") {
        m_piece.append("&lt;");
        return;
    }
    while (!content.empty()) {
        const auto* const odd = std::find_if(content.begin(), content.end(), may_be_control);
        const auto plain = static_cast<std::size_t>(odd - content.begin());
        m_piece.append(content.substr(0, plain));
        content.remove_prefix(plain);
        content.remove_prefix(write_control(content));
    }
}

// gumbo makes U+FFFD of control characters, so they go by as private ones. A zero vanishes.
// Returns: the bytes of `content` that it wrote or left out.
std::size_t html_nesting::write_control(std::string_view content) {
    if (content.empty()) {
        return 0;
    }
    const auto first = static_cast<unsigned char>(content[0]);
    const bool is_c1 = first == 0xC2 && content.size() > 1 && static_cast<unsigned char>(content[1]) < 0xA0;
    if (first == 0xC2 && !is_c1) {
        m_piece += content[0];
        return 1;
    }
    if (first != 0) {
        const unsigned control = is_c1 ? static_cast<unsigned char>(content[1]) : first;
        m_piece.append(k_control_begin);
        m_piece += static_cast<char>(0xBC + (control >> 6U));
        m_piece += static_cast<char>(0x80 + (control & 63U));
        m_has_controls = true;
    }
    return is_c1 ? 2 : 1;
}

// The control that stands at a place in the guise of U+10FFxx; 0 for anything else.
unsigned html_nesting::control_at(std::string_view text) {
    const bool is_private = text.substr(0, k_control_begin.size()) == k_control_begin &&
                            static_cast<unsigned char>(text[2]) >= 0xBC;
    if (!is_private) {
        return 0;
    }
    const unsigned control =
        (static_cast<unsigned char>(text[2]) - 0xBCU) << 6U | (static_cast<unsigned char>(text[3]) & 63U);
    const bool is_c0 = control < 0x20 && !is_html_space(static_cast<char>(control));
    return is_c0 || (control >= 0x7F && control < 0xA0) ? control : 0;
}

void html_nesting::restore_controls(std::string& text) {
    std::size_t to = 0;
    for (std::size_t from = 0; from < text.size(); ++from) {
        const unsigned control = control_at(std::string_view(text).substr(from));
        if (control == 0) {
            text[to++] = text[from];
            continue;
        }
        if (control >= 0x80) {
            text[to++] = static_cast<char>(0xC2);
        }
        text[to++] = static_cast<char>(control);
        from += 3;
    }
    text.resize(to);
}

void html_nesting::start_piece() {
    m_piece.assign("<body>");
    for (const element& opened : m_open) {
        if (opened.written != nullptr) {
            write_start(opened, true);
        }
    }
}

// The tree builder adds the wbr to the innermost open element but among the parts of a table, from where it
// moves elements in front of it, in a select and in an svg. Returns the outermost of these, or the number of
// open elements.
std::size_t html_nesting::first_uncuttable() const {
    for (std::size_t index = 0; index < m_open.size(); ++index) {
        const GumboTag tag = m_open[index].tag;
        const bool is_last = index + 1 == m_open.size();
        if (tag == GUMBO_TAG_SELECT || tag == GUMBO_TAG_SVG ||
            (is_table_context(tag) && (is_last || !is_table_part(m_open[index + 1].tag)))) {
            return index;
        }
    }
    return m_open.size();
}

void html_nesting::cut_when_large() {
    if (m_piece.size() < k_html_piece) {
        return;
    }
    const std::size_t uncuttable = first_uncuttable();
    if (uncuttable != m_open.size()) {
        if (m_piece.size() < 2 * k_html_piece) {
            return;
        }
        pop_through(uncuttable);  // memory comes before the form of a table that large and broken
    }
    m_piece.append("<wbr>");
    m_take(m_piece);
    start_piece();
}

// ---- Start tags

bool html_nesting::run(html_reader& reader) {
    start_piece();
    m_has_content = false;
    for (;;) {
        const html_token token = known(reader.next());
        switch (token.what) {
            case html_token::kind::text:
                text(token.text);
                break;
            case html_token::kind::start:
                if (token.tag == GUMBO_TAG_FRAMESET && !m_has_content) {
                    return false;
                }
                cut_when_large();
                m_left_out = true;
                start(reader, token);
                break;
            case html_token::kind::end:
                cut_when_large();
                m_left_out = true;
                end(token);
                break;
            case html_token::kind::doctype:
                if (!m_has_content) {
                    m_quirks = is_quirky_doctype(token.text);
                }
                m_left_out = true;
                break;
            case html_token::kind::comment:
                m_left_out = true;
                break;
            case html_token::kind::end_of_input:
                m_take(m_piece);
                return true;
        }
    }
}

void html_nesting::start(html_reader& reader, const html_token& token) {
    if (!start_in_svg(token) && !start_in_select(token) && !start_table_part(token) &&
        !start_raw(reader, token)) {
        start_in_body(token);
    }
}

// Of an svg only texts and foreign objects are text; they are blocks. True when the tag has been dealt with.
bool html_nesting::start_in_svg(const html_token& token) {
    if (top() != GUMBO_TAG_SVG) {
        return false;
    }
    if (has_trait(token.tag, k_ends_svg)) {
        while (top() == GUMBO_TAG_SVG) {
            pop();
        }
        return false;
    }
    if (!token.self_closing) {
        if (token.tag == GUMBO_TAG_FOREIGNOBJECT || equals_ignoring_case(token.name, "text")) {
            push(token, "div");
        } else if (token.tag == GUMBO_TAG_SVG) {
            push(token, nullptr);
        }
    }
    return true;
}

bool html_nesting::start_in_select(const html_token& token) {
    if (!is_open(GUMBO_TAG_SELECT)) {
        return false;
    }
    std::size_t index = 0;
    const bool in_select = find_in_scope({GUMBO_TAG_SELECT}, k_scope, index);
    const bool ends_it =
        is_one_of(token.tag, {GUMBO_TAG_SELECT, GUMBO_TAG_INPUT, GUMBO_TAG_TEXTAREA, GUMBO_TAG_KEYGEN,
                              GUMBO_TAG_CAPTION, GUMBO_TAG_TABLE, GUMBO_TAG_TBODY, GUMBO_TAG_TFOOT,
                              GUMBO_TAG_THEAD, GUMBO_TAG_TR, GUMBO_TAG_TD, GUMBO_TAG_TH});
    if (!in_select) {
        return false;
    }
    if (ends_it) {
        pop_through(index);
        return token.tag == GUMBO_TAG_SELECT;
    }
    if (token.tag == GUMBO_TAG_OPTION || token.tag == GUMBO_TAG_OPTGROUP) {
        if (top() == GUMBO_TAG_OPTION) {
            pop();
        }
        if (token.tag == GUMBO_TAG_OPTGROUP && top() == GUMBO_TAG_OPTGROUP) {
            pop();
        }
        push(token, written_name(token.tag));
        return true;
    }
    return !is_one_of(token.tag, {GUMBO_TAG_SCRIPT, GUMBO_TAG_TEMPLATE});
}

// Rows and cells end what stands between them and the table, and bring what must stand there.
bool html_nesting::start_table_part(const html_token& token) {
    const bool is_section = is_one_of(token.tag, {GUMBO_TAG_CAPTION, GUMBO_TAG_COLGROUP, GUMBO_TAG_COL,
                                                  GUMBO_TAG_TBODY, GUMBO_TAG_THEAD, GUMBO_TAG_TFOOT});
    const bool is_cell = token.tag == GUMBO_TAG_TD || token.tag == GUMBO_TAG_TH;
    if (!is_section && !is_cell && token.tag != GUMBO_TAG_TR) {
        return false;
    }
    std::size_t index = 0;
    if (!find_in_scope({GUMBO_TAG_TABLE}, k_table_scope, index)) {
        return true;
    }
    if (is_section) {
        clear_to({GUMBO_TAG_TABLE});
        if (has_trait(token.tag, k_written)) {  // not the columns
            push(token, written_name(token.tag));
        }
        return true;
    }
    if (token.tag == GUMBO_TAG_TR) {
        clear_to({GUMBO_TAG_TABLE, GUMBO_TAG_TBODY, GUMBO_TAG_THEAD, GUMBO_TAG_TFOOT});
    } else {
        clear_to({GUMBO_TAG_TR, GUMBO_TAG_TABLE, GUMBO_TAG_TBODY, GUMBO_TAG_THEAD, GUMBO_TAG_TFOOT});
    }
    if (top() == GUMBO_TAG_TABLE) {
        push_implied(GUMBO_TAG_TBODY, "tbody");
    }
    if (is_cell && top() != GUMBO_TAG_TR) {
        push_implied(GUMBO_TAG_TR, "tr");
    }
    push(token, written_name(token.tag));
    return true;
}

bool html_nesting::start_raw(html_reader& reader, const html_token& token) {
    if (!has_trait(token.tag, k_raw)) {
        return false;
    }
    const std::string_view content =
        token.tag == GUMBO_TAG_PLAINTEXT ? reader.rest() : reader.raw_content(token.name);
    if (has_trait(token.tag, k_replaced)) {
        start_replaced(token);
    } else if (has_trait(token.tag, k_written)) {
        close_p();
        push(token, written_name(token.tag));
        m_piece.append(content);
        if (token.tag == GUMBO_TAG_XMP) {
            pop();
        }
    }
    return true;
}

void html_nesting::start_replaced(const html_token& token) {
    const bool shows_nothing = token.marks.hides() ||
                               (token.tag == GUMBO_TAG_INPUT && token.marks.is_hidden_input) ||
                               (token.tag == GUMBO_TAG_EMBED && !token.marks.has_source);
    if (!shows_nothing) {
        write_replaced("img");
    }
}

void html_nesting::start_svg(const html_token& token) {
    html_token graphic = token;
    graphic.marks.hidden = false;  // an attribute of HTML's elements
    start_replaced(graphic);
    if (!token.self_closing) {
        push(token, nullptr);
    }
}

void html_nesting::start_empty(const html_token& token) {
    if (has_trait(token.tag, k_replaced)) {
        start_replaced(token);
    } else if (has_trait(token.tag, k_written) && !token.marks.hides()) {
        write_replaced(written_name(token.tag));
    }
}

// What must be closed before an element of its kind begins.
void html_nesting::close_before(GumboTag tag) {
    if (has_trait(tag, k_closes_p) || (tag == GUMBO_TAG_TABLE && !m_quirks)) {
        close_p();
    }
    std::size_t index = 0;
    if (ends_current(tag)) {
        pop();
    } else if (tag == GUMBO_TAG_BUTTON && find_in_scope({GUMBO_TAG_BUTTON}, k_scope, index)) {
        pop_through(index);
    } else if (tag == GUMBO_TAG_TABLE && is_table_context(top())) {
        clear_to({GUMBO_TAG_TABLE});
        pop();
    }
}

// Whether the innermost open element ends where one of this kind begins.
bool html_nesting::ends_current(GumboTag tag) const {
    const bool is_ruby_part = is_one_of(tag, {GUMBO_TAG_RB, GUMBO_TAG_RP, GUMBO_TAG_RT, GUMBO_TAG_RTC});
    return (is_heading(tag) && is_heading(top())) || (is_ruby_part && top() == GUMBO_TAG_RP) ||
           ((tag == GUMBO_TAG_OPTION || tag == GUMBO_TAG_OPTGROUP) && top() == GUMBO_TAG_OPTION);
}

void html_nesting::start_list_item(const html_token& token) {
    const bool is_definition = token.tag != GUMBO_TAG_LI;
    for (std::size_t index = m_open.size(); index-- != 0;) {
        const GumboTag tag = m_open[index].tag;
        if (is_definition ? tag == GUMBO_TAG_DD || tag == GUMBO_TAG_DT : tag == GUMBO_TAG_LI) {
            pop_through(index);
            break;
        }
        if (has_trait(tag, k_special | k_scope) &&
            !is_one_of(tag, {GUMBO_TAG_ADDRESS, GUMBO_TAG_DIV, GUMBO_TAG_P})) {
            break;
        }
    }
    close_p();
    push(token, written_name(token.tag));
}

// Only while one that hides is open are the others counted, so that each end tag finds its own.
void html_nesting::start_inline(const html_token& token) {
    const bool hides = token.marks.hides() || token.marks.shows != visibility::inherited;
    if (token.tag == GUMBO_TAG_Q && !token.marks.hides()) {
        write_replaced("img");
        ++m_open_quotes;
    }
    if (hides) {
        ++m_hiding_inline;
        push(token, "span");
    } else if (m_hiding_inline != 0) {
        push(token, nullptr);
    }
}

void html_nesting::start_in_body(const html_token& token) {
    const GumboTag tag = token.tag;
    if (is_one_of(tag, {GUMBO_TAG_HTML, GUMBO_TAG_HEAD, GUMBO_TAG_BODY, GUMBO_TAG_FRAMESET}) ||
        (tag == GUMBO_TAG_FORM && (is_open(GUMBO_TAG_FORM) || is_table_context(top())))) {
        return;
    }
    close_before(tag);
    if (has_trait(tag, k_void | k_replaced)) {
        start_empty(token);
    } else if (is_one_of(tag, {GUMBO_TAG_LI, GUMBO_TAG_DD, GUMBO_TAG_DT})) {
        start_list_item(token);
    } else if (tag == GUMBO_TAG_SVG) {
        start_svg(token);
    } else if (has_trait(tag, k_written | k_special)) {
        push(token, written_name(tag));
    } else {
        start_inline(token);
    }
}

// ---- End tags

void html_nesting::end_in_scope(GumboTag tag) {
    const html_traits boundaries = tag == GUMBO_TAG_P    ? k_scope | k_button_scope
                                   : tag == GUMBO_TAG_LI ? k_scope | k_list_scope
                                                         : k_scope;
    std::size_t index = 0;
    if (find_in_scope({tag}, boundaries, index)) {
        pop_through(index);
    } else if (tag == GUMBO_TAG_P && !is_table_context(top()) && !is_open(GUMBO_TAG_SELECT)) {
        write_replaced("p");
        m_piece.append("</p>");
    }
}

void html_nesting::end_inline(const element& wanted) {
    if (m_counts[wanted.tag] == 0) {
        return;
    }
    const html_traits boundaries = is_formatting(wanted.tag) ? k_scope : k_special | k_scope;
    for (std::size_t index = m_open.size(); index-- != 0;) {
        if (m_open[index].tag == wanted.tag && m_open[index].name_hash == wanted.name_hash) {
            close_around(index);
            return;
        }
        if (has_trait(m_open[index].tag, boundaries)) {
            return;
        }
    }
}

// Closes an inline element; the blocks that are open in it go on behind it.
void html_nesting::close_around(std::size_t index) {
    const auto inner = m_open.begin() + static_cast<std::ptrdiff_t>(index) + 1;
    const auto is_block = [](const element& opened) { return has_trait(opened.tag, k_special); };
    const auto is_written_inline = [&](const element& opened) {
        return !is_block(opened) && opened.written != nullptr;
    };
    if (m_open[index].written == nullptr && std::none_of(inner, m_open.end(), is_written_inline)) {
        forget_inline(index);
        return;
    }
    std::vector<element> blocks;
    std::copy_if(inner, m_open.end(), std::back_inserter(blocks), is_block);
    pop_through(index);
    m_reopened += blocks.size();
    if (m_reopened > k_most_reopened) {
        return;
    }
    for (const element& block : blocks) {
        open(block);
    }
}

// Inline elements that nothing is written of, from this one on: the blocks among them aren't touched.
void html_nesting::forget_inline(std::size_t index) {
    const auto first = m_open.begin() + static_cast<std::ptrdiff_t>(index);
    auto kept = first;
    for (auto at = first; at != m_open.end(); ++at) {
        if (at != first && has_trait(at->tag, k_special)) {
            *kept++ = *at;
        } else {
            --m_counts[at->tag];
        }
    }
    m_open.erase(kept, m_open.end());
}

// What is still open in a form stays open, and the form with it: it has no other effect on the text.
void html_nesting::end_form() {
    std::size_t index = 0;
    if (!find_in_scope({GUMBO_TAG_FORM}, k_scope, index)) {
        return;
    }
    while (has_trait(top(), k_implied_end)) {
        pop();
    }
    if (top() == GUMBO_TAG_FORM) {
        pop();
    }
}

void html_nesting::end(const html_token& token) {
    const GumboTag tag = token.tag;
    std::size_t index = 0;
    while (top() == GUMBO_TAG_SVG && (tag == GUMBO_TAG_P || tag == GUMBO_TAG_BR)) {
        pop();
    }
    if (tag == GUMBO_TAG_BR) {
        if (!hides_its_text()) {
            write_replaced("br");
        }
    } else if (tag == GUMBO_TAG_FORM) {
        end_form();
    } else if (tag == GUMBO_TAG_RUBY && top() == GUMBO_TAG_RP) {
        pop();
    } else if (is_heading(tag)) {
        if (find_in_scope(
                {GUMBO_TAG_H1, GUMBO_TAG_H2, GUMBO_TAG_H3, GUMBO_TAG_H4, GUMBO_TAG_H5, GUMBO_TAG_H6}, k_scope,
                index)) {
            pop_through(index);
        }
    } else if (is_one_of(tag,
                         {GUMBO_TAG_TABLE, GUMBO_TAG_CAPTION, GUMBO_TAG_TBODY, GUMBO_TAG_THEAD,
                          GUMBO_TAG_TFOOT, GUMBO_TAG_TR, GUMBO_TAG_TD, GUMBO_TAG_TH, GUMBO_TAG_TEMPLATE})) {
        if (find_in_scope({tag}, tag == GUMBO_TAG_TEMPLATE ? html_traits{0} : k_table_scope, index)) {
            pop_through(index);
        }
    } else if (is_one_of(tag, {GUMBO_TAG_P, GUMBO_TAG_LI, GUMBO_TAG_DD, GUMBO_TAG_DT, GUMBO_TAG_SELECT,
                               GUMBO_TAG_SVG, GUMBO_TAG_FOREIGNOBJECT}) ||
               has_trait(tag, k_block_end)) {
        end_in_scope(tag);
    } else {
        if (tag == GUMBO_TAG_Q && m_open_quotes != 0) {
            --m_open_quotes;
            write_replaced("img");
        }
        element wanted;
        wanted.tag = tag;
        wanted.name_hash = tag == GUMBO_TAG_UNKNOWN ? hash_of(token.name) : 0;
        end_inline(wanted);
    }
}

}  // namespace kro::tessel::os
