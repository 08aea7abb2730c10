// The system's HTML engine: the inner text of a document.
#pragma once

#include "tessel/base/types.h"

#include <string_view>

namespace kro::tessel::os {

/// Parses a document or a fragment and gives the inner text of its body, with CR LF for each line end.
/// Nothing is fetched and no script runs. html:    with line ends of any kind. A zero unit ends the text on
/// Windows and is dropped on Linux. text:    replaced by the text; left as it was on failure. Returns: false
/// when the engine isn't there, the document has no body (a frameset) or memory runs out. Thread:  any; on
/// Windows one that has initialised COM.
bool inner_text_of_html(std::basic_string_view<wchar> html, wide_string& text) noexcept;

}  // namespace kro::tessel::os
