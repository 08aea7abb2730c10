#include "os/linux/inet_address.h"

#include "os/linux/curl_url.h"

#include <unicode/uidna.h>

#include <algorithm>
#include <charconv>
#include <memory>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_max_host_units = 256;
constexpr int k_max_ascii_host = 1024;

bool is_address_six(std::string_view host) noexcept {
    return std::count(host.begin(), host.end(), ':') > 1;
}

// Characters that would end the host's part of a URL, or that no name has.
bool has_foreign_character(std::string_view host) noexcept {
    return std::any_of(host.begin(), host.end(), [](char c) {
        const auto value = static_cast<unsigned char>(c);
        return value <= 0x20 || value >= 0x7F ||
               std::string_view("/?#@\\<>\"|^`{}%").find(c) != std::string_view::npos;
    });
}

std::optional<std::string> idna(wide_view host) {
    UErrorCode status = U_ZERO_ERROR;
    const std::unique_ptr<UIDNA, void (*)(UIDNA*)> rules(
        uidna_openUTS46(UIDNA_NONTRANSITIONAL_TO_ASCII, &status), uidna_close);
    UIDNAInfo info = UIDNA_INFO_INITIALIZER;
    char16_t ascii[k_max_ascii_host];
    const std::int32_t length =
        uidna_nameToASCII(rules.get(), host.data(), static_cast<std::int32_t>(host.size()), ascii,
                          k_max_ascii_host, &info, &status);
    if (U_FAILURE(status) || info.errors != 0 || length > k_max_ascii_host) {
        return std::nullopt;
    }
    return narrow({ascii, static_cast<std::size_t>(length)});
}

inet_address address_of(const url_handle& url, bool secure) {
    inet_address address;
    address.secure = secure;
    address.host = lowered(part_of(url, CURLUPART_HOST));
    const std::string port = part_of(url, CURLUPART_PORT, CURLU_DEFAULT_PORT);
    std::from_chars(port.data(), port.data() + port.size(), address.port);
    address.target = part_of(url, CURLUPART_PATH);
    const std::string query = part_of(url, CURLUPART_QUERY);
    if (!query.empty()) {
        address.target += '?' + query;
    }
    return address;
}

// "http:///path": libcurl would take the path's first part for the host.
bool lacks_host(std::string_view location) noexcept {
    const auto behind = location.find("://");
    const auto host = behind == std::string_view::npos ? behind : location.find_first_of("/?#", behind + 3);
    return behind != std::string_view::npos && location.find_first_of("/?#") > behind &&
           (host == behind + 3 || location.size() == behind + 3);
}

}  // namespace

std::string inet_address::server() const {
    return has_default_port() ? host : host + ':' + std::to_string(port);
}

std::string inet_address::url() const {
    return (secure ? "https://" : "http://") + server() + target;
}

std::string inet_address::origin() const {
    return (secure ? "https://" : "http://") + host + ':' + std::to_string(port);
}

bool inet_address::same_server(const inet_address& other) const noexcept {
    return secure == other.secure && port == other.port && host == other.host;
}

std::optional<std::string> ascii_host(wide_view host) {
    if (host.empty() || host.size() > k_max_host_units) {
        return std::nullopt;
    }
    const bool is_ascii = std::all_of(host.begin(), host.end(), [](wchar unit) { return unit < 0x80; });
    std::optional<std::string> name = is_ascii ? lowered(narrow(host)) : idna(host);
    if (!name || has_foreign_character(*name)) {
        return std::nullopt;
    }
    if (is_address_six(*name) && name->front() != '[') {
        *name = '[' + *name + ']';
    }
    return name;
}

std::string escaped_target(wide_view object) {
    object = object.substr(0, object.find(TESSEL_W('#')));
    const auto query = std::min(object.find(TESSEL_W('?')), object.size());
    std::string target;
    target.reserve(object.size() + 1);
    if (object.empty() || object.front() != TESSEL_W('/')) {
        target += '/';
    }
    const auto append = [&target](const std::string& part, bool escapes_bytes) {
        for (const char byte : part) {
            const auto value = static_cast<unsigned char>(byte);
            const bool is_control = value <= 0x20 || value == 0x7F;
            if (is_control || (escapes_bytes && value >= 0x80)) {
                append_escaped(target, byte);
            } else {
                target += byte;
            }
        }
    };
    append(to_utf8(object.substr(0, query)), true);
    append(to_ansi(object.substr(query)), false);
    return target;
}

located resolve_location(const inet_address& base, std::string_view location) {
    const url_handle url = make_url();
    constexpr unsigned flags = CURLU_NON_SUPPORT_SCHEME | CURLU_URLENCODE | CURLU_ALLOW_SPACE;
    const std::string text(trimmed(location));
    if (url == nullptr || lacks_host(text) ||
        curl_url_set(url.get(), CURLUPART_URL, base.url().c_str(), 0) != CURLUE_OK ||
        curl_url_set(url.get(), CURLUPART_URL, text.c_str(), flags) != CURLUE_OK) {
        return {};
    }
    const std::string scheme = lowered(part_of(url, CURLUPART_SCHEME));
    if (scheme != "http" && scheme != "https") {
        return {location_kind::other_scheme, {}};
    }
    located result{location_kind::followable, address_of(url, scheme == "https")};
    if (result.address.host.empty()) {
        return {};
    }
    return result;
}

}  // namespace kro::tessel::os
