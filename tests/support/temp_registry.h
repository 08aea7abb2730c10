// A key of a test's own. Link tests/support/<system>/temp_registry.cpp: where the registry is a file, the
// whole program then has one of its own, and never sees the user's.
#pragma once

#include "os/registry.h"

#include "tessel/base/types.h"

#include <random>
#include <string>

namespace tessel_test {

/// Made empty below HKEY_CURRENT_USER, deleted with all that is in it.
class temp_registry_key {
public:
    temp_registry_key() { keys().create_key(HKEY_CURRENT_USER, m_path.c_str(), &m_key); }
    ~temp_registry_key() {
        keys().close_key(m_key);
        delete_tree(HKEY_CURRENT_USER, m_path);
    }
    temp_registry_key(const temp_registry_key&) = delete;
    temp_registry_key& operator=(const temp_registry_key&) = delete;

    HKEY key() const { return m_key; }
    const kro::tessel::wide_string& path() const { return m_path; }  ///< below HKEY_CURRENT_USER

    static kro::tessel::os::registry_service& keys() { return kro::tessel::os::registry_keys(); }

private:
    static kro::tessel::wide_string unique_path() {
        static unsigned count = 0;
        static const unsigned base = std::random_device()();  // other tests run at the same time
        const std::string name =
            "Software\\tessel test " + std::to_string(base) + " " + std::to_string(++count);
        return kro::tessel::wide_string(name.begin(), name.end());
    }

    static void delete_tree(HKEY parent, const kro::tessel::wide_string& path) {
        HKEY key = nullptr;
        if (keys().open_key(parent, path.c_str(), &key) == 0) {
            wchar name[256];
            for (std::uint32_t units = 256; keys().enum_key(key, 0, name, &units) == 0; units = 256) {
                delete_tree(key, name);
            }
            keys().close_key(key);
        }
        keys().delete_key(parent, path.c_str());
    }

    const kro::tessel::wide_string m_path = unique_path();
    HKEY m_key = nullptr;
};

}  // namespace tessel_test
