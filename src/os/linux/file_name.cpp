#include "os/file_name.h"

#include "code_page_utf8.h"

namespace kro::tessel::os {

std::string file_name(std::basic_string_view<wchar> path) {
    std::string bytes(wide_to_utf8(path.data(), path.size(), false, nullptr, 0).written, '\0');
    wide_to_utf8(path.data(), path.size(), false, bytes.data(), bytes.size());
    return bytes;
}

}  // namespace kro::tessel::os
