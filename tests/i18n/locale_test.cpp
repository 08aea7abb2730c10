// The order in which loaders and listeners are called is what hosts build on: strings that are gone too
// early, a listener that is called after it has gone, a failed change that leaves half of it.
#include "tessel/i18n/locale.h"

#include "support/ascii.h"
#include "tessel/i18n/inifile_locale.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

namespace {

using namespace kro::tessel::i18n;
using kro::tessel::wide_string;
using tessel_test::plain;
using calls = std::vector<std::string>;

/// Every test begins with the registry as the process's last selection left it: names are the test's own.
struct LocaleTest : testing::Test {
    struct data final : locale_data {
        explicit data(std::string its_name) : name(std::move(its_name)) {}
        wide_string get_string(const wide_string& key) override {
            return key + wide_string(name.begin(), name.end());
        }
        std::string name;
    };

    struct loader final : locale_loader {
        loader(calls& its_log, const char* its_name) : log(its_log), name(its_name) {}
        locale_data* load(const wide_string& wanted) override {
            log.push_back(name + " loads " + plain(wanted));
            return fails ? nullptr : new data(plain(wanted));
        }
        void unload(locale_data* old) override {
            const auto* const own = dynamic_cast<data*>(old);
            log.push_back(name + " unloads " + (own != nullptr ? own->name : "what another test left"));
            delete old;
        }
        calls& log;
        std::string name;
        bool fails = false;
    };

    struct listener final : locale_listener {
        void on_locale_changing() override { act("changing"); }
        void on_locale_changed() override { act("changed to " + plain(get_current_locale_name())); }
        void act(const std::string& what) {
            log->push_back(std::to_string(number) + " " + what);
            if (action) {
                action();
            }
        }
        calls* log = nullptr;
        int number = 0;
        std::function<void()> action;
    };

    LocaleTest() {
        for (std::size_t number = 0; number < listeners.size(); ++number) {
            listeners[number].log = &log;
            listeners[number].number = static_cast<int>(number);
        }
        register_default_locale_loader(&fallback);
    }
    ~LocaleTest() override {
        remove_all_locale_listeners();
        select_locale(TESSEL_W("between tests"));
        for (const wchar* const name : {TESSEL_W("A"), TESSEL_W("B")}) {
            unregister_locale_loader(name);
        }
        // What is in force now has nobody to go back to.
        static inifile_locale_loader none(TESSEL_W("/nowhere"));
        register_default_locale_loader(&none);
        select_locale(TESSEL_W("none"));
        register_default_locale_loader(nullptr);
        log.clear();
    }

    calls log;
    loader fallback{log, "default"};
    loader of_a{log, "A's"};
    loader of_b{log, "B's"};
    std::array<listener, 4> listeners;
};

TEST_F(LocaleTest, BeginsWithTheKeysThemselves) {
    // The first test of this program: nothing has been selected yet.
    EXPECT_EQ(get_locale_string(L"abc"), TESSEL_W("abc"));
    EXPECT_EQ(get_current_locale_name(), TESSEL_W(""));
    EXPECT_TRUE(select_locale(TESSEL_W("")));
    EXPECT_EQ(log, calls());
}

TEST_F(LocaleTest, ChangesInTheOrderThatHostsCountOn) {
    register_locale_loader(TESSEL_W("A"), &of_a);
    register_locale_loader(L"B", &of_b);
    ASSERT_TRUE(select_locale(TESSEL_W("A")));
    for (const std::size_t number : {2U, 0U, 2U, 1U}) {
        add_locale_listener(&listeners[number]);
    }
    remove_locale_listener(&listeners[1]);
    remove_locale_listener(&listeners[3]);
    log.clear();
    EXPECT_TRUE(select_locale(TESSEL_W("B")));
    EXPECT_EQ(log, (calls{"B's loads B", "0 changing", "2 changing", "A's unloads A", "0 changed to B",
                          "2 changed to B"}));
    EXPECT_EQ(get_locale_string(TESSEL_W("key")), TESSEL_W("keyB"));
    log.clear();
    EXPECT_TRUE(select_locale(L"B"));
    EXPECT_EQ(log, calls()) << "in force already";
    EXPECT_TRUE(select_locale(TESSEL_W("b")));
    EXPECT_EQ(log.front(), "default loads b") << "another name";
}

TEST_F(LocaleTest, ChangesNothingWithoutNewStrings) {
    register_locale_loader(TESSEL_W("A"), &of_a);
    ASSERT_TRUE(select_locale(TESSEL_W("A")));
    add_locale_listener(&listeners[0]);
    fallback.fails = true;
    log.clear();
    EXPECT_FALSE(select_locale(TESSEL_W("B")));
    EXPECT_EQ(log, calls{"default loads B"});
    register_locale_loader(TESSEL_W("B"), nullptr);
    EXPECT_EQ(register_default_locale_loader(nullptr), &fallback);
    EXPECT_EQ(register_default_locale_loader(nullptr), nullptr);
    EXPECT_FALSE(select_locale(TESSEL_W("B")));
    EXPECT_EQ(get_locale_string(TESSEL_W("key")), TESSEL_W("keyA"));
    register_default_locale_loader(&fallback);
    fallback.fails = false;

    listeners[0].action = [] { throw std::runtime_error("not now"); };
    log.clear();
    EXPECT_THROW(select_locale(TESSEL_W("C")), std::runtime_error);
    EXPECT_EQ(log, (calls{"default loads C", "0 changing", "default unloads C"}));
    EXPECT_EQ(get_current_locale_name(), TESSEL_W("A"));
    listeners[0].action = nullptr;
}

TEST_F(LocaleTest, HandsOldStringsToWhoeverIsRegisteredThen) {
    register_locale_loader(TESSEL_W("A"), &of_a);
    ASSERT_TRUE(select_locale(TESSEL_W("A")));
    register_locale_loader(TESSEL_W("A"), &of_b);
    log.clear();
    EXPECT_TRUE(select_locale(TESSEL_W("C")));
    EXPECT_EQ(log, (calls{"default loads C", "B's unloads A"}));
    ASSERT_TRUE(select_locale(TESSEL_W("A")));
    unregister_locale_loader(L"A");
    unregister_locale_loader(TESSEL_W("unknown"));
    log.clear();
    EXPECT_TRUE(select_locale(TESSEL_W("D")));
    EXPECT_EQ(log, (calls{"default loads D", "default unloads A"}));
}

TEST_F(LocaleTest, ListenersMayComeAndGoDuringTheCalls) {
    add_locale_listener(&listeners[0]);
    add_locale_listener(&listeners[1]);
    add_locale_listener(&listeners[2]);
    listeners[0].action = [this] {
        remove_locale_listener(&listeners[0]);
        remove_locale_listener(&listeners[2]);
        add_locale_listener(&listeners[3]);
    };
    log.clear();
    EXPECT_TRUE(select_locale(TESSEL_W("A")));
    EXPECT_EQ(std::vector<std::string>(log.begin() + 1, log.begin() + 3),
              (calls{"0 changing", "1 changing"}));
    EXPECT_EQ(std::vector<std::string>(log.end() - 2, log.end()),
              (calls{"1 changed to A", "3 changed to A"}));
    listeners[1].action = [] { remove_all_locale_listeners(); };
    log.clear();
    EXPECT_TRUE(select_locale(TESSEL_W("B")));
    EXPECT_EQ(log, (calls{"default loads B", "1 changing", "default unloads A"}));
}

TEST_F(LocaleTest, IniFilesAreReadAtEachCall) {
    const auto path = std::filesystem::temp_directory_path() /
                      ("tessel_locale_" + std::to_string(std::random_device()()) + ".ini");
    inifile_locale_loader of_file(path.string<wchar>());
    register_locale_loader(TESSEL_W("A"), &of_file);
    register_locale_loader(TESSEL_W("B"), &of_file);
    ASSERT_TRUE(select_locale(TESSEL_W("A"))) << "without a file";
    EXPECT_EQ(get_locale_string(TESSEL_W("hello")), TESSEL_W(""));
    for (const char* const text : {"one", "two"}) {
        std::ofstream(path) << "[text]\nHello = \"" << text << " \"\n";
        const std::string expected = std::string(text) + " ";
        EXPECT_EQ(plain(get_locale_string(TESSEL_W("hello"))), expected);
    }
    EXPECT_TRUE(select_locale(TESSEL_W("B")));
    EXPECT_EQ(get_locale_string(TESSEL_W("hello")), TESSEL_W("two "));
    for (const std::size_t length : {1023U, 1500U}) {
        std::ofstream(path) << "[text]\nhello=" << std::string(length, 'x');
        EXPECT_EQ(get_locale_string(TESSEL_W("hello")).size(), 1023U);
    }
    of_file.unload(nullptr);
    ASSERT_TRUE(select_locale(TESSEL_W("away from the loader")));
    std::filesystem::remove(path);
}

}  // namespace
