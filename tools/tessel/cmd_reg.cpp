// tessel reg list|get|set|delete KEY ...: keys and values of the registry.
#include <tessel/tessel.h>

#include "command.h"
#include "error_text.h"
#include "json_line.h"
#include "reg_value.h"
#include "text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace command {
namespace {

using kro::tessel::wide_string;
using kro::tessel::registry::reg_key;

constexpr long k_not_found = 2;
constexpr long k_access_denied = 5;
constexpr long k_invalid_argument = 87;
constexpr long k_bad_path = 161;
constexpr long k_more_data = 234;
constexpr long k_no_more_items = 259;
constexpr std::size_t k_longest_key_name = 255;

struct reg_options {
    std::string key;
    std::optional<std::string> name;
    std::string value;
    std::string type = "sz";
    bool tree = false;
    bool json = false;
};

struct root_name {
    HKEY root;
    const char* name;
    const char* short_name;
};

const root_name k_roots[] = {
    {HKEY_CURRENT_USER, "hkey_current_user", "hkcu"},     {HKEY_LOCAL_MACHINE, "hkey_local_machine", "hklm"},
    {HKEY_CLASSES_ROOT, "hkey_classes_root", "hkcr"},     {HKEY_USERS, "hkey_users", "hku"},
    {HKEY_CURRENT_CONFIG, "hkey_current_config", "hkcc"},
};

/// A key as it stands on the command line: a root and a path below it.
struct key_place {
    HKEY root = nullptr;
    wide_string path;
};

key_place place_of(const std::string& key) {
    const std::size_t end = std::min(key.find('\\'), key.size());
    const std::string first = to_lower(key.substr(0, end));
    for (const root_name& one : k_roots) {
        if (first == one.name || first == one.short_name) {
            return {one.root, from_utf8(key.substr(std::min(end + 1, key.size())))};
        }
    }
    return {};
}

bool is_root(const key_place& place) {
    return place.path.find_first_not_of(wchar('\\')) == wide_string::npos;
}

std::string check_key(const std::string& key) {
    return place_of(key).root != nullptr ? "" : "begins with a root, as in HKCU\\Software";
}

int failed(const std::string& what, long status) {
    fmt::print(stderr, "tessel: {}: {}\n", what, describe_error(static_cast<std::uint32_t>(status)));
    return exit_failed;
}

/// Why a key can't be opened or made: a registry that doesn't work at all says so at its root.
long reason(const key_place& place, long otherwise) {
    const long status = registry_status(place.root);
    return status == 0 ? otherwise : status;
}

/// Why no key can be made at a path, as far as the path itself tells.
long refusal(const wide_string& path) {
    std::size_t begin = 0;
    std::size_t longest = 0;
    while (begin < path.size()) {
        const std::size_t end = std::min(path.find('\\', begin), path.size());
        longest = std::max(longest, end - begin);
        begin = end + 1;
    }
    return path.find('\\') == 0           ? k_bad_path
           : longest > k_longest_key_name ? k_invalid_argument
                                          : k_access_denied;
}

/// The values of a key, each handed to `take` with its name. Returns 0 or the status that ended it.
template <class Take>
long each_value(const reg_key& key, const Take& take) {
    for (unsigned long index = 0;; ++index) {
        wide_string name;
        const long status = key.enum_value(index, name, nullptr, nullptr, nullptr);
        if (status == k_more_data) {
            continue;  // its name is longer than any that could be typed
        }
        if (status != 0) {
            return status == k_no_more_items ? 0 : status;
        }
        reg_value value;
        const long reading = read_reg_value(key, name, value);
        if (reading != 0 && reading != k_not_found) {
            return reading;
        }
        if (reading == 0) {
            take(to_utf8(name), value);
        }
    }
}

long print_key_json(const reg_key& key, const std::string& path) {
    auto values = nlohmann::ordered_json::array();
    const long status = each_value(key, [&values](const std::string& name, const reg_value& value) {
        values.push_back({{"name", name}, {"type", reg_type_name(value.type)}, {"data", reg_data(value)}});
    });
    fmt::print("{}\n", json_line({{"key", path}, {"values", values}}));
    return status;
}

long print_key(const reg_key& key, const std::string& name, std::size_t depth) {
    fmt::print("{:{}}{}\\\n", "", depth * 2, name);
    return each_value(key, [depth](const std::string& value_name, const reg_value& value) {
        fmt::print("{:{}}{} {} {}\n", "", depth * 2 + 2, json_line(value_name), reg_type_name(value.type),
                   json_line(reg_data(value)));
    });
}

/// A key on the way through a tree, and which of those below it comes next. No recursion: nobody limits the
/// depth.
struct tree_step {
    reg_key key;
    std::string path;
    unsigned long next = 0;
};

int list(const reg_options& options) {
    const key_place place = place_of(options.key);
    std::vector<tree_step> way;
    way.push_back({reg_key(place.root, place.path, false), options.key});
    if (way.back().key.key == nullptr) {
        return failed(options.key, reason(place, k_not_found));
    }
    std::string name = options.key;
    for (bool arrived = true; !way.empty();) {
        tree_step& here = way.back();
        if (arrived) {
            const long status = options.json ? print_key_json(here.key, here.path)
                                             : print_key(here.key, name, way.size() - 1);
            if (status != 0) {
                return failed(here.path, status);
            }
        }
        wide_string below;
        arrived = here.key.enum_subkey(here.next++, below);
        if (!arrived) {
            way.pop_back();
            continue;
        }
        name = to_utf8(below);
        tree_step step{reg_key(here.key.key, below, false), here.path + '\\' + name};
        way.push_back(std::move(step));
    }
    return exit_ok;
}

int get(const reg_options& options) {
    const key_place place = place_of(options.key);
    const reg_key key(place.root, place.path, false);
    if (key.key == nullptr) {
        return failed(options.key, reason(place, k_not_found));
    }
    const std::string name = options.name.value_or("");
    reg_value value;
    const long status = read_reg_value(key, from_utf8(name), value);
    if (status != 0) {
        return failed(fmt::format("{}: \"{}\"", options.key, name), status);
    }
    if (options.json) {
        fmt::print("{}\n", json_line({{"key", options.key},
                                      {"name", name},
                                      {"type", reg_type_name(value.type)},
                                      {"data", reg_data(value)}}));
    } else {
        fmt::print("{}\n", reg_data_text(value));
    }
    return exit_ok;
}

int set(const reg_options& options) {
    std::optional<reg_value> value;  // without a name the key alone is asked for
    if (options.name && !(value = parse_reg_value(options.type, options.value))) {
        throw usage_error(fmt::format("VALUE: \"{}\" is no {}", options.value, options.type));
    }
    const key_place place = place_of(options.key);
    reg_key key(place.root, place.path, true);
    if (key.key == nullptr) {
        return failed(options.key, reason(place, refusal(place.path)));
    }
    const long status = !value ? 0
                               : key.write_value(from_utf8(*options.name), value->type, value->data.data(),
                                                 static_cast<unsigned long>(value->data.size()));
    return status == 0 ? exit_ok : failed(fmt::format("{}: \"{}\"", options.key, *options.name), status);
}

/// Deletes all that is below a key, the deepest first. False: something couldn't be deleted.
bool delete_below(const reg_key& top) {
    std::vector<std::pair<reg_key, wide_string>> way = {{top, {}}};
    while (!way.empty()) {
        wide_string name;
        if (way.back().first.enum_subkey(0, name)) {
            way.emplace_back(reg_key(way.back().first.key, name, false), name);
            continue;
        }
        name = way.back().second;
        way.pop_back();
        if (!way.empty() && !way.back().first.delete_subkey(name)) {
            return false;
        }
    }
    return true;
}

int delete_it(const reg_options& options) {
    const key_place place = place_of(options.key);
    reg_key key(place.root, place.path, false);
    if (key.key == nullptr) {
        return failed(options.key, reason(place, k_not_found));
    }
    if (options.name) {
        const wide_string name = from_utf8(*options.name);
        const bool exists = key.read_value(name, nullptr, nullptr, nullptr) == 0;
        return exists && key.delete_value(name)
                   ? exit_ok
                   : failed(fmt::format("{}: \"{}\"", options.key, *options.name),
                            reason(place, exists ? k_access_denied : k_not_found));
    }
    if (is_root(place)) {
        return failed(options.key, k_access_denied);  // before anything below it is gone
    }
    wide_string below;
    if (!options.tree && key.enum_subkey(0, below)) {
        fmt::print(stderr, "tessel: {}: there are keys below it (--tree deletes them as well)\n",
                   options.key);
        return exit_failed;
    }
    const bool deleted = (!options.tree || delete_below(key)) && key.delete_subkey({});
    return deleted ? exit_ok : failed(options.key, reason(place, k_access_denied));
}

cli_verb add_verb(const cli_verb& family, const char* name, const char* what, int (*run)(const reg_options&),
                  const std::shared_ptr<reg_options>& options, int& exit_code) {
    const auto verb = family.add_verb(name, what);
    verb.add_option("KEY", options->key, "as in HKCU\\Software\\name").required().check(check_key);
    verb.callback([options, run, &exit_code] { exit_code = run(*options); });
    return verb;
}

}  // namespace

void add_reg(const cli_verb& program, int& exit_code) {
    const auto family = program.add_verb("reg", "Show and change keys of the registry");
    family.require_verb();
    auto options = std::make_shared<reg_options>();
    const auto listing = add_verb(family, "list", "Show a key with all below it", list, options, exit_code);
    const auto getting = add_verb(family, "get", "Show a value", get, options, exit_code);
    const auto setting = add_verb(family, "set", "Make a key, or write a value", set, options, exit_code);
    const auto deleting =
        add_verb(family, "delete", "Delete a value, or a key", delete_it, options, exit_code);
    for (const cli_verb verb : {getting, setting, deleting}) {
        verb.add_option("NAME", options->name, "of the value; \"\": the default value");
    }
    setting.add_option("VALUE", options->value);
    setting.add_option("--type", options->type, "of the value").one_of(reg_type_options());
    deleting.add_flag("--tree", options->tree, "with all keys below it");
    for (const cli_verb verb : {listing, getting}) {
        verb.add_flag("--json", options->json, "as lines of JSON");
    }
}

}  // namespace command
