// One connection to the store's file: its tables, and the statements that the calls of the registry consist
// of.
#pragma once

#include "registry_failure.h"

#include <sqlite3.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

namespace kro::tessel::os {

/// Each is prepared on first use and kept.
enum class registry_sql : std::size_t {
    begin,
    commit,
    rollback,
    find_key,
    key_exists,
    find_value,
    nth_value,
    nth_key,
    insert_key,
    keys_changed,
    parent_of,
    has_keys,
    delete_values,
    delete_key,
    update_value,
    insert_value,
    values_changed,
    delete_value,
    count  ///< of them
};

/// The store's schema, at this version; a file with a greater one is left alone.
constexpr int k_registry_version = 1;

/// Not locked: one thread at a time. Throws registry_failure.
class registry_database {
public:
    /// Opens a file that exists. `empty()` then says whether it has no tables yet.
    explicit registry_database(const std::string& name);
    registry_database(const registry_database&) = delete;
    registry_database& operator=(const registry_database&) = delete;
    ~registry_database() = default;

    bool empty() const noexcept { return m_empty; }
    /// Makes the tables, unless another process has just done so.
    void make_tables();

    /// Whether the file's name no longer leads to what is open.
    bool is_moved() const noexcept;

    /// Gives up without touching the file: after a fork the connection is the parent's alone.
    void abandon() noexcept;

    sqlite3_stmt* statement(registry_sql which);
    int changes() const noexcept { return ::sqlite3_changes(m_connection.get()); }
    std::int64_t last_id() const noexcept { return ::sqlite3_last_insert_rowid(m_connection.get()); }
    bool in_transaction() const noexcept { return ::sqlite3_get_autocommit(m_connection.get()) == 0; }

private:
    struct closer {
        void operator()(sqlite3* connection) const noexcept { ::sqlite3_close_v2(connection); }
    };
    struct finalizer {
        void operator()(sqlite3_stmt* statement) const noexcept { ::sqlite3_finalize(statement); }
    };

    static int wait_for_lock(void* self, int attempts) noexcept;
    void run(const char* sql);
    std::int64_t number(const char* sql);
    void check_kind();

    std::unique_ptr<sqlite3, closer> m_connection;  // ends after its statements
    std::array<std::unique_ptr<sqlite3_stmt, finalizer>, static_cast<std::size_t>(registry_sql::count)>
        m_statements;
    bool m_empty = false;
    std::chrono::steady_clock::time_point m_waiting_since;
};

/// One run of a statement: its arguments, its rows, and its end, which gives the file free.
class registry_query {
public:
    template <class... Arguments>
    registry_query(registry_database& database, registry_sql which, const Arguments&... arguments)
        : m_statement(database.statement(which)) {
        int position = 0;
        (bind(++position, arguments), ...);
    }
    registry_query(const registry_query&) = delete;
    registry_query& operator=(const registry_query&) = delete;
    ~registry_query() { ::sqlite3_reset(m_statement); }

    /// Goes on to the next row. False: there is none.
    bool row();
    /// Runs what gives no rows.
    void run() {
        while (row()) {
        }
    }
    std::int64_t number(int column) const noexcept { return ::sqlite3_column_int64(m_statement, column); }
    /// Lent until the next row or the end.
    std::string_view bytes(int column) const;

private:
    void bind(int position, std::int64_t number);
    void bind(int position, std::string_view bytes);  // lent for as long as this lives

    sqlite3_stmt* const m_statement;
};

/// Changes that become visible, and durable, together: with commit(), or never.
class registry_transaction {
public:
    explicit registry_transaction(registry_database& database);
    registry_transaction(const registry_transaction&) = delete;
    registry_transaction& operator=(const registry_transaction&) = delete;
    ~registry_transaction();
    void commit();

private:
    registry_database& m_database;
};

}  // namespace kro::tessel::os
