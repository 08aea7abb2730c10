#include "tessel/codec/html_text.h"

#include "os/html_engine.h"

#include <utility>

namespace kro::tessel {

CTString _gethtml_puretext(const CTString& html) {
    wide_string text;
    if (!html.empty()) {
        os::inner_text_of_html(html, text);
    }
    return CTString(std::move(text));
}

}  // namespace kro::tessel
