// Markup made safe for the tree builder: its time grows with the square of the depth, of the number of
// attributes and of the formatting elements that are open, so that 100 KB of it can take 10 s. What stands
// here is the standard's stack of open elements (https://html.spec.whatwg.org/#parsing-main-inbody): every
// end tag that the standard implies is written out, what doesn't change the text is left out (attributes,
// inline elements that hide nothing, what has no text), and nothing is nested deeper than browsers let it be.
#pragma once

#include "html_reader.h"

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace kro::tessel::os {

/// Elements nested deeper than this become siblings, as in browsers.
inline constexpr std::size_t k_max_html_depth = 512;
/// Markup is handed on in pieces of about this size, which bounds the memory that trees take. Most documents
/// are one piece.
inline constexpr std::size_t k_html_piece = std::size_t{256} << 10U;

/// Attributes in the markup that is handed on, each of one letter and without a value but the last.
inline constexpr char k_mark_hidden = 'h';
inline constexpr char k_mark_open = 'o';
inline constexpr char k_mark_continued = 'c';  ///< the element was open at the end of the piece before
inline constexpr char k_mark_visible = 'v';    ///< v=1 visible, v=0 not

class html_nesting {
public:
    /// Gets each piece, in order. One that isn't the last ends in a wbr; the elements around that are still
    /// open and open the next piece.
    using piece_handler = std::function<void(std::string& piece)>;

    explicit html_nesting(piece_handler take) : m_take(std::move(take)) {}

    /// Reads up to the end.
    /// Returns: false for a document with a frameset in place of its body.
    bool run(html_reader& reader);

    /// Control characters go by in other ones, which have to be taken back in the text.
    bool has_controls() const { return m_has_controls; }
    static void restore_controls(std::string& text);

private:
    struct element {
        GumboTag tag = GUMBO_TAG_UNKNOWN;
        std::uint32_t name_hash = 0;    // tells unknown ones apart
        const char* written = nullptr;  // the name it has in the output; null: isn't there
        html_marks marks;
    };

    void start(html_reader& reader, const html_token& token);
    bool start_in_svg(const html_token& token);
    bool start_in_select(const html_token& token);
    void start_in_body(const html_token& token);
    bool start_table_part(const html_token& token);
    bool start_raw(html_reader& reader, const html_token& token);
    void start_svg(const html_token& token);
    void start_empty(const html_token& token);
    void start_replaced(const html_token& token);
    void start_inline(const html_token& token);
    void start_list_item(const html_token& token);
    void close_before(GumboTag tag);
    bool ends_current(GumboTag tag) const;
    void end(const html_token& token);
    void end_in_scope(GumboTag tag);
    void end_inline(const element& wanted);
    void close_around(std::size_t index);
    void forget_inline(std::size_t index);
    void end_form();
    void text(std::string_view content);

    void open(const element& opened);
    void push(const html_token& token, const char* written);
    void push_implied(GumboTag tag, const char* written);
    void pop();
    void pop_through(std::size_t index);
    void clear_to(std::initializer_list<GumboTag> context);
    void close_p();
    GumboTag top() const { return m_open.empty() ? GUMBO_TAG_BODY : m_open.back().tag; }
    bool is_open(GumboTag tag) const { return m_counts[tag] != 0; }
    bool hides_its_text() const;
    bool find_in_scope(std::initializer_list<GumboTag> wanted, std::uint16_t boundaries,
                       std::size_t& index) const;

    void write_start(const element& opened, bool is_continued);
    void write_replaced(const char* name);
    std::size_t write_control(std::string_view content);
    static unsigned control_at(std::string_view text);
    void keep_apart();
    bool ends_in_reference() const;
    std::size_t first_uncuttable() const;
    void cut_when_large();
    void start_piece();

    piece_handler m_take;
    std::string m_piece;
    std::vector<element> m_open;
    std::uint16_t m_counts[GUMBO_TAG_LAST + 1] = {};
    std::size_t m_hiding_inline = 0;  // open inline elements that hide
    std::size_t m_reopened = 0;       // blocks that went on behind such a one
    // q elements whose end is to come. Browsers write the quotation marks; they are no part of the text, but
    // take a place on the line as a picture does.
    std::size_t m_open_quotes = 0;
    bool m_quirks = true;
    bool m_left_out = false;    // something, since what was written last
    bool m_behind_pre = false;  // a start tag behind which a line end is dropped was written last
    bool m_has_content = false;
    bool m_has_controls = false;
};

}  // namespace kro::tessel::os
