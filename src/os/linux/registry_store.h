// The user's registry in a file: finds it, makes it when there is something to keep, and notices when another
// file takes its place.
#pragma once

#include "registry_database.h"

#include <optional>
#include <string>

namespace kro::tessel::os {

/// Not locked. Throws registry_failure.
class registry_store {
public:
    /// name: of the file; empty: there is no place for one, and every call fails.
    explicit registry_store(std::string name) : m_name(std::move(name)) {}

    /// Null while there is no file, or none with tables: nothing has been kept so far. Reading makes none.
    registry_database* for_reading();
    registry_database& for_writing();

    /// Ends the connection; the next call opens the file again.
    void close() noexcept { m_database.reset(); }
    /// See registry_database::abandon.
    void abandon() noexcept;

private:
    registry_database* open();

    std::string m_name;
    std::optional<registry_database> m_database;
};

}  // namespace kro::tessel::os
