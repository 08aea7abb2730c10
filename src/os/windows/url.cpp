#include "os/url.h"

#include "os/inet.h"
#include "os/thread.h"

#include <windows.h>
#include <wininet.h>

#include <algorithm>
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

// The system takes blanks and control units here. They can't be meant; a line end would even add header
// lines to the request.
bool is_host(view host) {
    return std::all_of(host.begin(), host.end(), [](wchar unit) { return unit > 0x20 && unit != 0x7F; });
}

std::uint32_t crack(view url, URL_COMPONENTSW& found) {
    if (url.empty()) {  // to the system its length 0 would mean "up to the zero"
        return k_error_inet_unrecognized_scheme;
    }
    if (::InternetCrackUrlW(url.data(), static_cast<DWORD>(url.size()), 0, &found) == FALSE) {
        return last_error();
    }
    const bool is_web = found.nScheme == INTERNET_SCHEME_HTTP || found.nScheme == INTERNET_SCHEME_HTTPS;
    const view host = piece(found.lpszHostName, found.dwHostNameLength);
    return (is_web && host.empty()) || !is_host(host) ? k_error_inet_invalid_url : 0;
}

}  // namespace

// The sizes that hosts of each width were built with.
static_assert(sizeof(URL_COMPONENTSW) == (sizeof(void*) == 8 ? 104 : 60));

std::uint32_t crack_url(view url, url_pieces& pieces) {
    URL_COMPONENTSW found = wanted_components();
    const std::uint32_t error = crack(url.substr(0, url.find(wchar(0))), found);
    set_last_error(error);
    if (error != 0) {
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
    return 0;
}

}  // namespace kro::tessel::os
