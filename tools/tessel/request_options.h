// What a request verb was asked to do.
#pragma once

#include <tessel/tessel.h>

#include <cstdint>
#include <string>
#include <vector>

namespace command {

struct request_options {
    http_method_t method = http_method_get;
    std::vector<std::string> urls;
    std::string headers;  ///< lines separated by CR LF
    std::string body;
    std::string proxy_host;  ///< empty: no explicit proxy
    std::uint16_t proxy_port = 0;
    std::string output;  ///< a file, or a folder; empty: standard output
    bool output_is_folder = false;
    bool accept_gzip = false;
    bool decode_gzip = false;
    bool text = false;     ///< bodies in UTF-8, from the character set that they declare
    bool include = false;  ///< the status in front of each body
    bool json = false;     ///< a line of JSON for each URL in place of its body
    bool trace = false;
    std::uint32_t parallel = 8;
};

}  // namespace command
