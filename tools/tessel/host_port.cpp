#include "host_port.h"

#include <charconv>
#include <system_error>

namespace command {

host_port split_host_port(const std::string& text) {
    const auto colon = text.rfind(':');
    if (colon == std::string::npos) {
        return {};
    }
    std::uint16_t port = 0;
    const char* const end = text.data() + text.size();
    const auto digits = std::from_chars(text.data() + colon + 1, end, port);
    const bool is_port = digits.ec == std::errc() && digits.ptr == end && port != 0;
    const std::string host = text.substr(0, colon);
    return is_port && host.find_first_of(" \t\r\n") == std::string::npos ? host_port{host, port}
                                                                         : host_port{};
}

}  // namespace command
