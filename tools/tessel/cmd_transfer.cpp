// tessel fetch URL, download URL FILE, upload FILE URL: synchronous transfers by the routes that discovery
// knows.
#include "body_output.h"
#include "command.h"
#include "download.h"
#include "header_lines.h"
#include "input.h"
#include "json_line.h"
#include "text.h"
#include "trace_lines.h"
#include "transfer.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <limits>
#include <memory>
#include <stdexcept>

namespace command {
namespace {

constexpr std::uint32_t k_longest_timeout = 86400;

struct transfer_options {
    transfer_request request;
    std::vector<std::string> headers;
    std::string file;
    bool resumes = true;
    bool posts = false;
    bool json = false;
    bool trace = false;
};

transfer_request request_of(const transfer_options& options) {
    transfer_request request = options.request;
    request.headers = joined_headers(options.headers);
    if (options.trace) {
        show_trace();
    }
    return request;
}

int fetch(const transfer_options& options) {
    const transfer_request request = request_of(options);
    transfer one(request);
    const transfer_result result = one.run();
    const auto* const body = one.content();
    if (options.json) {
        print_json_line(json_of(request, result, kro::tessel::http::get_buffer_content_count(body)));
    } else if (result.error == 0) {
        write_chain(body, stdout);  // main looks at the stream's error mark
        fmt::print(stderr, "tessel: {}: HTTP status {}, {}\n", request.url, result.status, result.route());
    }
    return complain_about(request, result);
}

int complain_about_download(const download& fetched, const std::string& file) {
    const int code = complain_about(fetched.request(), fetched.result(), fetched.trouble());
    if (fetched.bytes() != 0) {
        fmt::print(stderr, "tessel: {}.part holds {} bytes; the same command goes on from there\n", file,
                   fetched.bytes());
    }
    return code;
}

int download_file(const transfer_options& options) {
    std::error_code ignored;
    if (std::filesystem::is_directory(options.file, ignored)) {
        throw usage_error("FILE: " + options.file + " is a folder");
    }
    download fetched(request_of(options), options.file, !options.resumes);
    fetched.run();
    const transfer_result& result = fetched.result();
    const int code = fetched.is_good() ? exit_ok : complain_about_download(fetched, options.file);
    if (options.json) {
        auto line = json_of(fetched.request(), result, fetched.bytes());
        line["resumed"] = fetched.resumed();
        line["file"] = code == exit_ok ? options.file : std::string();
        print_json_line(line);
    } else if (code == exit_ok) {
        fmt::print("{}: {} bytes, {}\n", options.file, fetched.bytes(), result.route());
    }
    return code;
}

bool names_content_type(const std::vector<std::string>& lines) {
    return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
        return to_lower(trimmed(line.substr(0, line.find(':')))) == "content-type";
    });
}

// Before anything is read: it takes that much memory.
void check_size(std::uint64_t bytes) {
    if (bytes > std::numeric_limits<std::uint32_t>::max()) {
        throw std::runtime_error("a body has at most 4294967295 bytes");
    }
}

int upload_file(const transfer_options& options) {
    transfer_request request = request_of(options);
    std::error_code none;
    const std::uintmax_t size = std::filesystem::file_size(options.file, none);
    check_size(none || options.file == "-" ? 0 : size);
    request.body = read_input(options.file);
    check_size(request.body.size());
    request.method = options.posts ? http_method_post : http_method_put;
    request.shows_upload = true;
    if (!names_content_type(options.headers)) {
        request.headers +=
            std::string(request.headers.empty() ? "" : "\r\n") + "Content-Type: application/octet-stream";
    }
    const auto bytes = request.body.size();
    transfer one(request);
    const transfer_result result = one.run();
    const int code = complain_about(request, result);
    if (options.json) {
        print_json_line(json_of(request, result, bytes));
    } else if (code == exit_ok) {
        fmt::print("{}: {} bytes, {}\n", request.url, bytes, result.route());
    }
    return code;
}

void add_common_options(const cli_verb& verb, transfer_options& options) {
    verb.add_option("-H,--header", options.headers, "a header line, may be repeated").one_at_a_time();
    verb.add_option("--timeout", options.request.timeout, "give up after so many seconds without a byte")
        .between(1, k_longest_timeout)
        .shows_default();
    verb.add_flag("--json", options.json, "the outcome as a line of JSON");
    verb.add_flag("--trace", options.trace, "every step on standard error, passwords of proxies included");
}

cli_verb add_verb(const cli_verb& program, const char* name, const char* help,
                  const std::shared_ptr<transfer_options>& options, int (*run)(const transfer_options&),
                  int& exit_code) {
    const auto verb = program.add_verb(name, help);
    verb.callback([options, run, &exit_code] { exit_code = run(*options); });
    return verb;
}

}  // namespace

void add_transfer_verbs(const cli_verb& program, int& exit_code) {
    auto options = std::make_shared<transfer_options>();
    auto verb = add_verb(program, "fetch", "Get a URL by any route that leads there, and say which", options,
                         fetch, exit_code);
    verb.add_option("URL", options->request.url).required();
    verb.add_flag("--gzip", options->request.gzip, "ask for a compressed body, and decompress it");
    add_common_options(verb, *options);

    options = std::make_shared<transfer_options>();
    verb = add_verb(program, "download", "Get a URL into a file, going on where an earlier try broke off",
                    options, download_file, exit_code);
    verb.add_option("URL", options->request.url).required();
    verb.add_option("FILE", options->file).required();
    verb.add_flag("--gzip", options->request.gzip, "compressed on the way; can't be gone on with later");
    verb.add_flag("--resume,!--no-resume", options->resumes,
                  "go on with FILE.part, as unless told, or don't");
    add_common_options(verb, *options);

    options = std::make_shared<transfer_options>();
    verb = add_verb(program, "upload", "Put a file where a URL says", options, upload_file, exit_code);
    verb.add_option("FILE", options->file, "the file; -: standard input").required();
    verb.add_option("URL", options->request.url).required();
    verb.add_flag("--post", options->posts, "POST in place of PUT");
    add_common_options(verb, *options);
}

}  // namespace command
