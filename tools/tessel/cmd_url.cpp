// tessel url URL: the parts of a URL, as the library sees them.
#include <tessel/tessel.h>

#include "command.h"
#include "error_text.h"
#include "json_line.h"
#include "text.h"

#include <fmt/core.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace command {
namespace {

struct url_options {
    std::string url;
    bool json = false;
};

nlohmann::ordered_json parts_of(const kro::tessel::http::_url_components& parts) {
    return {{"scheme", to_utf8(parts.scheme)}, {"scheme_number", parts.scheme_number},
            {"host", to_utf8(parts.host)},     {"port", parts.port},
            {"user", to_utf8(parts.user)},     {"password", to_utf8(parts.password)},
            {"path", to_utf8(parts.path)},     {"extra", to_utf8(parts.extra)}};
}

int show_url(const url_options& options) {
    kro::tessel::http::_url_components components;
    if (!kro::tessel::http::crack_url(from_utf8(options.url), components)) {
        const auto error = static_cast<std::uint32_t>(kro::tessel::get_last_error());
        fmt::print(stderr, "tessel: {}: {}\n", options.url, describe_error(error));
        return exit_failed;
    }
    const auto parts = parts_of(components);
    if (options.json) {
        print_json_line(parts);
        return exit_ok;
    }
    for (const auto& [name, value] : parts.items()) {
        fmt::print("{:<14} {}\n", name, value.is_string() ? value.get<std::string>() : json_line(value));
    }
    return exit_ok;
}

}  // namespace

void add_url(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("url", "Show the parts of a URL");
    auto options = std::make_shared<url_options>();
    verb.add_option("URL", options->url).required();
    verb.add_flag("--json", options->json, "as one line of JSON");
    verb.callback([options, &exit_code] { exit_code = show_url(*options); });
}

}  // namespace command
