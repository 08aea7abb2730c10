#include "os/registry.h"

#include "kept_last_error.h"

#include <windows.h>

namespace kro::tessel::os {
namespace {

// The system's own types, under the names that the contract uses.
DWORD* number(std::uint32_t* value) noexcept {
    static_assert(sizeof(DWORD) == sizeof(std::uint32_t));
    return reinterpret_cast<DWORD*>(value);
}

class system_registry final : public registry_service {
public:
    std::int32_t open_key(HKEY parent, const wchar* path, HKEY* result) override {
        const kept_last_error kept;
        if (result == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        *result = nullptr;
        const bool same_key = path == nullptr || *path == 0;
        if (parent == nullptr && same_key) {
            return ERROR_SUCCESS;
        }
        // RegOpenKeyW answers an empty path with the parent's handle, which two owners would close.
        return same_key ? ::RegOpenKeyExW(parent, L"", 0, MAXIMUM_ALLOWED, result)
                        : ::RegOpenKeyW(parent, path, result);
    }

    std::int32_t create_key(HKEY parent, const wchar* path, HKEY* result) override {
        const kept_last_error kept;
        if (result == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        *result = nullptr;
        return path == nullptr ? ERROR_BADKEY : ::RegCreateKeyW(parent, path, result);
    }

    std::int32_t close_key(HKEY key) override {
        const kept_last_error kept;
        return ::RegCloseKey(key);
    }

    std::int32_t query_value(HKEY key, const wchar* name, std::uint32_t* type, unsigned char* data,
                             std::uint32_t* size) override {
        const kept_last_error kept;
        return ::RegQueryValueExW(key, name, nullptr, number(type), data, number(size));
    }

    std::int32_t set_value(HKEY key, const wchar* name, std::uint32_t type, const unsigned char* data,
                           std::uint32_t size) override {
        const kept_last_error kept;
        return ::RegSetValueExW(key, name, 0, type, data, size);
    }

    std::int32_t enum_value(HKEY key, std::uint32_t index, wchar* name, std::uint32_t* name_units,
                            std::uint32_t* type, unsigned char* data, std::uint32_t* size) override {
        const kept_last_error kept;
        if (name == nullptr || name_units == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        return ::RegEnumValueW(key, index, name, number(name_units), nullptr, number(type), data,
                               number(size));
    }

    std::int32_t enum_key(HKEY key, std::uint32_t index, wchar* name, std::uint32_t* name_units) override {
        const kept_last_error kept;
        if (name == nullptr || name_units == nullptr) {
            return ERROR_INVALID_PARAMETER;
        }
        return ::RegEnumKeyExW(key, index, name, number(name_units), nullptr, nullptr, nullptr, nullptr);
    }

    std::int32_t delete_value(HKEY key, const wchar* name) override {
        const kept_last_error kept;
        return ::RegDeleteValueW(key, name);
    }

    std::int32_t delete_key(HKEY key, const wchar* path) override {
        const kept_last_error kept;
        return ::RegDeleteKeyW(key, path);
    }
};

}  // namespace

registry_service& registry_keys() {
    // Never destroyed: a host's own objects may close their keys as late as they like.
    static auto* const registry = new system_registry;
    return *registry;
}

}  // namespace kro::tessel::os
