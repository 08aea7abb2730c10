// libcurl's URL handle and the parts of the URL in it.
#pragma once

#include <curl/curl.h>

#include <memory>
#include <string>

namespace kro::tessel::os {

using url_handle = std::unique_ptr<CURLU, void (*)(CURLU*)>;

/// Null when there is no memory.
inline url_handle make_url() {
    return {curl_url(), curl_url_cleanup};
}

/// One part, as text; empty when the URL has none.
inline std::string part_of(const url_handle& url, CURLUPart part, unsigned flags = 0) {
    char* text = nullptr;
    if (curl_url_get(url.get(), part, &text, flags) != CURLUE_OK) {
        return {};
    }
    const std::unique_ptr<char, void (*)(void*)> owner(text, curl_free);
    return text;
}

}  // namespace kro::tessel::os
