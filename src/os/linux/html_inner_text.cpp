#include "html_inner_text.h"

#include <algorithm>

namespace kro::tessel::os {
namespace {

constexpr bool collapses(char character) {
    return character == ' ' || character == '\n' || character == '\t' || character == '\r';
}

}  // namespace

// The style sheet that browsers bring.
inner_text::display inner_text::display_of(GumboTag tag) {
    switch (tag) {
        case GUMBO_TAG_DATALIST:
        case GUMBO_TAG_RP:
            return display::none;
        case GUMBO_TAG_P:
            return display::paragraph;
        case GUMBO_TAG_TR:
            return display::row;
        case GUMBO_TAG_TD:
        case GUMBO_TAG_TH:
            return display::cell;
        case GUMBO_TAG_BR:
            return display::line_break;
        case GUMBO_TAG_IMG:
        case GUMBO_TAG_OBJECT:
        case GUMBO_TAG_VIDEO:
        case GUMBO_TAG_AUDIO:
        case GUMBO_TAG_CANVAS:
        case GUMBO_TAG_PROGRESS:
        case GUMBO_TAG_METER:
            return display::replaced;
        case GUMBO_TAG_BUTTON:
        case GUMBO_TAG_SELECT:
        case GUMBO_TAG_MARQUEE:
            return display::inline_block;
        case GUMBO_TAG_SPAN:
        case GUMBO_TAG_APPLET:
        case GUMBO_TAG_TBODY:
        case GUMBO_TAG_THEAD:
        case GUMBO_TAG_TFOOT:
            return display::in_line;
        default:  // nothing else that is inline comes here
            return display::block;
    }
}

inner_text::context* inner_text::innermost(GumboTag tag) {
    const auto found =
        std::find_if(m_open.rbegin(), m_open.rend(), [tag](const context& one) { return one.tag == tag; });
    return found == m_open.rend() ? nullptr : &*found;
}

// "If node is not being rendered": closed details show their first summary alone.
bool inner_text::is_closed_away(GumboTag tag) {
    if (m_open.empty() || m_open.back().shows_details) {
        return false;
    }
    const bool is_the_summary = tag == GUMBO_TAG_SUMMARY && !m_open.back().had_summary;
    m_open.back().had_summary = m_open.back().had_summary || is_the_summary;
    return !is_the_summary;
}

bool inner_text::enter(GumboTag tag, const element_marks& marks) {
    context entered;
    entered.tag = tag;
    entered.how = display_of(tag);
    if (entered.how == display::none || marks.hidden || is_closed_away(tag)) {
        return false;
    }
    const bool inherits_visible = m_open.empty() || m_open.back().is_visible;
    entered.is_visible = marks.shows == element_marks::visible::inherited
                             ? inherits_visible
                             : marks.shows == element_marks::visible::yes;
    entered.preserves = (!m_open.empty() && m_open.back().preserves) || tag == GUMBO_TAG_PRE ||
                        tag == GUMBO_TAG_LISTING || tag == GUMBO_TAG_XMP || tag == GUMBO_TAG_PLAINTEXT;
    if (tag == GUMBO_TAG_OBJECT && marks.open) {
        entered.how = display::in_line;
    }
    entered.shows_details = tag != GUMBO_TAG_DETAILS || marks.open;
    if (!entered.is_visible && entered.how != display::replaced) {
        // "If node's computed value of 'visibility' is not 'visible'": it gives neither breaks nor tabs.
        entered.how = display::in_line;
    }
    switch (entered.how) {
        case display::line_break:
            separate('\n');
            return false;
        case display::replaced:
            flush_blank();
            m_at_line_start = false;
            return false;
        case display::inline_block:
            flush_blank();
            m_at_line_start = true;
            break;
        case display::paragraph:
            require_breaks(2);
            break;
        case display::block:
            require_breaks(1);
            break;
        case display::row:
            begin_row();
            break;
        case display::cell:
            begin_cell();
            break;
        default:
            break;
    }
    m_open.push_back(entered);
    return true;
}

void inner_text::leave() {
    if (m_open.empty()) {
        return;
    }
    const display how = m_open.back().how;
    m_open.pop_back();
    if (how == display::inline_block) {
        m_blank_waits = false;
        m_at_line_start = false;
    } else if (how == display::paragraph || how == display::block) {
        require_breaks(how == display::paragraph ? 2 : 1);
    }
}

// "a line feed behind each row but the last of its table": in front of each but the first.
void inner_text::begin_row() {
    context* const table = innermost(GUMBO_TAG_TABLE);
    if (table != nullptr && table->had_row) {
        separate('\n');
    }
    if (table != nullptr) {
        table->had_row = true;
    }
}

// "a tab behind each cell but the last of its row": likewise.
void inner_text::begin_cell() {
    context* const row = innermost(GUMBO_TAG_TR);
    if (row != nullptr && row->had_cell) {
        separate('\t');
    }
    if (row != nullptr) {
        row->had_cell = true;
    }
    m_blank_waits = false;
    m_at_line_start = true;
}

// "required line break count": of a run the largest counts, and none at the very start or end.
void inner_text::require_breaks(int count) {
    m_required_breaks = std::max(m_required_breaks, count);
    m_blank_waits = false;
    m_at_line_start = true;
}

void inner_text::flush_breaks() {
    if (!m_text.empty()) {
        for (; m_required_breaks > 0; --m_required_breaks) {
            m_text += "\r\n";
        }
    }
    m_required_breaks = 0;
}

void inner_text::flush_blank() {
    if (m_blank_waits) {
        flush_breaks();
        m_text += ' ';
        m_blank_waits = false;
    }
}

void inner_text::separate(char separator) {
    flush_breaks();
    if (separator == '\n') {
        m_text += "\r\n";
    } else {
        m_text += separator;
    }
    m_blank_waits = false;
    m_at_line_start = true;
}

void inner_text::text(std::string_view content) {
    if (content.empty() || (!m_open.empty() && !m_open.back().shows_details)) {
        return;
    }
    if (!m_open.empty() && !m_open.back().is_visible) {
        // It takes its place on the line all the same.
        if (!std::all_of(content.begin(), content.end(), collapses)) {
            flush_blank();
            m_at_line_start = false;
        }
        return;
    }
    if (!m_open.empty() && m_open.back().preserves) {
        append_preserved(content);
    } else {
        append_collapsed(content);
    }
}

void inner_text::append_preserved(std::string_view content) {
    flush_blank();
    flush_breaks();
    m_at_line_start = content.back() == '\n';
    for (std::size_t end = 0; !content.empty(); content.remove_prefix(std::min(end + 1, content.size()))) {
        end = std::min(content.find('\n'), content.size());
        m_text.append(content.substr(0, end));
        if (end != content.size()) {
            m_text += "\r\n";
        }
    }
}

// A line end there is no blank: texts without blanks between words are broken so (CSS Text, "segment
// breaks").
bool inner_text::is_beside_zero_width(const char* word, const char* end) const {
    constexpr std::string_view k_zero_width_space = "\xE2\x80\x8B";
    const std::size_t size = k_zero_width_space.size();
    const std::string_view before =
        std::string_view(m_text).substr(m_text.size() - std::min(size, m_text.size()));
    const std::string_view behind(word, std::min(size, static_cast<std::size_t>(end - word)));
    return before == k_zero_width_space || behind == k_zero_width_space;
}

void inner_text::append_collapsed(std::string_view content) {
    const char* from = content.data();
    const char* const end = from + content.size();
    while (from != end) {
        if (collapses(*from)) {
            const char* const word = std::find_if_not(from, end, collapses);
            m_break_waits = (m_blank_waits && m_break_waits) || std::find(from, word, '\n') != word;
            m_blank_waits = !m_at_line_start;
            from = word;
            continue;
        }
        if (m_blank_waits && m_break_waits && is_beside_zero_width(from, end)) {
            m_blank_waits = false;
        }
        flush_blank();
        flush_breaks();
        const char* const word_end = std::find_if(from, end, collapses);
        m_text.append(from, word_end);
        m_at_line_start = false;
        from = word_end;
    }
}

}  // namespace kro::tessel::os
