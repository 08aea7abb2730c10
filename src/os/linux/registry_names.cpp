#include "registry_names.h"

#include "os/registry.h"

#include "registry_failure.h"
#include "upper_case.h"

#include <algorithm>

namespace kro::tessel::os {

using wide_view = std::basic_string_view<wchar>;

std::string folded_name(wide_view name) {
    std::string bytes(name.size() * sizeof(wchar), '\0');
    char* out = bytes.data();
    for (const wchar unit : name) {
        const wchar upper = upper_case(unit);
        *out++ = static_cast<char>(upper >> 8U);
        *out++ = static_cast<char>(upper & 0xFFU);
    }
    return bytes;
}

wide_view value_name(const wchar* name) {
    const wide_view units = name == nullptr ? wide_view() : wide_view(name);
    if (units.size() > k_longest_value_name) {
        throw registry_failure{k_registry_invalid_argument};
    }
    return units;
}

std::vector<key_step> steps_of(const wchar* path) {
    wide_view left = path == nullptr ? wide_view() : wide_view(path);
    if (!left.empty() && left.front() == '\\') {
        throw registry_failure{k_registry_bad_path};
    }
    std::vector<key_step> steps;
    while (!left.empty()) {
        const wide_view name = left.substr(0, left.find('\\'));
        left.remove_prefix(std::min(name.size() + 1, left.size()));
        if (name.size() > k_longest_key_name) {
            throw registry_failure{k_registry_invalid_argument};
        }
        if (!name.empty()) {
            steps.push_back({name, folded_name(name)});
        }
    }
    return steps;
}

}  // namespace kro::tessel::os
