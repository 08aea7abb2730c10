#include "os/url.h"

#include "os/inet.h"
#include "os/thread.h"

#include <algorithm>

namespace kro::tessel::os {
namespace {

using view = std::basic_string_view<wchar>;

struct known_scheme {
    view name;
    std::uint16_t number;
    std::uint16_t default_port;
};

// Published numbers. Gopher has no default port: the service gives 0 for it.
constexpr std::uint16_t k_scheme_file = 5;
constexpr known_scheme k_schemes[] = {
    {TESSEL_W("ftp"), 1, 21},
    {TESSEL_W("gopher"), 2, 0},
    {TESSEL_W("http"), k_scheme_http, 80},
    {TESSEL_W("https"), k_scheme_https, 443},
    {TESSEL_W("file"), k_scheme_file, 0},
    {TESSEL_W("news"), 6, 0},
    {TESSEL_W("mailto"), 7, 0},
    {TESSEL_W("socks"), 8, 0},
    {TESSEL_W("javascript"), 9, 0},
    {TESSEL_W("vbscript"), 10, 0},
    {TESSEL_W("res"), 11, 0},
};
constexpr known_scheme k_unknown_scheme{{}, k_scheme_unknown, 0};

constexpr wchar lowered(wchar unit) {
    return unit >= 'A' && unit <= 'Z' ? static_cast<wchar>(unit + ('a' - 'A')) : unit;
}
constexpr bool is_letter(wchar unit) {
    return lowered(unit) >= 'a' && lowered(unit) <= 'z';
}
constexpr bool is_digit(wchar unit) {
    return unit >= '0' && unit <= '9';
}

bool could_be_a_scheme(view name) {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](wchar unit) {
        return is_letter(unit) || is_digit(unit) || unit == '+' || unit == '-' || unit == '.';
    });
}

const known_scheme& find_scheme(view name) {
    const auto equals = [name](const known_scheme& scheme) {
        return std::equal(name.begin(), name.end(), scheme.name.begin(), scheme.name.end(),
                          [](wchar left, wchar right) { return lowered(left) == right; });
    };
    const auto* const found = std::find_if(std::begin(k_schemes), std::end(k_schemes), equals);
    return found == std::end(k_schemes) ? k_unknown_scheme : *found;
}

bool is_web(std::uint16_t scheme) {
    return scheme == k_scheme_http || scheme == k_scheme_https;
}

// Ends at the first zero unit; line ends behind the URL (a line that was read whole) don't belong to it.
view trimmed(view url) {
    url = url.substr(0, std::min(url.find(wchar(0)), url.size()));
    while (!url.empty() && (url.back() == '\r' || url.back() == '\n')) {
        url.remove_suffix(1);
    }
    return url;
}

// "C:/x" and "C:\x" behind "file://": the drive is no host and ":" no port.
bool begins_with_drive(view text) {
    return text.size() >= 2 && is_letter(text[0]) && text[1] == ':' &&
           (text.size() == 2 || text[2] == '/' || text[2] == '\\');
}

// A blank or a control unit in a host can't be meant; a line end would even add header lines to the request.
bool is_host_unit(wchar unit) {
    return unit > 0x20 && unit != 0x7F;
}

bool parse_port(view digits, std::uint16_t default_port, std::uint16_t& port) {
    if (digits.empty()) {  // "host:"
        port = default_port;
        return true;
    }
    std::uint32_t number = 0;
    for (const wchar unit : digits) {
        if (!is_digit(unit)) {
            return false;
        }
        number = number * 10U + static_cast<std::uint32_t>(unit - '0');
        if (number > 0xFFFFU) {
            return false;
        }
    }
    port = static_cast<std::uint16_t>(number);
    return true;
}

void split_user_info(view info, url_pieces& pieces) {
    const std::size_t colon = info.rfind(wchar(':'));
    pieces.user = info.substr(0, colon);
    pieces.password = colon == view::npos ? view() : info.substr(colon + 1);
}

// host_and_port: "host", "host:port", "[address]" or "[address]:port". The brackets stay with the host.
bool split_host(view host_and_port, std::uint16_t default_port, url_pieces& pieces) {
    std::size_t host_end = 0;
    if (!host_and_port.empty() && host_and_port[0] == '[') {
        const std::size_t bracket = host_and_port.find(wchar(']'));
        if (bracket == view::npos || bracket == 1) {
            return false;
        }
        host_end = bracket + 1;
    } else {
        host_end = std::min(host_and_port.find(wchar(':')), host_and_port.size());
    }
    const view rest = host_and_port.substr(host_end);
    pieces.host = host_and_port.substr(0, host_end);
    pieces.port = default_port;
    if (!std::all_of(pieces.host.begin(), pieces.host.end(), is_host_unit)) {
        return false;
    }
    return rest.empty() || (rest[0] == ':' && parse_port(rest.substr(1), default_port, pieces.port));
}

bool split_authority(view authority, std::uint16_t default_port, url_pieces& pieces) {
    // The last "@": user names that are mail addresses are common, "@" in a host is impossible.
    const std::size_t at = authority.rfind(wchar('@'));
    if (at != view::npos) {
        split_user_info(authority.substr(0, at), pieces);
        authority.remove_prefix(at + 1);
    }
    return split_host(authority, default_port, pieces);
}

void split_path(view rest, url_pieces& pieces) {
    const std::size_t extra = std::min(rest.find_first_of(TESSEL_W("?#")), rest.size());
    pieces.path = rest.substr(0, extra);
    pieces.extra = rest.substr(extra);
}

std::uint32_t crack(view url, url_pieces& pieces) {
    const std::size_t colon = url.find(wchar(':'));
    if (colon == view::npos || !could_be_a_scheme(url.substr(0, colon))) {
        return k_error_inet_unrecognized_scheme;
    }
    pieces.scheme = url.substr(0, colon);
    const known_scheme& scheme = find_scheme(pieces.scheme);
    pieces.scheme_number = scheme.number;
    view rest = url.substr(colon + 1);
    const bool has_authority = rest.substr(0, 2) == TESSEL_W("//");
    if (has_authority) {
        rest.remove_prefix(2);
    }
    if (has_authority && !(scheme.number == k_scheme_file && begins_with_drive(rest))) {
        const std::size_t end = std::min(rest.find_first_of(TESSEL_W("/?#")), rest.size());
        if (!split_authority(rest.substr(0, end), scheme.default_port, pieces)) {
            return k_error_inet_invalid_url;
        }
        rest.remove_prefix(end);
    }
    if (is_web(scheme.number) && pieces.host.empty()) {
        return k_error_inet_invalid_url;
    }
    split_path(rest, pieces);
    return 0;
}

}  // namespace

std::uint32_t crack_url(view url, url_pieces& pieces) {
    url_pieces found;
    const std::uint32_t error = crack(trimmed(url), found);
    if (error == 0) {
        pieces = found;
    }
    set_last_error(error);
    return error;
}

}  // namespace kro::tessel::os
