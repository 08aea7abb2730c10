// The cookies of the process: one jar for all requests, in memory, until the process ends.
#pragma once

#include <curl/curl.h>

#include <string>
#include <string_view>

namespace kro::tessel::os {

/// The jar as libcurl's handles share it; null when there is no memory for one. From any thread.
CURLSH* shared_cookies();

/// Whether a handle with the jar has a cookie to send to a URL. host: what the caller's own Host header says,
/// empty without one.
bool has_cookie_for(CURL* easy, const std::string& url, std::string_view host);

/// A response has brought a cookie into the jar of this handle. Makes room when the jar has become too large.
void count_cookie(CURL* easy);

}  // namespace kro::tessel::os
