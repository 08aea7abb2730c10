// The registry in a file. The faults looked for, beside those of the contract: writes that were acknowledged
// and are lost (killed writers, other processes, forks, a file that is replaced), a file that others can
// read, damaged or foreign files that crash it or that it changes, and work that grows with the square of the
// entries.
#include "os/linux/registry_file.h"
#include "os/linux/registry_names.h"
#include "os/registry_contract.h"
#include "os/registry_file_fixture.h"

#include <fcntl.h>
#include <grp.h>
#include <sqlite3.h>
#include <sys/stat.h>

namespace {

using namespace tessel_test;
namespace os = kro::tessel::os;

class raw_database {
public:
    explicit raw_database(const std::string& file) {
        EXPECT_EQ(::sqlite3_open(file.c_str(), &m_database), 0);
    }
    ~raw_database() { ::sqlite3_close(m_database); }
    raw_database(const raw_database&) = delete;
    raw_database& operator=(const raw_database&) = delete;

    void run(const char* sql) const {
        EXPECT_EQ(::sqlite3_exec(m_database, sql, nullptr, nullptr, nullptr), 0)
            << ::sqlite3_errmsg(m_database);
    }
    sqlite3* get() const { return m_database; }

private:
    sqlite3* m_database = nullptr;
};

mode_t mode_of(const std::string& path) {
    struct stat about = {};
    EXPECT_EQ(::stat(path.c_str(), &about), 0) << path;
    return about.st_mode & 07777U;
}

TEST(RegistryPlace, FollowsTheEnvironment) {
    const struct {
        const char *file, *data, *home, *place;
    } rows[] = {
        {"/x/y.db", "/data", "/home/u", "/x/y.db"},
        {"", "/data", "/home/u", "/data/tessel/registry.db"},
        {nullptr, "relative", "/home/u", "/home/u/.local/share/tessel/registry.db"},
        {nullptr, nullptr, "/home/u", "/home/u/.local/share/tessel/registry.db"},
    };
    for (const auto& row : rows) {
        const pid_t child = in_child([&row] {
            const auto give = [](const char* name, const char* value) {
                return value == nullptr ? ::unsetenv(name) : ::setenv(name, value, 1);
            };
            give("TESSEL_REGISTRY", row.file);
            give("XDG_DATA_HOME", row.data);
            give("HOME", row.home);
            return os::registry_file_name() == row.place ? 0 : 1;
        });
        EXPECT_EQ(result_of(child), 0) << row.place;
    }
}

TEST_F(RegistryFile, IsMadeByTheFirstWriteForTheUserAlone) {
    const mode_t before = ::umask(0);
    const std::string name = folder() + "/a/b/registry.db";
    const auto registry = os::make_registry(name);
    HKEY key = nullptr;
    wchar text[8];
    std::uint32_t units = 8;
    EXPECT_EQ(registry->open_key(HKEY_CURRENT_USER, TESSEL_W("k"), &key), 2);
    EXPECT_EQ(registry->enum_key(HKEY_CURRENT_USER, 0, text, &units), 259);
    EXPECT_EQ(registry->delete_value(HKEY_CURRENT_USER, TESSEL_W("v")), 2);
    EXPECT_FALSE(fs::exists(folder() + "/a"));
    EXPECT_EQ(registry->create_key(HKEY_CURRENT_USER, TESSEL_W("k"), &key), 0);
    ::umask(before);
    EXPECT_EQ(mode_of(folder() + "/a"), 0700U);
    EXPECT_EQ(mode_of(folder() + "/a/b"), 0700U);
    EXPECT_EQ(mode_of(name), 0600U);
    EXPECT_EQ(mode_of(name + "-journal"), 0600U);
}

TEST_F(RegistryFile, ForgetsWhatIsDeletedOrReplaced) {
    const auto registry = open();
    const std::string secret = "a password that was";
    const bytes data(secret.begin(), secret.end());
    write_to(*registry, TESSEL_W("deleted"), data);
    write_to(*registry, TESSEL_W("replaced"), data);
    ASSERT_NE(content().find(secret), std::string::npos);
    ASSERT_EQ(registry->delete_value(HKEY_CURRENT_USER, TESSEL_W("deleted")), 0);
    ASSERT_EQ(write_to(*registry, TESSEL_W("replaced"), {1}), 0);
    EXPECT_EQ(content().find(secret), std::string::npos);
    EXPECT_EQ(fs::file_size(file() + "-journal"), 0U);
}

TEST_F(RegistryFile, LeavesWhatIsNotItsOwnAlone) {
    write_to(*open(), TESSEL_W("v"), numbered_value(3));
    const std::string whole = content();
    raw_database(file()).run("PRAGMA user_version = 2");
    const std::string newer = content();
    fs::remove(file());
    raw_database(file()).run("CREATE TABLE key (id); INSERT INTO key VALUES (1)");
    const std::string foreign = content();
    const struct {
        const char* what;
        std::string bytes;
        std::int32_t status;
    } rows[] = {
        {"text", std::string(10000, 'x'), 1017},  {"one byte", "x", 1017},
        {"zeros", std::string(8192, '\0'), 1017}, {"another program's database", foreign, 1017},
        {"a newer version's", newer, 1305},       {"cut", whole.substr(0, whole.size() / 2), 1015},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        set_content(row.bytes);
        const auto registry = open();
        bytes data;
        HKEY key = nullptr;
        EXPECT_EQ(read_from(*registry, TESSEL_W("v"), data), row.status);
        EXPECT_EQ(registry->create_key(HKEY_CURRENT_USER, TESSEL_W("k\\l"), &key), row.status);
        EXPECT_EQ(write_to(*registry, TESSEL_W("v"), {1}), row.status);
        EXPECT_TRUE(content() == row.bytes);
        set_content(whole);
        EXPECT_EQ(read_from(*registry, TESSEL_W("v"), data), 0);  // put right, it goes on
        EXPECT_EQ(data, numbered_value(3));
    }
    fs::remove(file());
    fs::create_directory(file());
    EXPECT_EQ(write_to(*open(), TESSEL_W("v"), {1}), 5);
    fs::remove(file());
    ASSERT_EQ(::mkfifo(file().c_str(), 0600), 0);
    EXPECT_EQ(write_to(*open(), TESSEL_W("v"), {1}), 5);
    EXPECT_EQ(write_to(*os::make_registry(file() + "/x/registry.db"), TESSEL_W("v"), {1}), 3);
    EXPECT_EQ(write_to(*os::make_registry(""), TESSEL_W("v"), {1}), 1011);
}

// Another file may take the place of the one that is open: nothing may be written where nobody finds it, and
// no handle may reach another key than its own.
TEST_F(RegistryFile, NoticesThatItsFileIsReplaced) {
    const auto registry = open();
    HKEY key = nullptr;
    ASSERT_EQ(registry->create_key(HKEY_CURRENT_USER, TESSEL_W("k"), &key), 0);
    const std::string other = file() + ".other";
    const unsigned char one = 1;
    HKEY same_place = nullptr;
    ASSERT_EQ(os::make_registry(other)->create_key(HKEY_CURRENT_USER, TESSEL_W("other"), &same_place), 0);
    fs::rename(other, file());
    EXPECT_EQ(registry->set_value(key, TESSEL_W("v"), REG_BINARY, &one, 1), 1018);
    EXPECT_EQ(write_to(*registry, TESSEL_W("v"), {1}), 0);
    bytes data;
    EXPECT_EQ(read_from(*open(), TESSEL_W("v"), data), 0);

    fs::remove(file());
    EXPECT_EQ(read_from(*registry, TESSEL_W("v"), data), 2);
    EXPECT_EQ(registry->set_value(key, TESSEL_W("v"), REG_BINARY, &one, 1), 1018);
    EXPECT_EQ(write_to(*registry, TESSEL_W("w"), {2}), 0);
    EXPECT_EQ(read_from(*open(), TESSEL_W("w"), data), 0);

    set_content(std::string(content().size(), 'x'));  // into the open file
    EXPECT_NE(write_to(*registry, TESSEL_W("w"), {3}), 0);
    EXPECT_EQ(read_from(*registry, TESSEL_W("w"), data), 1017);
}

TEST_F(RegistryFile, NeverCrashesOnDamage) {
    {
        const auto registry = open();
        HKEY key = nullptr;
        for (std::uint32_t i = 0; i < 40; ++i) {
            const wide_string name(1, static_cast<wchar>('A' + i));
            registry->create_key(HKEY_CURRENT_USER, name.c_str(), &key);
            write_to(*registry, name.c_str(), numbered_value(i));
        }
    }
    const std::string whole = content();
#if defined(__SANITIZE_THREAD__)  // to which one thread says nothing
    constexpr int rounds = 12;
#else
    constexpr int rounds = 120;
#endif
    std::mt19937 random(1);  // NOLINT(bugprone-random-generator-seed): a failure comes again
    for (int round = 0; round < rounds; ++round) {
        std::string damaged = whole;
        for (unsigned i = 0; i < 1 + random() % 30U; ++i) {
            damaged[random() % damaged.size()] = static_cast<char>(random());
        }
        set_content(damaged);
        const auto registry = open();
        bytes data;
        wchar name[256];
        HKEY key = nullptr;
        for (std::uint32_t i = 0; i < 40; ++i) {
            std::uint32_t units = 256;
            registry->enum_key(HKEY_CURRENT_USER, i, name, &units);
            std::uint32_t size = 0;
            units = 256;
            registry->enum_value(HKEY_CURRENT_USER, i, name, &units, nullptr, nullptr, &size);
            read_from(*registry, wide_string(1, static_cast<wchar>('A' + i)).c_str(), data);
        }
        registry->create_key(HKEY_CURRENT_USER, TESSEL_W("new\\key"), &key);
        registry->delete_key(HKEY_CURRENT_USER, TESSEL_W("A"));
        write_to(*registry, TESSEL_W("A"), {1});
    }
}

TEST_F(RegistryFile, IsReadWhereItMayNotBeWritten) {
    write_to(*open(), TESSEL_W("v"), {7});
    constexpr uid_t k_nobody = 65534;
    const pid_t child = in_child([this] {
        if (::geteuid() == 0 &&
            (::chown(folder().c_str(), k_nobody, k_nobody) != 0 ||
             ::chown(file().c_str(), k_nobody, k_nobody) != 0 || ::setgroups(0, nullptr) != 0 ||
             ::setresgid(k_nobody, k_nobody, k_nobody) != 0 ||
             ::setresuid(k_nobody, k_nobody, k_nobody) != 0)) {
            return 1;
        }
        bytes data;
        for (const mode_t file_mode : {0600U, 0400U}) {
            ::unlink((file() + "-journal").c_str());  // empty, or the folder needn't be written
            ::chmod(file().c_str(), file_mode);
            ::chmod(folder().c_str(), 0500);
            const auto registry = open();
            if (read_from(*registry, TESSEL_W("v"), data) != 0 || data != bytes{7} ||
                write_to(*registry, TESSEL_W("v"), {8}) != 5) {
                return 2;
            }
            ::chmod(folder().c_str(), 0700);
            ::chmod(file().c_str(), 0600);
            if (write_to(*registry, TESSEL_W("v"), {7}) != 0) {  // without being opened again
                return 3;
            }
        }
        ::unlink(file().c_str());
        ::chmod(folder().c_str(), 0500);
        const bool right =
            read_from(*open(), TESSEL_W("v"), data) == 2 && write_to(*open(), TESSEL_W("v"), {8}) == 5;
        ::chmod(folder().c_str(), 0700);
        return right ? 0 : 4;
    });
    EXPECT_EQ(result_of(child), 0);
}

// An enumeration that counted from the first entry each time would take minutes here.
TEST_F(RegistryFile, EnumeratesAHundredThousandKeys) {
    const auto registry = open();
    write_to(*registry, TESSEL_W("v"), {1});
    constexpr int k_keys = 100'000;
    {
        const raw_database raw(file());
        raw.run("BEGIN");
        sqlite3_stmt* insert = nullptr;
        ::sqlite3_prepare_v2(raw.get(), "INSERT INTO key (parent, folded, name) VALUES (2, ?1, ?2)", -1,
                             &insert, nullptr);
        for (int i = 0; i < k_keys; ++i) {
            const std::string digits = std::to_string(k_keys + i);
            const wide_string name(digits.begin(), digits.end());
            const std::string folded = os::folded_name(name);
            ::sqlite3_bind_blob64(insert, 1, folded.data(), folded.size(), SQLITE_STATIC);
            ::sqlite3_bind_blob64(insert, 2, name.data(), name.size() * 2, SQLITE_STATIC);
            ::sqlite3_step(insert);
            ::sqlite3_reset(insert);
        }
        ::sqlite3_finalize(insert);
        raw.run("COMMIT");
    }
    wchar name[256];
    int found = 0;
    wide_string last;
    for (std::uint32_t units = 256;
         registry->enum_key(HKEY_CURRENT_USER, static_cast<std::uint32_t>(found), name, &units) == 0;
         units = 256) {
        ASSERT_LT(last, wide_string(name));
        last = name;
        ++found;
    }
    EXPECT_EQ(found, k_keys);
}

TEST_F(RegistryFile, KeepsAValueOf64MiB) {
    bytes data(std::size_t{64} << 20U);
    for (std::size_t i = 0; i < data.size(); ++i) {
        data[i] = static_cast<unsigned char>(i * 2654435761U >> 24U);
    }
    const auto registry = open();
    ASSERT_EQ(write_to(*registry, TESSEL_W("v"), data), 0);
    bytes found;
    EXPECT_EQ(read_from(*registry, TESSEL_W("v"), found), 0);
    EXPECT_TRUE(found == data);
}

// Each writes its own value, says so, and finds at least what the other has said.
int write_beside(os::registry_service& registry, const shared_counters& said, std::size_t self,
                 std::uint32_t times) {
    const wchar* const names[] = {TESSEL_W("first"), TESSEL_W("second")};
    for (std::uint32_t number = 1; number <= times; ++number) {
        if (write_to(registry, names[self], numbered_value(number)) != 0) {
            return 1;
        }
        said[self] = number;
        const std::uint32_t least = said[1 - self];
        bytes data;
        std::uint32_t found = 0;
        if (least != 0 && read_from(registry, names[1 - self], data) != 0) {
            // It may have grown between the call for its size and the one for its data.
            continue;
        }
        if (!data.empty()) {
            std::memcpy(&found, data.data(), sizeof(found));
        }
        if (found < least || (found != 0 && data != numbered_value(found))) {
            return 2;
        }
    }
    return 0;
}

TEST_F(RegistryFile, TwoProcessesSeeEachOthersWrites) {
    const shared_counters said;
    const pid_t child = in_child([&] { return write_beside(*open(), said, 1, 200); });
    EXPECT_EQ(write_beside(*open(), said, 0, 200), 0);
    EXPECT_EQ(result_of(child), 0);
    EXPECT_EQ(said[0], 200U);
    EXPECT_EQ(said[1], 200U);
}

TEST_F(RegistryFile, ThreadsSeeEachOthersWrites) {
    const shared_counters said;
    const auto registry = open();
    int other = -1;
    std::thread second([&] { other = write_beside(*registry, said, 1, 100); });
    EXPECT_EQ(write_beside(*registry, said, 0, 100), 0);
    second.join();
    EXPECT_EQ(other, 0);
}

// The connection is the parent's alone: a child that used it, or only closed it, would end its locks.
TEST(RegistryFork, AChildGoesOnWithAConnectionOfItsOwn) {
    const temp_registry_key root;
    ASSERT_EQ(set(root.key(), TESSEL_W("parent"), {1}), 0);
    std::atomic<bool> stop{false};
    std::thread writer([&] {  // forks come while a call is under way
        while (!stop) {
            set(root.key(), TESSEL_W("thread"), {1});
        }
    });
    for (unsigned char round = 0; round < 10; ++round) {
        const pid_t child = in_child([&] {
            ::alarm(60);
            return get(root.key(), TESSEL_W("parent")) == bytes{1} &&
                           set(root.key(), TESSEL_W("child"), {round}) == 0
                       ? 0
                       : 1;
        });
        EXPECT_EQ(result_of(child), 0);
        EXPECT_EQ(get(root.key(), TESSEL_W("child")), bytes{round});
    }
    stop = true;
    writer.join();
    EXPECT_EQ(set(root.key(), TESSEL_W("parent"), {2}), 0);
}

TEST_F(KilledWriter, LosesNothingThatWasAcknowledged) {
    kill_and_look(200);
}

}  // namespace
