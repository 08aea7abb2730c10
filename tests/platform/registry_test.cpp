// Wrappers of keys. The faults looked for: handles that are closed twice, early or never, numbers and texts
// that are read from values of another kind, and the inverted result that callers rely on.
#include "tessel/platform/registry.h"

#include "support/temp_registry.h"

#include <gtest/gtest.h>

#include <optional>
#include <vector>

namespace {

using kro::tessel::wide_string;
using kro::tessel::registry::reg_key;
using kro::tessel::registry::reg_key_deleter;
using tessel_test::temp_registry_key;

bool is_open(HKEY key) {
    return temp_registry_key::keys().query_value(key, nullptr, nullptr, nullptr, nullptr) != 6;
}

TEST(RegKey, TheLastCopyClosesTheHandleOnce) {
    const temp_registry_key root;
    HKEY handle = nullptr;
    {
        std::optional<reg_key> first(std::in_place, root.key(), TESSEL_W("a\\b"), true);
        handle = first->key;
        ASSERT_NE(handle, nullptr);
        std::optional<reg_key> second(*first);
        reg_key third(nullptr);
        third = *second;
        third = *&third;
        EXPECT_EQ(*third.count, 3);
        first.reset();
        second.reset();
        EXPECT_TRUE(is_open(handle));
        reg_key other(root.key(), TESSEL_W("a"), false);
        const HKEY others = other.key;
        other = third;
        EXPECT_FALSE(is_open(others));
        EXPECT_TRUE(is_open(handle));
    }
    EXPECT_FALSE(is_open(handle));
    {
        const reg_key itself(root.key(), TESSEL_W(""), false);
        EXPECT_NE(itself.key, nullptr);
    }
    EXPECT_TRUE(is_open(root.key()));
    reg_key missing(root.key(), TESSEL_W("none"), false);
    EXPECT_EQ(missing.key, nullptr);
    EXPECT_EQ(missing.count, nullptr);
    EXPECT_EQ(missing.read_value(TESSEL_W("v"), nullptr, nullptr, nullptr), 6);
    EXPECT_EQ(missing.open_subkey(TESSEL_W("v"), true), nullptr);
    { const reg_key of_root(HKEY_CURRENT_USER); }
    EXPECT_TRUE(is_open(HKEY_CURRENT_USER));
}

TEST(RegKey, ReadsTextFromTextAndBytes) {
    const temp_registry_key root;
    reg_key key(root.key(), TESSEL_W("k"), true);
    const struct {
        const char* what;
        unsigned long type;
        std::vector<unsigned char> data;
        std::optional<wide_string> text;
    } rows[] = {
        {"text with a zero inside", REG_SZ, {'a', 0, 0, 0, 'b', 0, 0, 0}, TESSEL_W("a")},
        {"text without its zero", REG_SZ, {'a', 0, 'b', 0}, TESSEL_W("ab")},
        {"text of no bytes", REG_SZ, {}, TESSEL_W("")},
        {"six bytes", REG_BINARY, {'a', 0, 0, 0, 'c', 0}, wide_string(TESSEL_W("a\0c"), 3)},
        {"an odd byte at the end", REG_BINARY, {'a', 0, 'b'}, TESSEL_W("a")},
        {"text with variables", REG_EXPAND_SZ, {'a', 0, 0, 0}, std::nullopt},
        {"a number", REG_DWORD, {1, 0, 0, 0}, std::nullopt},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.what);
        ASSERT_EQ(key.write_value(TESSEL_W("v"), row.type, row.data.data(),
                                  static_cast<unsigned long>(row.data.size())),
                  0);
        wide_string text = TESSEL_W("before");
        EXPECT_EQ(key.read_value(TESSEL_W("v"), text), row.text.has_value());
        EXPECT_EQ(text, row.text.value_or(TESSEL_W("before")));
    }
    EXPECT_TRUE(key.write_value(TESSEL_W("v"), wide_string()));
    unsigned long type = 0;
    unsigned long size = 0;
    EXPECT_EQ(key.read_value(TESSEL_W("v"), &type, nullptr, &size), 0);
    EXPECT_EQ(type, REG_SZ);
    EXPECT_EQ(size, 2U);
}

TEST(RegKey, ReadsNumbersAndReturnsTheOpposite) {
    const temp_registry_key root;
    reg_key key(root.key(), TESSEL_W("k"), true);
    EXPECT_TRUE(key.write_value(TESSEL_W("n"), 0xFEDCBA98UL));
    unsigned long number = static_cast<unsigned long>(-1);
    EXPECT_FALSE(key.read_value(TESSEL_W("n"), number));
    EXPECT_EQ(number, 0xFEDCBA98UL);
    const unsigned char five[] = {1, 2, 3, 4, 5};
    ASSERT_EQ(key.write_value(TESSEL_W("long"), REG_DWORD, five, 5), 0);
    ASSERT_EQ(key.write_value(TESSEL_W("text"), REG_SZ, five, 5), 0);
    EXPECT_TRUE(key.read_value(TESSEL_W("long"), number));
    EXPECT_FALSE(key.read_value(TESSEL_W("text"), number));
    EXPECT_FALSE(key.read_value(TESSEL_W("none"), number));
    EXPECT_EQ(number, 0xFEDCBA98UL);
}

TEST(RegKey, EnumeratesAndDeletes) {
    const temp_registry_key root;
    reg_key key(root.key(), TESSEL_W("k"), true);
    const HKEY below = key.open_subkey(TESSEL_W("Below"), true);
    ASSERT_NE(below, nullptr);
    reg_key_deleter::del(below);
    EXPECT_FALSE(is_open(below));
    key.write_value(wide_string(255, 'n'), 1UL);
    wide_string name;
    unsigned char data[4] = {};
    unsigned long type = 0;
    unsigned long size = 3;
    EXPECT_EQ(key.enum_value(0, name, &type, data, &size), 234);
    EXPECT_TRUE(name.empty());
    EXPECT_EQ(size, 4U);
    EXPECT_EQ(key.enum_value(0, name, &type, data, &size), 0);
    EXPECT_EQ(data[0], 1);
    EXPECT_EQ(key.enum_value(1, name, nullptr, nullptr, nullptr), 259);
    ASSERT_TRUE(key.delete_value(name));
    key.write_value(wide_string(256, 'n'), 1UL);
    name = TESSEL_W("before");
    EXPECT_EQ(key.enum_value(0, name, nullptr, nullptr, nullptr), 234);
    EXPECT_FALSE(key.enum_value(0, name));
    EXPECT_EQ(name, TESSEL_W("before"));
    EXPECT_TRUE(key.enum_subkey(0, name));
    EXPECT_EQ(name, TESSEL_W("Below"));
    EXPECT_FALSE(key.enum_subkey(1, name));
    EXPECT_FALSE(reg_key(root.key(), TESSEL_W(""), false).delete_subkey(TESSEL_W("k")));
    EXPECT_TRUE(key.delete_subkey(TESSEL_W("below")));
    EXPECT_TRUE(key.delete_subkey(TESSEL_W("")));
    EXPECT_EQ(key.read_value(TESSEL_W("v"), nullptr, nullptr, nullptr), 1018);
}

}  // namespace
