#include "header_lines.h"

#include "arguments.h"

namespace command {

std::string joined_headers(const std::vector<std::string>& lines) {
    std::string headers;
    for (const std::string& line : lines) {
        if (line.find(':') == std::string::npos || line.find_first_of("\r\n") != std::string::npos) {
            throw usage_error("--header: a header is one line like \"Name: value\", not \"" + line + '"');
        }
        headers += (headers.empty() ? "" : "\r\n") + line;
    }
    return headers;
}

}  // namespace command
