// The inner text of elements by the rules of the HTML standard
// (https://html.spec.whatwg.org/#the-innertext-idl-attribute), for a browser without style sheets. Elements
// are entered and left in the order of the document; the text comes out as it goes.
#pragma once

#include <gumbo.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kro::tessel::os {

/// What of an element's attributes counts.
struct element_marks {
    bool hidden = false;
    bool open = false;
    enum class visible { inherited, yes, no } shows = visible::inherited;
};

class inner_text {
public:
    /// Enters an element. False when nothing in it gives text: it is not to be left then.
    bool enter(GumboTag tag, const element_marks& marks);
    void leave();
    void text(std::string_view content);

    /// The text in UTF-8, with CR LF for each line end.
    std::string take_result() { return std::move(m_text); }

private:
    // How an element is displayed, as far as the rules tell displays apart.
    enum class display { none, in_line, block, paragraph, row, cell, replaced, inline_block, line_break };
    struct context {
        GumboTag tag = GUMBO_TAG_UNKNOWN;
        display how = display::in_line;
        bool preserves = false;  // white space
        bool is_visible = true;
        bool had_row = false;      // of a table
        bool had_cell = false;     // of a row
        bool had_summary = false;  // of details
        bool shows_details = true;
    };

    static display display_of(GumboTag tag);
    context* innermost(GumboTag tag);
    bool is_closed_away(GumboTag tag);
    void begin_row();
    void begin_cell();
    void require_breaks(int count);
    void flush_breaks();
    void flush_blank();
    void separate(char separator);
    void append_preserved(std::string_view content);
    void append_collapsed(std::string_view content);
    bool is_beside_zero_width(const char* word, const char* end) const;

    std::vector<context> m_open;
    std::string m_text;
    int m_required_breaks = 0;
    bool m_at_line_start = true;  // where blanks vanish
    bool m_blank_waits = false;   // for something behind it on its line
    bool m_break_waits = false;   // it is one with a line end in it; only while m_blank_waits
};

}  // namespace kro::tessel::os
