// Values of the registry beside the same statements on the same file, prepared once and run by themselves.
// The counter `ratio` is ours over the statement's calls a second.
#include "os/linux/registry_service.h"

#include "support/beside.h"
#include "tessel/base/types.h"

#include <sqlite3.h>
#include <stdlib.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

namespace {

using kro::tessel::wide_string;
namespace os = kro::tessel::os;

constexpr int k_keys = 100;  // as many proxies as a careful user could have accounts for
constexpr std::size_t k_value_bytes = 40;

/// A store with a hundred keys of three values, and a second way into it.
class store {
public:
    store() {
        m_folder = (std::filesystem::temp_directory_path() / "tessel_bench_XXXXXX").string();
        if (::mkdtemp(m_folder.data()) == nullptr) {
            std::abort();
        }
        const std::string file = m_folder + "/registry.db";
        m_registry = os::make_registry(file);
        const std::array<unsigned char, k_value_bytes> data{};
        for (int i = 0; i < k_keys; ++i) {
            const std::string name = "Software\\proxies\\proxy" + std::to_string(i) + ":8080";
            m_registry->create_key(HKEY_CURRENT_USER, wide_string(name.begin(), name.end()).c_str(), &m_key);
            for (const wchar* const value : {TESSEL_W("type"), TESSEL_W("user"), TESSEL_W("password")}) {
                m_registry->set_value(m_key, value, REG_BINARY, data.data(), k_value_bytes);
            }
        }
        ::sqlite3_open(file.c_str(), &m_raw);
        ::sqlite3_exec(m_raw, "PRAGMA journal_mode = TRUNCATE; PRAGMA synchronous = FULL", nullptr, nullptr,
                       nullptr);
        sqlite3_stmt* newest = prepare("SELECT max(id) FROM key");
        ::sqlite3_step(newest);
        m_id = ::sqlite3_column_int64(newest, 0);
        ::sqlite3_finalize(newest);
    }
    ~store() {
        ::sqlite3_close_v2(m_raw);
        m_registry.reset();
        std::filesystem::remove_all(m_folder);
    }
    store(const store&) = delete;
    store& operator=(const store&) = delete;

    sqlite3_stmt* prepare(const char* sql) const {
        sqlite3_stmt* made = nullptr;
        if (::sqlite3_prepare_v2(m_raw, sql, -1, &made, nullptr) != SQLITE_OK) {
            std::abort();
        }
        return made;
    }
    os::registry_service& registry() const { return *m_registry; }
    HKEY key() const { return m_key; }        ///< the last one
    std::int64_t id() const { return m_id; }  ///< its id

private:
    std::string m_folder;
    std::unique_ptr<os::registry_service> m_registry;
    HKEY m_key = nullptr;
    sqlite3* m_raw = nullptr;
    std::int64_t m_id = 0;
};

constexpr char k_folded[] = {0, 'U', 0, 'S', 0, 'E', 0, 'R'};

void bind_name(sqlite3_stmt* statement, std::int64_t id) {
    ::sqlite3_bind_int64(statement, 1, id);
    ::sqlite3_bind_blob(statement, 2, k_folded, sizeof(k_folded), SQLITE_STATIC);
}

void read_value(benchmark::State& state) {
    const store both;
    sqlite3_stmt* const statement =
        both.prepare("SELECT type, data FROM value WHERE key = ?1 AND folded = ?2");
    std::int64_t bytes = 0;
    tessel_bench::compare(
        state, k_value_bytes,
        [&] {
            bind_name(statement, both.id());
            ::sqlite3_step(statement);
            benchmark::DoNotOptimize(::sqlite3_column_blob(statement, 1));
            bytes += ::sqlite3_column_bytes(statement, 1);
            ::sqlite3_reset(statement);
        },
        [&] {
            unsigned char data[64];
            std::uint32_t type = 0;
            std::uint32_t size = sizeof(data);
            both.registry().query_value(both.key(), TESSEL_W("user"), &type, data, &size);
            benchmark::DoNotOptimize(data);
            bytes -= size;
        });
    ::sqlite3_finalize(statement);
    if (bytes != 0) {
        state.SkipWithError("the two sides read different values");
    }
}
BENCHMARK(read_value)->UseManualTime();

void write_value(benchmark::State& state) {
    const store both;
    sqlite3_stmt* const begin = both.prepare("BEGIN IMMEDIATE");
    sqlite3_stmt* const commit = both.prepare("COMMIT");
    sqlite3_stmt* const update = both.prepare("UPDATE value SET data = ?3 WHERE key = ?1 AND folded = ?2");
    unsigned char data[k_value_bytes] = {};
    tessel_bench::compare(
        state, std::size_t{8} << 10U,  // of the disk: a few calls a measurement are enough
        [&] {
            ++data[0];
            for (sqlite3_stmt* const each : {begin, update, commit}) {
                if (each == update) {
                    bind_name(update, both.id());
                    ::sqlite3_bind_blob(update, 3, data, sizeof(data), SQLITE_STATIC);
                }
                ::sqlite3_step(each);
                ::sqlite3_reset(each);
            }
        },
        [&] {
            ++data[0];
            if (both.registry().set_value(both.key(), TESSEL_W("user"), REG_BINARY, data, sizeof(data)) !=
                0) {
                std::abort();
            }
        });
    for (sqlite3_stmt* const each : {begin, update, commit}) {
        ::sqlite3_finalize(each);
    }
}
BENCHMARK(write_value)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
