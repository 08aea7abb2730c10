#include "tessel/http/url.h"

#include "os/url.h"

#include "tessel/base/trace.h"

#include <limits>
#include <string_view>
#include <utility>

namespace kro::tessel::http {
namespace {

CTString text_of(std::basic_string_view<wchar> piece) {
    return {piece.data(), piece.size()};
}

}  // namespace

bool crack_url(const CTString& url, CTString& scheme, unsigned short& scheme_number, CTString& host,
               unsigned short& port, CTString& user, CTString& password, CTString& path, CTString& extra) {
    os::url_pieces pieces;
    if (os::crack_url(url, pieces) != 0) {
        return false;
    }
    // All copied before the first is set: an output may be the very string that holds the URL.
    CTString copies[] = {text_of(pieces.scheme),   text_of(pieces.host), text_of(pieces.user),
                         text_of(pieces.password), text_of(pieces.path), text_of(pieces.extra)};
    scheme_number = pieces.scheme_number;
    port = pieces.port;
    CTString* const outputs[] = {&scheme, &host, &user, &password, &path, &extra};
    for (std::size_t piece = 0; piece < std::size(copies); ++piece) {
        *outputs[piece] = std::move(copies[piece]);
    }
    return true;
}

bool crack_url(const CTString& url, _url_components& components) {
    return crack_url(url, components.scheme, components.scheme_number, components.host, components.port,
                     components.user, components.password, components.path, components.extra);
}

CTString FormatInetMessage(unsigned long code) {
    std::basic_string_view<wchar> text;
    if (code <= std::numeric_limits<std::uint32_t>::max()) {
        text = os::inet_error_text(static_cast<std::uint32_t>(code));
    }
    if (text.empty()) {
        trace_message(trace_debug) << TESSEL_W("[httputil] FormatMessage fails. param: ") << code
                                   << TESSEL_W(" return: ") << 0;
    }
    return text_of(text);
}

}  // namespace kro::tessel::http
