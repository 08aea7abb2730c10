#include "os/file_name.h"

#include <windows.h>

namespace kro::tessel::os {

std::string file_name(std::basic_string_view<wchar> path) {
    const DWORD error = ::GetLastError();
    const int units = static_cast<int>(path.size());
    const auto convert = [&](char* out, int room) {
        return units == 0 ? 0
                          : ::WideCharToMultiByte(CP_ACP, 0, path.data(), units, out, room, nullptr, nullptr);
    };
    std::string bytes(static_cast<std::size_t>(convert(nullptr, 0)), '\0');
    convert(bytes.data(), static_cast<int>(bytes.size()));
    ::SetLastError(error);
    return bytes;
}

}  // namespace kro::tessel::os
