// A folder of a test's own.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>

namespace tessel_test {

/// Made empty, deleted with all that is in it.
class temp_folder {
public:
    temp_folder() {
        std::string name = (std::filesystem::temp_directory_path() / "tessel_test_XXXXXX").string();
        if (::mkdtemp(name.data()) == nullptr) {
            std::abort();
        }
        m_path = name;
    }
    ~temp_folder() {
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }
    temp_folder(const temp_folder&) = delete;
    temp_folder& operator=(const temp_folder&) = delete;

    const std::filesystem::path& path() const { return m_path; }
    std::string file(const char* name) const { return (m_path / name).string(); }

private:
    std::filesystem::path m_path;
};

}  // namespace tessel_test
