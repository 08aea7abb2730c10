// Any bytes as markup in a small alphabet of tags: there is a text, not much longer than the markup, and what
// is escaped comes back as it was.
#include "tessel/codec/html_text.h"

#include <cstdint>
#include <cstdlib>

namespace {

using kro::tessel::_gethtml_puretext;
using kro::tessel::CTString;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

// As written in a pre, where nothing collapses.
CTString escaped(const std::uint8_t* data, std::size_t size, CTString& plain) {
    CTString html = TESSEL_W("<pre>x");
    plain = TESSEL_W("x");
    for (std::size_t i = 0; i < size; ++i) {
        const auto unit = static_cast<wchar>(data[i]);
        if (unit == '<' || unit == '&') {
            html += unit == '<' ? TESSEL_W("&lt;") : TESSEL_W("&amp;");
            plain += unit;
        } else if (unit != 0 && unit != '\r' && unit != '\n') {
            html += unit;
            plain += unit;
        }
    }
    return html;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const CTString markup(kro::tessel::wide_string(data, data + size));
    // A paragraph of 3 characters gives two line ends.
    require(_gethtml_puretext(markup).size() <= 4 * size + 4);
    CTString plain;
    const CTString html = escaped(data, size, plain);
    require(_gethtml_puretext(html) == plain);
    return 0;
}
