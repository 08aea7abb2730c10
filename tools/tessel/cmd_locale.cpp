// tessel locale FILE KEY [ARGS...]: a text of a locale's INI file, with its arguments.
#include <tessel/tessel.h>

#include "command.h"
#include "json_line.h"
#include "text.h"

#include <fmt/core.h>

#include <cstddef>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace command {
namespace {

struct locale_options {
    std::string file;
    std::string key;
    std::vector<std::string> values;
    std::vector<std::string> named;
    bool json = false;
};

std::string filled_in(const kro::tessel::wide_string& text, const locale_options& options) {
    kro::tessel::i18n::locale_index_args args;
    for (const std::string& value : options.values) {
        args.insert(from_utf8(value));
    }
    for (const std::string& pair : options.named) {
        const std::size_t sign = pair.find('=');
        args.insert(from_utf8(pair.substr(0, sign)), from_utf8(pair.substr(sign + 1)));
    }
    return to_utf8(args.replace_args(text));
}

int show_locale(const locale_options& options) {
    namespace i18n = kro::tessel::i18n;
    i18n::inifile_locale_loader loader(from_utf8(options.file));
    i18n::register_default_locale_loader(&loader);
    i18n::select_locale(from_utf8(options.file));
    const kro::tessel::wide_string text = i18n::get_locale_string(from_utf8(options.key));
    i18n::register_default_locale_loader(nullptr);
    if (text.empty()) {
        fmt::print(stderr, "tessel: {}: no text for {}\n", options.file, options.key);
        return exit_failed;
    }
    const std::string shown = filled_in(text, options);
    if (options.json) {
        print_json_line({{"key", options.key}, {"text", shown}});
    } else {
        fmt::print("{}\n", shown);
    }
    return exit_ok;
}

std::string check_named(const std::string& pair) {
    return pair.find('=') != std::string::npos && pair[0] != '=' ? "" : "as in {user}=Ann";
}

}  // namespace

void add_locale(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("locale", "Show a text of a locale's INI file");
    auto options = std::make_shared<locale_options>();
    verb.add_option("FILE", options->file).required();
    verb.add_option("KEY", options->key).required();
    verb.add_option("ARGS", options->values, "what stands for [0], [1], ...");
    const auto named = verb.add_option("--named", options->named, "what stands for another placeholder");
    named.type_name("PLACEHOLDER=VALUE").check(check_named).one_at_a_time();
    verb.add_flag("--json", options->json, "as a line of JSON");
    verb.callback([options, &exit_code] { exit_code = show_locale(*options); });
}

}  // namespace command
