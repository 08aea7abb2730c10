// tessel text [FILE|URL]: the text of an HTML document.
#include <tessel/tessel.h>

#include "batch.h"
#include "command.h"
#include "error_text.h"
#include "input.h"
#include "json_line.h"
#include "request_options.h"
#include "text.h"

#include <fmt/core.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace command {
namespace {

constexpr std::uint32_t k_first_bad_status = 400;

struct text_options {
    std::string source = "-";
    bool json = false;
};

struct fetched {
    std::string bytes;
    std::uint32_t status = 0;
    std::uint32_t error = 0;
};

bool is_url(const std::string& source) {
    const auto begins = [&source](const char* scheme) { return to_lower(source).rfind(scheme, 0) == 0; };
    return begins("http://") || begins("https://");
}

fetched fetch(const std::string& url) {
    request_options options;
    options.urls = {url};
    options.accept_gzip = true;
    options.decode_gzip = true;
    fetched page;
    batch requests(options, [&page](const request_result& result) {
        page.error = result.error;
        if (result.context == nullptr) {
            return;
        }
        page.status = result.context->status_code;
        for (const auto* chunk = result.context->content; chunk != nullptr; chunk = chunk->next) {
            page.bytes.append(static_cast<const char*>(chunk->data), chunk->size);
        }
    });
    if (!requests.run()) {
        throw std::runtime_error("the HTTP engine can't be started");
    }
    return page;
}

// The library's lines end as on Windows.
std::string with_plain_line_ends(std::string text) {
    std::string out;
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '\r' || i + 1 == text.size() || text[i + 1] != '\n') {
            out += text[i];
        }
    }
    return out;
}

int show_text(const text_options& options) {
    const bool from_server = is_url(options.source);
    const fetched page = from_server ? fetch(options.source) : fetched{read_input(options.source), 0, 0};
    if (page.error != 0) {
        fmt::print(stderr, "tessel: {}: {}\n", options.source, describe_error(page.error));
        return exit_failed;
    }
    const std::string text =
        with_plain_line_ends(to_utf8(kro::tessel::_gethtml_puretext(decode_text(page.bytes))));
    if (options.json) {
        nlohmann::ordered_json line = {{"source", options.source}};
        if (from_server) {
            line["status"] = page.status;
        }
        line["text"] = text;
        print_json_line(line);
    } else {
        write_output(text.empty() || text.back() == '\n' ? text : text + '\n');
    }
    if (page.status >= k_first_bad_status) {
        fmt::print(stderr, "tessel: {}: the server answered with HTTP status {}\n", options.source,
                   page.status);
        return exit_bad_status;
    }
    return exit_ok;
}

}  // namespace

void add_text(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("text", "Show the text of an HTML document");
    auto options = std::make_shared<text_options>();
    verb.add_option("FILE|URL", options->source, "the document; none or -: standard input");
    verb.add_flag("--json", options->json, "as one line of JSON");
    verb.callback([options, &exit_code] { exit_code = show_text(*options); });
}

}  // namespace command
