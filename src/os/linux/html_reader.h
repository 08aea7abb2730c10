// HTML markup as tags and text, by the standard's tokenizer (https://html.spec.whatwg.org/#tokenization) as
// far as text needs it: of all attributes only those that show or hide something are kept.
#pragma once

#include <gumbo.h>

#include <string_view>

namespace kro::tessel::os {

enum class visibility { inherited, hidden, visible };

/// What the attributes of a tag say about showing it.
struct html_marks {
    bool hidden = false;           ///< the attribute
    bool open = false;             ///< of details, dialog
    bool controls = false;         ///< of audio
    bool has_source = false;       ///< src
    bool has_data = false;         ///< of object
    bool is_hidden_input = false;  ///< type=hidden
    enum class display { not_said, none, other } style_display = display::not_said;
    visibility shows = visibility::inherited;

    /// Whether the element and all in it isn't displayed; a style is stronger than the attribute.
    bool hides() const {
        return style_display == display::none || (hidden && style_display == display::not_said);
    }
};

struct html_token {
    enum class kind { text, start, end, doctype, comment, end_of_input };
    kind what = kind::end_of_input;
    std::string_view text;  ///< of a text, raw, or of a whole doctype; a "<" that begins no tag comes alone
    std::string_view name;  ///< of a tag, as written
    GumboTag tag = GUMBO_TAG_UNKNOWN;
    bool self_closing = false;
    html_marks marks;
};

class html_reader {
public:
    /// markup: UTF-8; lent until the last token has been used.
    explicit html_reader(std::string_view markup) : m_markup(markup) {}

    html_token next();

    /// After a start tag whose content is text alone: that content, up to the end tag, which is left out.
    std::string_view raw_content(std::string_view name);
    std::string_view rest();

private:
    html_token tag(html_token::kind what);
    html_token declaration();
    html_token up_to(std::string_view end, html_token::kind what);
    bool attribute(html_marks& marks);
    std::string_view attribute_value();
    void skip_space();
    bool at_end() const { return m_at >= m_markup.size(); }
    char current() const { return m_markup[m_at]; }

    std::string_view m_markup;
    std::size_t m_at = 0;
};

bool is_html_space(char character);
bool equals_ignoring_case(std::string_view text, std::string_view lower_case);

}  // namespace kro::tessel::os
