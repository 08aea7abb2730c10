// What every implementation of the registry promises. The faults looked for: values that come back changed or
// cut without a word, sizes that make callers write past their buffers, wrong numbers for what is missing or
// deleted, and names that match what they shouldn't.
#pragma once

#include "os/registry.h"
#include "os/registry_calls.h"

#include "support/temp_registry.h"
#include "tessel/base/types.h"

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

namespace tessel_test {

class RegistryContract : public testing::Test {
protected:
    const temp_registry_key m_root;
};

TEST_F(RegistryContract, OpensAndMakesKeysByPath) {
    const opened_key made(m_root.key(), TESSEL_W("a\\B\\c"), true);
    ASSERT_EQ(made.status, 0);
    const opened_key sibling(m_root.key(), TESSEL_W("a/b:1\\"), true);  // a slash is a letter
    const struct {
        const char* what;
        HKEY parent;
        wide_string path;
        std::int32_t opening;
        std::int32_t making;
    } rows[] = {
        {"all of the path", m_root.key(), TESSEL_W("a\\B\\c"), 0, 0},
        {"doubled and last backslashes", m_root.key(), TESSEL_W("a\\\\B\\\\\\c\\"), 0, 0},
        {"a slash", m_root.key(), TESSEL_W("A/B:1"), 0, 0},
        {"the key itself", m_root.key(), TESSEL_W(""), 0, 0},
        {"a backslash first", m_root.key(), TESSEL_W("\\a"), 161, 161},
        {"missing", m_root.key(), TESSEL_W("a\\none\\c"), 2, 0},
        {"null, with a path", nullptr, TESSEL_W("a"), 6, 6},
        {"null, without", nullptr, TESSEL_W(""), 0, 6},
        {"no handle", k_never_a_key, TESSEL_W("a"), 6, 6},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        EXPECT_EQ(opened_key(row.parent, row.path).status, row.opening);
        EXPECT_EQ(opened_key(row.parent, row.path, true).status, row.making);
    }
    EXPECT_EQ(opened_key(nullptr, TESSEL_W("")).handle, nullptr);
    EXPECT_EQ(opened_key(m_root.key(), TESSEL_W("none")).handle, nullptr);
    EXPECT_EQ(keys().open_key(m_root.key(), TESSEL_W("a"), nullptr), 87);
    EXPECT_EQ(keys().create_key(m_root.key(), TESSEL_W("a"), nullptr), 87);
    EXPECT_EQ(key_names(m_root.key()), (std::vector<wide_string>{TESSEL_W("a"), TESSEL_W("a/b:1")}));
    EXPECT_EQ(keys().close_key(HKEY_CURRENT_USER), 0);
    EXPECT_EQ(keys().close_key(nullptr), 6);
    EXPECT_EQ(opened_key(HKEY_CURRENT_USER, m_root.path()).status, 0);
    HKEY again = nullptr;
    ASSERT_EQ(keys().open_key(m_root.key(), TESSEL_W(""), &again), 0);
    EXPECT_NE(again, m_root.key());
    EXPECT_EQ(keys().close_key(again), 0) << "and no other handle of that key";
    EXPECT_EQ(keys().close_key(again), 6);
    EXPECT_EQ(set(again, TESSEL_W("v"), {2}), 6);
}

TEST_F(RegistryContract, KeepsEveryTypeAndSizeByteForByte) {
    const struct {
        std::uint32_t type;
        bytes data;
    } rows[] = {
        {REG_NONE, {}},
        {REG_SZ, {'h', 0, 'i', 0, 0, 0}},
        {REG_SZ, {'h', 0, 'i'}},       // odd
        {REG_SZ, {0x00, 0xD8, 0, 0}},  // half of a pair
        {REG_BINARY, {}},
        {REG_BINARY, bytes(5000, 0xA5)},
        {REG_DWORD, {1, 2, 3}},
        {REG_QWORD, {1, 2, 3, 4, 5, 6, 7, 8}},
        {0xFFFFFFFFU, {9}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(std::to_string(row.type) + " of " + std::to_string(row.data.size()));
        ASSERT_EQ(set(m_root.key(), TESSEL_W("v"), row.data, row.type), 0);  // each replaces the one before
        EXPECT_EQ(get(m_root.key(), TESSEL_W("V"), row.type), row.data);
        ASSERT_EQ(set(m_root.key(), TESSEL_W(""), row.data, row.type), 0);
        EXPECT_EQ(get(m_root.key(), TESSEL_W(""), row.type), row.data);
    }
    EXPECT_EQ(keys().set_value(m_root.key(), nullptr, REG_SZ, nullptr, 0), 0);
    EXPECT_EQ(get(m_root.key(), TESSEL_W(""), REG_SZ), bytes());
    EXPECT_EQ(keys().set_value(m_root.key(), TESSEL_W("v"), REG_SZ, nullptr, 1), 998);
    EXPECT_EQ(value_names(m_root.key()).size(), 2U);
}

// Callers size their buffers by these answers.
TEST_F(RegistryContract, SaysHowMuchRoomAValueNeeds) {
    set(m_root.key(), TESSEL_W("six"), {1, 2, 3, 4, 5, 6}, 77);
    set(m_root.key(), TESSEL_W("none"), {}, 77);
    constexpr std::uint32_t k_untouched = 0xEEEEEEEEU;
    const struct {
        const char* what;
        const wchar* name;
        bool data;
        std::uint32_t room;
        std::int32_t status;
        std::uint32_t type;
        std::uint32_t size;
        bool filled;
    } rows[] = {
        {"without data", TESSEL_W("six"), false, 0, 0, 77, 6, false},
        {"exactly", TESSEL_W("six"), true, 6, 0, 77, 6, true},
        {"one short", TESSEL_W("six"), true, 5, 234, 77, 6, false},
        {"no room", TESSEL_W("six"), true, 0, 234, 77, 6, false},
        {"nothing, no room", TESSEL_W("none"), true, 0, 0, 77, 0, false},
        {"missing", TESSEL_W("no"), true, 8, 2, k_untouched, 8, false},
        {"missing, without data", TESSEL_W("no"), false, 8, 2, k_untouched, 0, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        unsigned char data[8] = {0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE, 0xEE};
        std::uint32_t type = k_untouched;
        std::uint32_t size = row.room;
        EXPECT_EQ(keys().query_value(m_root.key(), row.name, &type, row.data ? data : nullptr, &size),
                  row.status);
        EXPECT_EQ(size, row.size);
        EXPECT_EQ(type, row.type);
        EXPECT_EQ(bytes(data, data + 8), row.filled ? (bytes{1, 2, 3, 4, 5, 6, 0xEE, 0xEE}) : bytes(8, 0xEE));
    }
    unsigned char one = 0;
    EXPECT_EQ(keys().query_value(m_root.key(), TESSEL_W("six"), nullptr, nullptr, nullptr), 0);
    EXPECT_EQ(keys().query_value(m_root.key(), TESSEL_W("six"), nullptr, &one, nullptr), 87);
    EXPECT_EQ(keys().query_value(nullptr, TESSEL_W("six"), nullptr, nullptr, nullptr), 6);
}

TEST_F(RegistryContract, EndsTextThatLacksItsZeroWhereThereIsRoom) {
    const unsigned char text[] = {'h', 0, 'i', 0, 1, 1};  // what is behind it is no zero
    keys().set_value(m_root.key(), TESSEL_W("v"), REG_SZ, text, 4);
    for (const std::uint32_t room : {4U, 6U, 8U}) {
        bytes data(8, 0xEE);
        std::uint32_t size = room;
        ASSERT_EQ(keys().query_value(m_root.key(), TESSEL_W("v"), nullptr, data.data(), &size), 0);
        EXPECT_EQ(size, 4U);
        const unsigned char behind = room > 4 ? 0 : 0xEE;
        EXPECT_EQ(data, (bytes{'h', 0, 'i', 0, behind, behind, 0xEE, 0xEE})) << room;
    }
}

TEST_F(RegistryContract, EnumeratesInStepsThatFitTheCallersBuffers) {
    for (const wchar* const name : {TESSEL_W("beta"), TESSEL_W("Alpha"), TESSEL_W("gamma")}) {
        ASSERT_EQ(opened_key(m_root.key(), name, true).status, 0);
    }
    EXPECT_EQ(key_names(m_root.key()),
              (std::vector<wide_string>{TESSEL_W("Alpha"), TESSEL_W("beta"), TESSEL_W("gamma")}));
    wchar name[8];
    std::uint32_t units = 4;
    EXPECT_EQ(keys().enum_key(m_root.key(), 1, name, &units), 234);
    units = 5;
    EXPECT_EQ(keys().enum_key(m_root.key(), 1, name, &units), 0);
    EXPECT_EQ(units, 4U);
    EXPECT_EQ(wide_string(name), TESSEL_W("beta"));
    units = 8;
    EXPECT_EQ(keys().enum_key(m_root.key(), 3, name, &units), 259);
    EXPECT_EQ(keys().enum_key(m_root.key(), 0xFFFFFFFFU, name, &units), 259);
    EXPECT_EQ(keys().enum_key(m_root.key(), 0, nullptr, &units), 87);
    EXPECT_EQ(keys().enum_key(m_root.key(), 0, name, nullptr), 87);

    set(m_root.key(), TESSEL_W("value"), {1, 2, 3}, 5);
    const struct {
        const char* what;
        std::uint32_t name_room, data_room;
        std::int32_t status;
        bool named, filled;
    } rows[] = {{"fits", 6, 3, 0, true, true},
                {"name one short", 5, 3, 234, false, false},
                {"data one short", 6, 2, 234, true, false}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        wchar value_name[8] = {};
        unsigned char data[4] = {};
        std::uint32_t name_units = row.name_room;
        std::uint32_t type = 0;
        std::uint32_t size = row.data_room;
        EXPECT_EQ(keys().enum_value(m_root.key(), 0, value_name, &name_units, &type, data, &size),
                  row.status);
        EXPECT_EQ(type, 5U);
        EXPECT_EQ(size, 3U);
        EXPECT_EQ(wide_string(value_name), row.named ? TESSEL_W("value") : TESSEL_W(""));
        EXPECT_EQ(data[0], row.filled ? 1 : 0);
    }
    unsigned char data[4];
    std::uint32_t type = 0;
    EXPECT_EQ(keys().enum_value(m_root.key(), 0, name, &(units = 8), &type, data, nullptr), 87);
    EXPECT_EQ(keys().enum_value(m_root.key(), 1, name, &(units = 8), nullptr, nullptr, nullptr), 259);
}

// As a caller does that empties a key, or that deletes every other one while it goes on.
TEST_F(RegistryContract, IndexesShiftWithEveryChange) {
    const auto fill = [&] {
        for (wchar letter = 'a'; letter <= 'f'; ++letter) {
            ASSERT_EQ(opened_key(m_root.key(), wide_string(1, letter), true).status, 0);
            ASSERT_EQ(set(m_root.key(), wide_string(1, letter), {1}), 0);
        }
    };
    fill();
    wchar name[8];
    for (std::uint32_t index = 0; index < 3; ++index) {
        std::uint32_t units = 8;
        ASSERT_EQ(keys().enum_key(m_root.key(), index, name, &units), 0);
        ASSERT_EQ(keys().delete_key(m_root.key(), name), 0);
        ASSERT_EQ(keys().enum_value(m_root.key(), index, name, &(units = 8), nullptr, nullptr, nullptr), 0);
        ASSERT_EQ(keys().delete_value(m_root.key(), name), 0);
    }
    const std::vector<wide_string> left = {TESSEL_W("b"), TESSEL_W("d"), TESSEL_W("f")};
    EXPECT_EQ(key_names(m_root.key()), left);
    EXPECT_EQ(value_names(m_root.key()), left);
    std::uint32_t units = 8;
    ASSERT_EQ(keys().enum_key(m_root.key(), 0, name, &units), 0);
    fill();  // in front of where the enumeration stands
    ASSERT_EQ(keys().enum_key(m_root.key(), 1, name, &(units = 8)), 0);
    EXPECT_EQ(wide_string(name), TESSEL_W("b"));
    EXPECT_EQ(value_names(m_root.key()).size(), 6U);
}

TEST_F(RegistryContract, DeletesWhatHasNothingBelow) {
    for (const wchar* const path : {TESSEL_W("a\\b\\c"), TESSEL_W("self")}) {
        ASSERT_EQ(opened_key(m_root.key(), path, true).status, 0);
    }
    const opened_key self(m_root.key(), TESSEL_W("self"));
    set(self.handle, TESSEL_W("v"), {1});
    set(m_root.key(), TESSEL_W("v"), {1});
    set(m_root.key(), TESSEL_W(""), {1});
    const struct {
        const char* what;
        HKEY parent;
        const wchar* path;
        std::int32_t status;
    } rows[] = {
        {"null", m_root.key(), nullptr, 87},
        {"missing", m_root.key(), TESSEL_W("none"), 2},
        {"has a key below it", m_root.key(), TESSEL_W("a"), 5},
        {"the key itself, which has some", m_root.key(), TESSEL_W(""), 5},
        {"nothing below", m_root.key(), TESSEL_W("A\\B\\C"), 0},
        {"now empty", m_root.key(), TESSEL_W("a\\b"), 0},
        {"the key itself, with a value", self.handle, TESSEL_W(""), 0},
        {"no handle", k_never_a_key, TESSEL_W("a"), 6},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(keys().delete_key(row.parent, row.path), row.status) << row.what;
    }
    EXPECT_EQ(key_names(m_root.key()), std::vector<wide_string>{TESSEL_W("a")});
    for (const std::int32_t status : {0, 2}) {
        EXPECT_EQ(keys().delete_value(m_root.key(), TESSEL_W("V")), status);
        EXPECT_EQ(keys().delete_value(m_root.key(), nullptr), status);
    }
}

TEST_F(RegistryContract, AHandleOfADeletedKeyOnlyCloses) {
    HKEY key = nullptr;
    HKEY result = nullptr;
    ASSERT_EQ(keys().create_key(m_root.key(), TESSEL_W("k"), &key), 0);
    set(key, TESSEL_W("v"), {1});
    ASSERT_EQ(keys().delete_key(m_root.key(), TESSEL_W("k")), 0);
    ASSERT_EQ(opened_key(m_root.key(), TESSEL_W("k"), true).status, 0);  // another one of that name
    wchar name[8];
    std::uint32_t units = 8;
    EXPECT_EQ(keys().open_key(key, TESSEL_W("x"), &result), 1018);
    EXPECT_EQ(keys().create_key(key, TESSEL_W("x"), &result), 1018);
    EXPECT_EQ(keys().query_value(key, TESSEL_W("v"), nullptr, nullptr, nullptr), 1018);
    EXPECT_EQ(set(key, TESSEL_W("v"), {1}), 1018);
    EXPECT_EQ(keys().enum_value(key, 0, name, &units, nullptr, nullptr, nullptr), 1018);
    EXPECT_EQ(keys().enum_key(key, 0, name, &units), 1018);
    EXPECT_EQ(keys().delete_value(key, TESSEL_W("v")), 1018);
    EXPECT_EQ(keys().delete_key(key, TESSEL_W("")), 1018);
    EXPECT_EQ(keys().close_key(key), 0);
    EXPECT_TRUE(value_names(opened_key(m_root.key(), TESSEL_W("k")).handle).empty());
}

TEST_F(RegistryContract, MatchesNamesWithoutCaseAndKeepsThem) {
    const struct {
        const char* what;
        wide_string made, asked;
        bool same;
    } rows[] = {
        {"ASCII", TESSEL_W("Name"), TESSEL_W("nAME"), true},
        {"Greek, Cyrillic", TESSEL_W("\u03A9\u0416"), TESSEL_W("\u03C9\u0436"), true},
        {"sharp s stays one letter", TESSEL_W("stra\u00DFe"), TESSEL_W("STRASSE"), false},
        {"an i without its dot", TESSEL_W("f\u0131le"), TESSEL_W("FILE"), false},
        {"half of a pair", wide_string(1, wchar{0xD83D}), wide_string(1, wchar{0xDE00}), false},
        {"the same half", wide_string(1, wchar{0xD83D}), wide_string(1, wchar{0xD83D}), true},
        {"a blank behind it", TESSEL_W("name "), TESSEL_W("name"), false},
        {"255 units", wide_string(255, 'x'), wide_string(255, 'X'), true},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        const temp_registry_key one;
        ASSERT_EQ(opened_key(one.key(), row.made, true).status, 0);
        ASSERT_EQ(set(one.key(), row.made, {1}), 0);
        EXPECT_EQ(opened_key(one.key(), row.asked).status, row.same ? 0 : 2);
        EXPECT_EQ(keys().query_value(one.key(), row.asked.c_str(), nullptr, nullptr, nullptr),
                  row.same ? 0 : 2);
        set(one.key(), row.asked, {2});
        EXPECT_EQ(value_names(one.key()).size(), row.same ? 1U : 2U);
        EXPECT_EQ(key_names(one.key()).front(), row.made);
    }
    const wide_string longest(16383, 'n');
    EXPECT_EQ(set(m_root.key(), longest, {1}), 0);
    EXPECT_EQ(value_names(m_root.key()).front(), longest);
    EXPECT_NE(set(m_root.key(), longest + longest, {1}), 0);
    EXPECT_EQ(opened_key(m_root.key(), wide_string(300, 'k'), true).status, 87);
}

}  // namespace tessel_test
