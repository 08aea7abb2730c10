// What takes long to see of the registry in a file: that five seconds are the limit, and rare moments of a
// kill.
#include "os/registry_file_fixture.h"

#include <sqlite3.h>

namespace {

using namespace tessel_test;

TEST_F(KilledWriter, LosesNothingInAThousandKills) {
    kill_and_look(1000);
}

TEST_F(RegistryFile, GivesUpAfterFiveSecondsOfAnothersLock) {
    const auto registry = open();
    ASSERT_EQ(write_to(*registry, TESSEL_W("v"), {1}), 0);
    sqlite3* other = nullptr;
    ASSERT_EQ(::sqlite3_open(file().c_str(), &other), 0);
    ASSERT_EQ(::sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), 0);
    const auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(write_to(*registry, TESSEL_W("v"), {2}), 170);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(4900));
    bytes data;
    EXPECT_EQ(read_from(*registry, TESSEL_W("v"), data), 170);
    ::sqlite3_close(other);
    EXPECT_EQ(read_from(*registry, TESSEL_W("v"), data), 0);
    EXPECT_EQ(data, bytes{1});
}

}  // namespace
