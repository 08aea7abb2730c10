#include "os/url.h"

#include "os/inet.h"
#include "os/thread.h"

#include <windows.h>
#include <wininet.h>

#include <string>

namespace kro::tessel::os {
namespace {

using view = std::basic_string_view<wchar>;

// Pieces are asked for as pointers into the text: length 1 and no buffer mean that.
URL_COMPONENTSW wanted_components() {
    URL_COMPONENTSW components{};
    components.dwStructSize = sizeof components;
    components.dwSchemeLength = 1;
    components.dwHostNameLength = 1;
    components.dwUserNameLength = 1;
    components.dwPasswordLength = 1;
    components.dwUrlPathLength = 1;
    components.dwExtraInfoLength = 1;
    return components;
}

view piece(const wchar* begin, DWORD length) {
    return begin == nullptr ? view() : view(begin, length);
}

}  // namespace

// The sizes that hosts of each width were built with.
static_assert(sizeof(URL_COMPONENTSW) == (sizeof(void*) == 8 ? 104 : 60));

std::uint32_t crack_url(view url, url_pieces& pieces) {
    url = url.substr(0, url.find(wchar(0)));
    URL_COMPONENTSW found = wanted_components();
    // An empty text is no URL to the system, whose length 0 means "up to the zero".
    if (url.empty() ||
        !::InternetCrackUrlW(url.data(), static_cast<DWORD>(url.size()), 0, &found)) {
        const std::uint32_t error = url.empty() ? k_error_inet_unrecognized_scheme : last_error();
        set_last_error(error);
        return error;
    }
    pieces.scheme = piece(found.lpszScheme, found.dwSchemeLength);
    pieces.scheme_number = static_cast<std::uint16_t>(found.nScheme);
    pieces.host = piece(found.lpszHostName, found.dwHostNameLength);
    pieces.port = found.nPort;
    pieces.user = piece(found.lpszUserName, found.dwUserNameLength);
    pieces.password = piece(found.lpszPassword, found.dwPasswordLength);
    pieces.path = piece(found.lpszUrlPath, found.dwUrlPathLength);
    pieces.extra = piece(found.lpszExtraInfo, found.dwExtraInfoLength);
    set_last_error(0);
    return 0;
}

}  // namespace kro::tessel::os
