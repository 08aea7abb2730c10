#include "registry_database.h"

#include "os/registry.h"

#include <chrono>
#include <filesystem>
#include <new>
#include <system_error>

namespace kro::tessel::os {
namespace {

constexpr std::chrono::seconds k_patience{5};
constexpr int k_application =
    0x74736C72;  // "tslr" in the file's header, so that other files can be told apart

// Ids of keys begin at a random place, so that handles of one file's keys fit no key of a file that takes its
// place; and none is used twice. A version counts what changes the indexes of a list: names made and deleted.
// Names lie there twice: as they were made, little end first, and folded, big end first, which sorts.
constexpr const char* k_tables = R"(
    CREATE TABLE key (
        id INTEGER PRIMARY KEY AUTOINCREMENT,
        parent INTEGER NOT NULL,
        folded BLOB NOT NULL,
        name BLOB NOT NULL,
        keys_version INTEGER NOT NULL DEFAULT 0,
        values_version INTEGER NOT NULL DEFAULT 0,
        UNIQUE (parent, folded));
    CREATE TABLE value (
        id INTEGER PRIMARY KEY,
        key INTEGER NOT NULL,
        folded BLOB NOT NULL,
        name BLOB NOT NULL,
        type INTEGER NOT NULL,
        data BLOB NOT NULL,
        UNIQUE (key, folded));
    CREATE INDEX value_order ON value (key);
    INSERT INTO key (id, parent, folded, name) VALUES
        (1, 0, x'01', 'HKEY_CLASSES_ROOT'), (2, 0, x'02', 'HKEY_CURRENT_USER'),
        (3, 0, x'03', 'HKEY_LOCAL_MACHINE'), (4, 0, x'04', 'HKEY_USERS'),
        (5, 0, x'05', 'HKEY_PERFORMANCE_DATA'), (6, 0, x'06', 'HKEY_CURRENT_CONFIG'),
        (7, 0, x'07', 'HKEY_DYN_DATA'), (8, 0, x'08', 'HKEY_CURRENT_USER_LOCAL_SETTINGS');
    UPDATE sqlite_sequence SET seq = (random() & 0x3FFFFFFFFFFF) + 0x400000000000 WHERE name = 'key';
)";

// Data is only fetched where there is room for it: length() alone reads no more than the row's beginning.
const char* text_of(registry_sql which) noexcept {
    switch (which) {
        case registry_sql::begin:
            return "BEGIN IMMEDIATE";
        case registry_sql::commit:
            return "COMMIT";
        case registry_sql::rollback:
            return "ROLLBACK";
        case registry_sql::find_key:
            return "SELECT id FROM key WHERE parent = ?1 AND folded = ?2";
        case registry_sql::key_exists:
            return "SELECT 1 FROM key WHERE id = ?1";
        case registry_sql::find_value:
            return "SELECT type, length(data), CASE WHEN length(data) <= ?3 THEN data END FROM value"
                   " WHERE key = ?1 AND folded = ?2";
        case registry_sql::nth_value:
            return "SELECT (SELECT values_version FROM key WHERE id = ?1), id, name, type, length(data),"
                   " CASE WHEN length(data) <= ?4 THEN data END FROM value"
                   " WHERE key = ?1 AND id >= ?2 ORDER BY id LIMIT 1 OFFSET ?3";
        case registry_sql::nth_key:
            return "SELECT (SELECT keys_version FROM key WHERE id = ?1), folded, name FROM key"
                   " WHERE parent = ?1 AND folded >= ?2 ORDER BY folded LIMIT 1 OFFSET ?3";
        case registry_sql::insert_key:
            return "INSERT INTO key (parent, folded, name) VALUES (?1, ?2, ?3)";
        case registry_sql::keys_changed:
            return "UPDATE key SET keys_version = keys_version + 1 WHERE id = ?1";
        case registry_sql::parent_of:
            return "SELECT parent FROM key WHERE id = ?1";
        case registry_sql::has_keys:
            return "SELECT 1 FROM key WHERE parent = ?1 LIMIT 1";
        case registry_sql::delete_values:
            return "DELETE FROM value WHERE key = ?1";
        case registry_sql::delete_key:
            return "DELETE FROM key WHERE id = ?1";
        case registry_sql::update_value:
            return "UPDATE value SET type = ?3, data = ?4 WHERE key = ?1 AND folded = ?2";
        case registry_sql::insert_value:
            return "INSERT INTO value (key, folded, name, type, data) VALUES (?1, ?2, ?3, ?4, ?5)";
        case registry_sql::values_changed:
            return "UPDATE key SET values_version = values_version + 1 WHERE id = ?1";
        case registry_sql::delete_value:
            return "DELETE FROM value WHERE key = ?1 AND folded = ?2";
        default:
            return "";
    }
}

// SQLite takes a file of a few bytes for an empty one, and would overwrite them.
bool is_shorter_than_any(const std::string& name) {
    constexpr std::uintmax_t k_smallest_page = 512;
    std::error_code gone;
    const std::uintmax_t size = std::filesystem::file_size(name, gone);
    return !gone && size != 0 && size < k_smallest_page;
}

void check(int result) {
    if (result != SQLITE_OK) {
        throw failure_of(result);
    }
}

}  // namespace

registry_database::registry_database(const std::string& name) {
    sqlite3* connection = nullptr;
    const int opened =
        ::sqlite3_open_v2(name.c_str(), &connection, SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX, nullptr);
    m_connection.reset(connection);
    check(opened);
    ::sqlite3_busy_handler(connection, wait_for_lock, this);
    // Whatever is in the file can only be data: no program of its own runs.
    ::sqlite3_db_config(connection, SQLITE_DBCONFIG_DEFENSIVE, 1, nullptr);
    ::sqlite3_db_config(connection, SQLITE_DBCONFIG_TRUSTED_SCHEMA, 0, nullptr);
    ::sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_TRIGGER, 0, nullptr);
    ::sqlite3_db_config(connection, SQLITE_DBCONFIG_ENABLE_VIEW, 0, nullptr);
    m_empty = number("PRAGMA page_count") == 0;
    if (!m_empty) {
        check_kind();
    } else if (is_shorter_than_any(name)) {
        throw registry_failure{k_registry_not_registry_file};
    }
    // No mapping: a file that is cut while it is mapped ends the process. Deleted data, passwords among it,
    // is overwritten.
    run("PRAGMA mmap_size = 0; PRAGMA synchronous = FULL; PRAGMA secure_delete = ON");
    if (::sqlite3_db_readonly(connection, "main") == 0) {
        run("PRAGMA journal_mode = TRUNCATE");
    }
}

// Looks before anything is written, so that what isn't ours stays as it is.
void registry_database::check_kind() {
    if (number("PRAGMA application_id") != k_application) {
        throw registry_failure{k_registry_not_registry_file};
    }
    if (number("PRAGMA user_version") > k_registry_version) {
        throw registry_failure{k_registry_unknown_revision};
    }
}

void registry_database::make_tables() {
    registry_transaction all_or_nothing(*this);
    if (number("SELECT count(*) FROM sqlite_schema") == 0) {
        run(k_tables);
        run(("PRAGMA application_id = " + std::to_string(k_application)).c_str());
        run(("PRAGMA user_version = " + std::to_string(k_registry_version)).c_str());
        all_or_nothing.commit();
    } else {
        check_kind();  // another process was first
    }
    m_empty = false;
}

// SQLite's own handler waits ever longer between its attempts, up to 100 ms: beside a process that writes
// without a pause it can miss every gap.
int registry_database::wait_for_lock(void* self, int attempts) noexcept {
    auto& waiting_since = static_cast<registry_database*>(self)->m_waiting_since;
    const auto now = std::chrono::steady_clock::now();
    if (attempts == 0) {
        waiting_since = now;
    }
    if (now - waiting_since >= k_patience) {
        return 0;
    }
    ::sqlite3_sleep(1);
    return 1;
}

bool registry_database::is_moved() const noexcept {
    int moved = 0;
    ::sqlite3_file_control(m_connection.get(), "main", SQLITE_FCNTL_HAS_MOVED, &moved);
    return moved != 0;
}

void registry_database::abandon() noexcept {
    for (auto& one : m_statements) {
        static_cast<void>(one.release());
    }
    static_cast<void>(m_connection.release());
}

sqlite3_stmt* registry_database::statement(registry_sql which) {
    const auto index = static_cast<std::size_t>(which);
    if (m_statements[index] == nullptr) {
        sqlite3_stmt* made = nullptr;
        check(::sqlite3_prepare_v3(m_connection.get(), text_of(which), -1, SQLITE_PREPARE_PERSISTENT, &made,
                                   nullptr));
        m_statements[index].reset(made);
    }
    return m_statements[index].get();
}

void registry_database::run(const char* sql) {
    check(::sqlite3_exec(m_connection.get(), sql, nullptr, nullptr, nullptr));
}

std::int64_t registry_database::number(const char* sql) {
    sqlite3_stmt* made = nullptr;
    check(::sqlite3_prepare_v2(m_connection.get(), sql, -1, &made, nullptr));
    const std::unique_ptr<sqlite3_stmt, finalizer> statement(made);
    const int result = ::sqlite3_step(made);
    if (result != SQLITE_ROW) {
        throw failure_of(result);
    }
    return ::sqlite3_column_int64(made, 0);
}

bool registry_query::row() {
    const int result = ::sqlite3_step(m_statement);
    if (result != SQLITE_ROW && result != SQLITE_DONE) {
        throw failure_of(result);
    }
    return result == SQLITE_ROW;
}

std::string_view registry_query::bytes(int column) const {
    const void* const data = ::sqlite3_column_blob(m_statement, column);
    const auto size = static_cast<std::size_t>(::sqlite3_column_bytes(m_statement, column));
    if (data == nullptr && size != 0) {
        throw std::bad_alloc();
    }
    return {static_cast<const char*>(data), size};
}

void registry_query::bind(int position, std::int64_t number) {
    check(::sqlite3_bind_int64(m_statement, position, number));
}

void registry_query::bind(int position, std::string_view bytes) {
    check(bytes.empty()  // no bytes are bytes too, and not NULL
              ? ::sqlite3_bind_zeroblob(m_statement, position, 0)
              : ::sqlite3_bind_blob64(m_statement, position, bytes.data(), bytes.size(), SQLITE_STATIC));
}

registry_transaction::registry_transaction(registry_database& database) : m_database(database) {
    registry_query(database, registry_sql::begin).run();
}

registry_transaction::~registry_transaction() {
    if (m_database.in_transaction()) {
        try {
            registry_query(m_database, registry_sql::rollback).run();
        } catch (const registry_failure&) {
            // SQLite has rolled back by itself, or does when the connection ends.
        }
    }
}

void registry_transaction::commit() {
    registry_query(m_database, registry_sql::commit).run();
}

}  // namespace kro::tessel::os
