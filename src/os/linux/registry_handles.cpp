#include "registry_handles.h"

#include "os/registry.h"

#include "registry_failure.h"

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_first_root = 0x80000000U;
constexpr std::uintptr_t k_step = 4;  // like those of the system, which leaves the low bits to its users

std::uintptr_t number_of(HKEY handle) noexcept {
    return reinterpret_cast<std::uintptr_t>(handle);
}

/// Which root, or k_root_count and more for none.
std::uint32_t root_index(HKEY handle) noexcept {
    return static_cast<std::uint32_t>(number_of(handle)) - k_first_root;
}

HKEY handle_of(std::uintptr_t number) noexcept {
    return reinterpret_cast<HKEY>(number);  // NOLINT(performance-no-int-to-ptr): a number that nobody follows
}

std::uintptr_t next_number(std::uintptr_t last) noexcept {
    const std::uintptr_t next = last + k_step;
    return (next & k_first_root) == 0 ? next : next + k_first_root + k_step;
}

}  // namespace

registry_handles::registry_handles() {
    for (std::size_t i = 0; i < m_roots.size(); ++i) {
        m_roots[i].id = static_cast<std::int64_t>(i) + 1;
    }
}

HKEY registry_handles::open(std::int64_t id) {
    if (is_root(id)) {
        const auto number = static_cast<std::int32_t>(k_first_root + static_cast<std::uint32_t>(id) - 1);
        return handle_of(static_cast<std::uintptr_t>(static_cast<std::intptr_t>(number)));
    }
    m_last = next_number(m_last);
    m_open[m_last].id = id;
    return handle_of(m_last);
}

open_key& registry_handles::find(HKEY handle) {
    if (root_index(handle) < k_root_count) {
        return m_roots[root_index(handle)];
    }
    const auto found = m_open.find(number_of(handle));
    if (found == m_open.end()) {
        throw registry_failure{k_registry_invalid_handle};
    }
    return found->second;
}

bool registry_handles::close(HKEY handle) noexcept {
    return root_index(handle) < k_root_count || m_open.erase(number_of(handle)) != 0;
}

}  // namespace kro::tessel::os
