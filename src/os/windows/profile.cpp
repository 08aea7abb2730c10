#include "os/profile.h"

#include <windows.h>

#include <string>

namespace kro::tessel::os {
namespace {

// The system looks for a bare name in its own folder.
std::wstring full_path(const wchar* file) {
    std::wstring path(::GetFullPathNameW(file, 0, nullptr, nullptr), L'\0');
    path.resize(::GetFullPathNameW(file, static_cast<DWORD>(path.size()), path.data(), nullptr));
    return path;
}

class system_profiles final : public profile_service {
public:
    std::uint32_t get_string(const wchar* section, const wchar* key, const wchar* fallback, wchar* out,
                             std::uint32_t capacity, const wchar* file) override {
        if (capacity == 0) {
            return 0;
        }
        const std::wstring path = full_path(file);
        ::SetLastError(ERROR_SUCCESS);
        return ::GetPrivateProfileStringW(section, key, fallback, out, capacity, path.c_str());
    }
};

}  // namespace

profile_service& profiles() {
    static system_profiles service;
    return service;
}

}  // namespace kro::tessel::os
