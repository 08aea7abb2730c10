// A URL's parts, and the texts of the HTTP service's error numbers.
#pragma once

#include <tessel/base/string.h>

#include <cstdint>

namespace kro::tessel::http {

/// The parts of a URL, as written in it: nothing is unescaped, lower-cased or trimmed.
struct _url_components {
    CTString scheme;
    /// As the platform publishes them: 1 ftp, 3 http, 4 https, 5 file, 7 mailto ...; 0xFFFF: unknown.
    std::uint16_t scheme_number = 0;
    CTString host;           ///< an IPv6 address keeps its brackets
    std::uint16_t port = 0;  ///< explicit, or the scheme's default (80, 443)
    CTString user;
    CTString password;
    CTString path;
    CTString extra;  ///< query and fragment with their leading "?" or "#"
};

/// Breaks a URL into its parts. A missing part is empty.
/// Returns: false, with every output untouched and the thread's last error set, when the URL is invalid
///          (12005) or has no scheme (12006).
/// Thread:  any.
TESSEL_API bool crack_url(const CTString& url, CTString& scheme, unsigned short& scheme_number,
                          CTString& host, unsigned short& port, CTString& user, CTString& password,
                          CTString& path, CTString& extra);
TESSEL_API bool crack_url(const CTString& url, _url_components& components);

/// The text of an error number of the HTTP service (12001 ...), as the service gives it, line end
/// included. An unknown number is traced and gives an empty string. Thread: any.
TESSEL_API CTString FormatInetMessage(unsigned long code);

}  // namespace kro::tessel::http
