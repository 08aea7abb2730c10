// Handles of open keys.
#pragma once

#include "tessel/platform/registry.h"

#include <array>
#include <cstdint>
#include <string>
#include <unordered_map>

namespace kro::tessel::os {

/// How far an enumeration of something below a key has come, so that its next step needn't count from the
/// first one. It holds as long as the key's version of that list stays the same.
template <class Position>
struct enumeration {
    std::uint32_t index = 0;
    std::int64_t version = -1;  ///< no version is negative
    Position position{};        ///< of the entry at `index`
};

/// One open key.
struct open_key {
    std::int64_t id = 0;
    enumeration<std::string> keys;
    enumeration<std::int64_t> values;
};

/// The ids of the roots in the store: 1, 2, ... in the order of their handles.
constexpr std::int64_t k_root_count = 8;
constexpr bool is_root(std::int64_t id) noexcept {
    return id <= k_root_count;
}

/// Values that are never addresses, never come back, and whose low 32 bits are never a root's. Not locked.
class registry_handles {
public:
    registry_handles();

    /// The handle of a root is that root's; any other key gets a new one.
    HKEY open(std::int64_t id);
    /// Throws registry_failure (6).
    open_key& find(HKEY handle);
    /// False: no such handle. A root stays.
    bool close(HKEY handle) noexcept;

private:
    std::array<open_key, k_root_count> m_roots;
    std::unordered_map<std::uintptr_t, open_key> m_open;
    std::uintptr_t m_last = 0;
};

}  // namespace kro::tessel::os
