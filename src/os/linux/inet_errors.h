// libcurl's results as error numbers of the HTTP service.
#pragma once

#include <curl/curl.h>

#include <cstdint>

namespace kro::tessel::os {

/// What is known about a failed exchange beside its result.
struct failure_facts {
    long system_error = 0;   ///< errno of the failed connection, 0 when unknown
    long verify_result = 0;  ///< OpenSSL's verdict about the certificate
    bool sent = false;       ///< at least a part of the request had gone out
    bool answered = false;   ///< the response's headers had come

    /// Whether it failed while the response's headers came.
    bool is_about_head() const noexcept { return sent && !answered; }
};

/// The number for `code`; 0 for what counts as a regular end.
std::uint32_t inet_error_of(CURLcode code, const failure_facts& facts) noexcept;

}  // namespace kro::tessel::os
