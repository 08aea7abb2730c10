// What the standard says of each element: which tags end it or are ended by it, and what of it is text.
#pragma once

#include <gumbo.h>

#include <algorithm>
#include <cstdint>
#include <initializer_list>

namespace kro::tessel::os {

using html_traits = std::uint16_t;
inline constexpr html_traits k_special = 1;   ///< an end tag of an inline element doesn't close across it
inline constexpr html_traits k_closes_p = 2;  ///< its start tag ends an open p
inline constexpr html_traits k_scope = 4;     ///< the boundaries of scopes
inline constexpr html_traits k_button_scope = 8;
inline constexpr html_traits k_list_scope = 16;
inline constexpr html_traits k_table_scope = 32;
inline constexpr html_traits k_written = 64;       ///< counts for the text
inline constexpr html_traits k_void = 128;         ///< has no content
inline constexpr html_traits k_implied_end = 256;  ///< is ended where something around it is
inline constexpr html_traits k_replaced = 512;     ///< shows something else than its content
inline constexpr html_traits k_raw = 1024;         ///< its content is text alone
inline constexpr html_traits k_block_end = 2048;   ///< its end tag ends all that is open inside
inline constexpr html_traits k_ends_svg = 4096;    ///< its start tag ends an svg

/// Whether an element has one of these traits.
bool has_trait(GumboTag tag, html_traits wanted);

inline bool is_one_of(GumboTag tag, std::initializer_list<GumboTag> tags) {
    return std::find(tags.begin(), tags.end(), tag) != tags.end();
}

bool is_heading(GumboTag tag);
/// Where only rows, cells and the like may stand.
bool is_table_context(GumboTag tag);
bool is_table_part(GumboTag tag);
/// Those that the standard closes around open blocks, which go on behind.
bool is_formatting(GumboTag tag);

/// The name of an element in the markup that is handed on; null for those that aren't in it.
const char* written_name(GumboTag tag);

}  // namespace kro::tessel::os
