#include "registry_store.h"

#include "os/registry.h"

#include "registry_file.h"

namespace kro::tessel::os {

registry_database* registry_store::open() {
    if (m_database && m_database->is_moved()) {
        m_database.reset();  // what would be written there, nobody would find again
    }
    if (!m_database && registry_file_exists(m_name)) {
        m_database.emplace(m_name);
    }
    return m_database ? &*m_database : nullptr;
}

registry_database* registry_store::for_reading() {
    registry_database* const database = open();
    if (database != nullptr && database->empty()) {
        close();  // another process may be about to make the tables
        return nullptr;
    }
    return database;
}

registry_database& registry_store::for_writing() {
    if (open() == nullptr) {
        make_registry_file(m_name);
        m_database.emplace(m_name);
    }
    if (m_database->empty()) {
        m_database->make_tables();
    }
    return *m_database;
}

void registry_store::abandon() noexcept {
    if (m_database) {
        m_database->abandon();
        m_database.reset();
    }
}

}  // namespace kro::tessel::os
