// Before anything asks for the registry, its file is one of this process's own.
#include "support/linux/temp_folder.h"

namespace {

class own_registry {
public:
    own_registry() { ::setenv("TESSEL_REGISTRY", m_folder.file("registry.db").c_str(), 1); }

private:
    const tessel_test::temp_folder m_folder;
};

const own_registry k_own;

}  // namespace
