// Before anything asks for the registry, its file is one of this process's own.
#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace {

class own_registry {
public:
    own_registry() {
        std::string folder = (std::filesystem::temp_directory_path() / "tessel_registry_XXXXXX").string();
        if (::mkdtemp(folder.data()) == nullptr) {
            std::abort();
        }
        m_folder = folder;
        ::setenv("TESSEL_REGISTRY", (folder + "/registry.db").c_str(), 1);
    }
    ~own_registry() {
        std::error_code ignored;
        std::filesystem::remove_all(m_folder, ignored);
    }
    own_registry(const own_registry&) = delete;
    own_registry& operator=(const own_registry&) = delete;

private:
    std::filesystem::path m_folder;
};

const own_registry k_own;

}  // namespace
