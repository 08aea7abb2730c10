// Any text: the pieces of a URL lie inside it, in order and without overlapping, and a web URL has a host
// that can stand in a header.
#include "os/thread.h"
#include "os/url.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>

namespace {

using view = std::basic_string_view<wchar>;

void require(bool condition) {
    if (!condition) {
        std::abort();
    }
}

// One byte a unit, so that the fuzzer meets the grammar soon; FF makes a whole unit of the two bytes behind
// it.
kro::tessel::wide_string units_of(const std::uint8_t* data, std::size_t size) {
    kro::tessel::wide_string text;
    for (std::size_t i = 0; i < size; ++i) {
        const bool whole = data[i] == 0xFFU && size - i > 2;
        text.push_back(static_cast<wchar>(whole ? data[i + 1] << 8U | data[i + 2] : data[i]));
        i += whole ? 2 : 0;
    }
    return text;
}

void check_order(view url, const kro::tessel::os::url_pieces& pieces) {
    const wchar* at = url.data();
    for (const view piece :
         {pieces.scheme, pieces.user, pieces.password, pieces.host, pieces.path, pieces.extra}) {
        if (!piece.empty()) {
            require(piece.data() >= at && piece.data() + piece.size() <= url.data() + url.size());
            at = piece.data() + piece.size();
        }
    }
    require(pieces.path.find_first_of(TESSEL_W("?#")) == view::npos);
    require(pieces.extra.empty() || pieces.extra[0] == '?' || pieces.extra[0] == '#');
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace kro::tessel::os;
    const kro::tessel::wide_string url = units_of(data, size);
    url_pieces pieces;
    pieces.port = 4711;
    const std::uint32_t error = crack_url(url, pieces);
    require(error == last_error());
    if (error != 0) {
        require((error == 12005 || error == 12006) && pieces.port == 4711 && pieces.scheme.empty());
        return 0;
    }
    check_order(url, pieces);
    require(!pieces.scheme.empty());
    if (pieces.scheme_number == k_scheme_http || pieces.scheme_number == k_scheme_https) {
        require(!pieces.host.empty());
        require(std::all_of(pieces.host.begin(), pieces.host.end(), [](wchar unit) { return unit > 0x20; }));
    }
    return 0;
}
