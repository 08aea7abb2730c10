// Short forms of the registry's calls.
#pragma once

#include "os/registry.h"

#include "tessel/base/types.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tessel_test {

using kro::tessel::wide_string;
using bytes = std::vector<unsigned char>;

// NOLINTNEXTLINE(performance-no-int-to-ptr): nobody follows it
inline const HKEY k_never_a_key = reinterpret_cast<HKEY>(std::intptr_t{0x7FFF1234});

inline kro::tessel::os::registry_service& keys() {
    return kro::tessel::os::registry_keys();
}

/// A handle that a test opened, closed at its end. `status` is that of opening or making it.
class opened_key {
public:
    opened_key(HKEY parent, const wide_string& path, bool create = false)
        : status(create ? keys().create_key(parent, path.c_str(), &handle)
                        : keys().open_key(parent, path.c_str(), &handle)) {}
    ~opened_key() {
        if (handle != nullptr) {
            keys().close_key(handle);
        }
    }
    opened_key(const opened_key&) = delete;
    opened_key& operator=(const opened_key&) = delete;

    HKEY handle = nullptr;
    const std::int32_t status;
};

inline std::int32_t set(HKEY key, const wide_string& name, const bytes& data,
                        std::uint32_t type = REG_BINARY) {
    return keys().set_value(key, name.c_str(), type, data.data(), static_cast<std::uint32_t>(data.size()));
}

/// The whole value.
inline bytes get(HKEY key, const wide_string& name, std::uint32_t expected_type = REG_BINARY) {
    std::uint32_t type = 0;
    std::uint32_t size = 0;
    EXPECT_EQ(keys().query_value(key, name.c_str(), &type, nullptr, &size), 0);
    EXPECT_EQ(type, expected_type);
    bytes data(size);
    bytes room(size + 1);  // never null
    EXPECT_EQ(keys().query_value(key, name.c_str(), &type, room.data(), &size), 0);
    EXPECT_EQ(size, data.size());
    data.assign(room.begin(), room.begin() + size);
    return data;
}

inline std::vector<wide_string> key_names(HKEY key) {
    std::vector<wide_string> names;
    wchar name[256];
    for (std::uint32_t units = 256;
         keys().enum_key(key, static_cast<std::uint32_t>(names.size()), name, &units) == 0; units = 256) {
        names.emplace_back(name, units);
    }
    return names;
}

inline std::vector<wide_string> value_names(HKEY key) {
    std::vector<wide_string> names;
    std::vector<wchar> name(16384);
    for (std::uint32_t units = 16384; keys().enum_value(key, static_cast<std::uint32_t>(names.size()),
                                                        name.data(), &units, nullptr, nullptr, nullptr) == 0;
         units = 16384) {
        names.emplace_back(name.data(), units);
    }
    return names;
}

}  // namespace tessel_test
