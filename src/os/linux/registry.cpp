#include "os/registry.h"

#include "registry_file.h"
#include "registry_handles.h"
#include "registry_names.h"
#include "registry_service.h"
#include "registry_store.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <exception>
#include <limits>
#include <mutex>
#include <utility>

namespace kro::tessel::os {
namespace {

using wide_view = std::basic_string_view<wchar>;

constexpr std::int64_t k_no_key = 0;
constexpr std::chrono::seconds k_patience_of_a_fork{1};

bool is_text(std::uint32_t type) noexcept {
    return type == REG_SZ || type == REG_EXPAND_SZ || type == REG_MULTI_SZ;
}

/// Where a caller wants a value's type and data.
struct value_outputs {
    std::uint32_t* type;
    unsigned char* data;
    std::uint32_t* size;
    std::uint32_t room = size == nullptr ? 0 : *size;  // the caller's, before it gets the size

    bool valid() const noexcept { return data == nullptr || size != nullptr; }
    /// For the statements: how much data to fetch.
    std::int64_t wanted() const noexcept { return data == nullptr ? -1 : std::int64_t{room}; }

    void set_type_and_size(std::int64_t value_type, std::int64_t value_size) const noexcept {
        if (type != nullptr) {
            *type = static_cast<std::uint32_t>(value_type);
        }
        if (size != nullptr) {
            *size = static_cast<std::uint32_t>(value_size);
        }
    }

    std::int32_t set(std::int64_t value_type, std::int64_t value_size, std::string_view value) const {
        set_type_and_size(value_type, value_size);
        const auto bytes = static_cast<std::uint32_t>(value_size);
        if (data == nullptr) {
            return k_registry_ok;
        }
        if (bytes > room) {
            return k_registry_more_data;
        }
        std::copy(value.begin(), value.end(), data);
        if (is_text(static_cast<std::uint32_t>(value_type))) {
            end_text(bytes);
        }
        return k_registry_ok;
    }

private:
    // Not every program writes the final zero, and few expect it to be missing.
    void end_text(std::uint32_t bytes) const noexcept {
        const bool ended = bytes >= sizeof(wchar) && data[bytes - 1] == 0 && data[bytes - 2] == 0;
        if (bytes != 0 && !ended && room - bytes >= sizeof(wchar)) {
            std::memset(data + bytes, 0, sizeof(wchar));
        }
    }
};

/// Fills in a name in an enumeration. False: too little room, nothing is set.
bool set_name(std::string_view bytes, wchar* name, std::uint32_t* units) {
    const std::size_t length = bytes.size() / sizeof(wchar);
    if (length >= *units) {
        return false;
    }
    std::copy_n(bytes.data(), length * sizeof(wchar), reinterpret_cast<char*>(name));
    name[length] = wchar{};
    *units = static_cast<std::uint32_t>(length);
    return true;
}

bool key_exists(registry_database* database, std::int64_t id) {
    return is_root(id) ||
           (database != nullptr && registry_query(*database, registry_sql::key_exists, id).row());
}

/// What a call answers that didn't find what it was looking for in a key.
std::int32_t missing_in(registry_database* database, const open_key& key, std::int32_t status) {
    return key_exists(database, key.id) ? status : std::int32_t{k_registry_key_deleted};
}

std::int64_t find_key(registry_database& database, std::int64_t parent, const key_step& step) {
    registry_query query(database, registry_sql::find_key, parent, step.folded);
    return query.row() ? query.number(0) : k_no_key;
}

/// The key at a path, or none. No transaction: keys can't move, so it is one that was there.
std::int64_t find_path(registry_database* database, std::int64_t id, const std::vector<key_step>& steps) {
    for (const key_step& step : steps) {
        id = database == nullptr ? k_no_key : find_key(*database, id, step);
        if (id == k_no_key) {
            break;
        }
    }
    return id;
}

/// Makes what is missing of a path. Returns the last key.
std::int64_t make_path(registry_database& database, std::int64_t id, const std::vector<key_step>& steps) {
    bool made = false;
    for (const key_step& step : steps) {
        const std::int64_t parent = id;
        id = made ? k_no_key : find_key(database, parent, step);
        if (id == k_no_key) {
            registry_query(database, registry_sql::insert_key, parent, step.folded, bytes_of(step.name))
                .run();
            id = database.last_id();
            registry_query(database, registry_sql::keys_changed, parent).run();
            made = true;
        }
    }
    return id;
}

std::int32_t remove_key(registry_database& database, std::int64_t id) {
    if (registry_query(database, registry_sql::has_keys, id).row()) {
        return k_registry_access_denied;
    }
    std::int64_t parent = k_no_key;
    {
        registry_query query(database, registry_sql::parent_of, id);
        parent = query.row() ? query.number(0) : k_no_key;
    }
    registry_query(database, registry_sql::delete_values, id).run();
    registry_query(database, registry_sql::delete_key, id).run();
    registry_query(database, registry_sql::keys_changed, parent).run();
    return k_registry_ok;
}

void read_position(const registry_query& row, std::string& position) {
    position = row.bytes(1);
}
void read_position(const registry_query& row, std::int64_t& position) {
    position = row.number(1);
}

/// Hands the entry at `index` of a list of the key's to `take`: counted from where the enumeration was last,
/// as long as the list is the same. False: there is none.
template <class Position, class Take, class... More>
bool with_entry(registry_database& database, registry_sql which, std::int64_t key,
                enumeration<Position>& last, std::uint32_t index, const Take& take, const More&... more) {
    if (index < last.index) {
        last = {};
    }
    for (;;) {
        const Position from = last.position;
        registry_query row(database, which, key, from, std::int64_t{index - last.index}, more...);
        const bool from_the_first = last.version < 0;
        if (row.row() && (from_the_first || row.number(0) == last.version)) {
            last.index = index;
            last.version = row.number(0);
            read_position(row, last.position);
            take(row);
            return true;
        }
        if (from_the_first) {
            return false;
        }
        last = {};
    }
}

class sqlite_registry final : public registry_service {
public:
    explicit sqlite_registry(std::string file) : m_store(std::move(file)) {}

    std::int32_t open_key(HKEY parent, const wchar* path, HKEY* result) override;
    std::int32_t create_key(HKEY parent, const wchar* path, HKEY* result) override;
    std::int32_t close_key(HKEY key) override;
    std::int32_t query_value(HKEY key, const wchar* name, std::uint32_t* type, unsigned char* data,
                             std::uint32_t* size) override;
    std::int32_t set_value(HKEY key, const wchar* name, std::uint32_t type, const unsigned char* data,
                           std::uint32_t size) override;
    std::int32_t enum_value(HKEY key, std::uint32_t index, wchar* name, std::uint32_t* name_units,
                            std::uint32_t* type, unsigned char* data, std::uint32_t* size) override;
    std::int32_t enum_key(HKEY key, std::uint32_t index, wchar* name, std::uint32_t* name_units) override;
    std::int32_t delete_value(HKEY key, const wchar* name) override;
    std::int32_t delete_key(HKEY key, const wchar* path) override;

    void before_fork() {
        // By the system's clock: ThreadSanitizer doesn't see locks by the steady one.
        m_forks_in_order = m_mutex.try_lock_until(std::chrono::system_clock::now() + k_patience_of_a_fork);
    }
    void after_fork_in_parent() {
        if (m_forks_in_order) {
            m_mutex.unlock();
        }
    }
    void after_fork_in_child() {
        if (m_forks_in_order) {
            m_store.abandon();
            m_mutex.unlock();
        } else {
            m_unusable = true;  // another thread's call, which doesn't go on here, holds the lock for ever
        }
    }

private:
    /// Runs one call under the lock; how it fails becomes its result.
    template <class Call>
    std::int32_t answer(Call call) noexcept;
    /// Changes the store in one transaction: kept if `change` returns 0.
    template <class Change>
    std::int32_t change(std::int64_t key, Change change);

    std::timed_mutex m_mutex;  // guards all below but m_unusable
    registry_handles m_handles;
    registry_store m_store;
    bool m_forks_in_order = false;
    std::atomic<bool> m_unusable{false};
};

template <class Call>
std::int32_t sqlite_registry::answer(Call call) noexcept {
    if (m_unusable) {
        return k_registry_busy;
    }
    try {
        const std::lock_guard lock(m_mutex);
        try {
            return call();
        } catch (const registry_failure& failure) {
            if (failure.of_connection) {
                m_store.close();
            }
            return failure.status;
        }
    } catch (const std::exception&) {
        return k_registry_out_of_memory;
    }
}

template <class Change>
std::int32_t sqlite_registry::change(std::int64_t key, Change change) {
    registry_database& database = m_store.for_writing();
    registry_transaction transaction(database);
    if (!key_exists(&database, key)) {
        return k_registry_key_deleted;
    }
    const std::int32_t status = change(database);
    if (status == k_registry_ok) {
        transaction.commit();
        if (database.is_moved()) {
            throw registry_failure{k_registry_io_failed, true};  // written where nobody will find it
        }
    }
    return status;
}

std::int32_t sqlite_registry::open_key(HKEY parent, const wchar* path, HKEY* result) {
    if (result == nullptr) {
        return k_registry_invalid_argument;
    }
    *result = nullptr;
    if (parent == nullptr && (path == nullptr || *path == 0)) {
        return k_registry_ok;
    }
    return answer([&]() -> std::int32_t {
        const std::int64_t from = m_handles.find(parent).id;
        const std::vector<key_step> steps = steps_of(path);
        registry_database* const database = m_store.for_reading();
        const std::int64_t id = find_path(database, from, steps);
        if (id == k_no_key || (steps.empty() && !key_exists(database, id))) {
            return key_exists(database, from) ? k_registry_not_found : k_registry_key_deleted;
        }
        *result = m_handles.open(id);
        return k_registry_ok;
    });
}

std::int32_t sqlite_registry::create_key(HKEY parent, const wchar* path, HKEY* result) {
    if (result == nullptr) {
        return k_registry_invalid_argument;
    }
    *result = nullptr;
    return answer([&]() -> std::int32_t {
        const std::int64_t from = m_handles.find(parent).id;
        if (path == nullptr) {
            return k_registry_bad_key;
        }
        const std::vector<key_step> steps = steps_of(path);
        std::int64_t id = steps.empty() ? k_no_key : find_path(m_store.for_reading(), from, steps);
        std::int32_t status = k_registry_ok;
        if (id == k_no_key) {
            status = change(from, [&](registry_database& database) -> std::int32_t {
                id = make_path(database, from, steps);
                return k_registry_ok;
            });
        }
        *result = status == k_registry_ok ? m_handles.open(id) : nullptr;
        return status;
    });
}

std::int32_t sqlite_registry::close_key(HKEY key) {
    return answer(
        [&]() -> std::int32_t { return m_handles.close(key) ? k_registry_ok : k_registry_invalid_handle; });
}

std::int32_t sqlite_registry::query_value(HKEY key, const wchar* name, std::uint32_t* type,
                                          unsigned char* data, std::uint32_t* size) {
    const value_outputs out{type, data, size};
    return answer([&]() -> std::int32_t {
        const os::open_key& from = m_handles.find(key);
        if (!out.valid()) {
            return k_registry_invalid_argument;
        }
        const std::string folded = folded_name(value_name(name));
        registry_database* const database = m_store.for_reading();
        if (database != nullptr) {
            registry_query query(*database, registry_sql::find_value, from.id, folded, out.wanted());
            if (query.row()) {
                return out.set(query.number(0), query.number(1), query.bytes(2));
            }
        }
        if (data == nullptr && size != nullptr) {
            *size = 0;
        }
        return missing_in(database, from, k_registry_not_found);
    });
}

std::int32_t sqlite_registry::set_value(HKEY key, const wchar* name, std::uint32_t type,
                                        const unsigned char* data, std::uint32_t size) {
    return answer([&]() -> std::int32_t {
        const std::int64_t id = m_handles.find(key).id;
        if (data == nullptr && size != 0) {
            return k_registry_no_access;
        }
        const wide_view units = value_name(name);
        const std::string folded = folded_name(units);
        const std::string_view bytes(reinterpret_cast<const char*>(data), size);
        return change(id, [&](registry_database& database) -> std::int32_t {
            const std::int64_t number = type;
            registry_query(database, registry_sql::update_value, id, folded, number, bytes).run();
            if (database.changes() == 0) {
                registry_query(database, registry_sql::insert_value, id, folded, bytes_of(units), number,
                               bytes)
                    .run();
                registry_query(database, registry_sql::values_changed, id).run();
            }
            return k_registry_ok;
        });
    });
}

std::int32_t sqlite_registry::enum_value(HKEY key, std::uint32_t index, wchar* name,
                                         std::uint32_t* name_units, std::uint32_t* type, unsigned char* data,
                                         std::uint32_t* size) {
    const value_outputs out{type, data, size};
    return answer([&]() -> std::int32_t {
        os::open_key& from = m_handles.find(key);
        if (name == nullptr || name_units == nullptr || !out.valid()) {
            return k_registry_invalid_argument;
        }
        registry_database* const database = m_store.for_reading();
        std::int32_t status = k_registry_more_data;
        const auto take = [&](const registry_query& row) {
            if (set_name(row.bytes(2), name, name_units)) {
                status = out.set(row.number(3), row.number(4), row.bytes(5));
            } else {
                out.set_type_and_size(row.number(3), row.number(4));
            }
        };
        const bool found = database != nullptr && with_entry(*database, registry_sql::nth_value, from.id,
                                                             from.values, index, take, out.wanted());
        return found ? status : missing_in(database, from, k_registry_no_more_items);
    });
}

std::int32_t sqlite_registry::enum_key(HKEY key, std::uint32_t index, wchar* name,
                                       std::uint32_t* name_units) {
    return answer([&]() -> std::int32_t {
        os::open_key& from = m_handles.find(key);
        if (name == nullptr || name_units == nullptr) {
            return k_registry_invalid_argument;
        }
        registry_database* const database = m_store.for_reading();
        bool named = false;
        const auto take = [&](const registry_query& row) {
            named = set_name(row.bytes(2), name, name_units);
        };
        if (database == nullptr ||
            !with_entry(*database, registry_sql::nth_key, from.id, from.keys, index, take)) {
            return missing_in(database, from, k_registry_no_more_items);
        }
        return named ? k_registry_ok : k_registry_more_data;
    });
}

std::int32_t sqlite_registry::delete_value(HKEY key, const wchar* name) {
    return answer([&]() -> std::int32_t {
        const std::int64_t id = m_handles.find(key).id;
        const std::string folded = folded_name(value_name(name));
        if (m_store.for_reading() == nullptr) {
            return is_root(id) ? k_registry_not_found : k_registry_key_deleted;
        }
        return change(id, [&](registry_database& database) -> std::int32_t {
            registry_query(database, registry_sql::delete_value, id, folded).run();
            if (database.changes() == 0) {
                return k_registry_not_found;
            }
            registry_query(database, registry_sql::values_changed, id).run();
            return k_registry_ok;
        });
    });
}

std::int32_t sqlite_registry::delete_key(HKEY key, const wchar* path) {
    return answer([&]() -> std::int32_t {
        const std::int64_t from = m_handles.find(key).id;
        if (path == nullptr) {
            return k_registry_invalid_argument;
        }
        const std::vector<key_step> steps = steps_of(path);
        if (steps.empty() && is_root(from)) {
            return k_registry_access_denied;
        }
        if (m_store.for_reading() == nullptr) {
            return is_root(from) ? k_registry_not_found : k_registry_key_deleted;
        }
        return change(from, [&](registry_database& database) {
            const std::int64_t id = find_path(&database, from, steps);
            return id == k_no_key ? std::int32_t{k_registry_not_found} : remove_key(database, id);
        });
    });
}

sqlite_registry* g_registry = nullptr;  // for the handlers of forks

}  // namespace

std::unique_ptr<registry_service> make_registry(std::string file) {
    return std::make_unique<sqlite_registry>(std::move(file));
}

registry_service& registry_keys() {
    // Never destroyed: a host's own objects may close their keys as late as they like.
    static sqlite_registry* const registry = [] {
        g_registry = new sqlite_registry(registry_file_name());
        ::pthread_atfork([] { g_registry->before_fork(); }, [] { g_registry->after_fork_in_parent(); },
                         [] { g_registry->after_fork_in_child(); });
        return g_registry;
    }();
    return *registry;
}

}  // namespace kro::tessel::os
