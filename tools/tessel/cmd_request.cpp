// tessel get|head|post|put|delete|request URL...: requests over the asynchronous engine.
#include "batch.h"
#include "command.h"
#include "header_lines.h"
#include "host_port.h"
#include "progress.h"
#include "report.h"
#include "request_options.h"
#include "text.h"
#include "trace_lines.h"

#include <fmt/core.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
#include <system_error>

namespace command {
namespace {

constexpr std::uint32_t k_most_parallel = 10000;

/// What stands on the command line, not yet checked against each other.
struct raw_options {
    request_options request;
    std::string method;
    std::vector<std::string> headers;
    std::string data_file;
    std::string proxy;
};

bool carries_body(http_method_t method) {
    return method != http_method_get && method != http_method_head && method != http_method_delete;
}

[[noreturn]] void bad_usage(const std::string& what) {
    throw usage_error(what);
}

http_method_t method_named(const std::string& name) {
    const auto wide = from_utf8(name);
    const auto method = get_http_method_by_name(wide.c_str());
    // An unknown name gives GET too.
    if (method == http_method_get && to_lower(name) != "get") {
        bad_usage("--method: " + name + " is no method that the engine knows");
    }
    return method;
}

std::string content_of(const std::string& file) {
    std::ifstream in(file, std::ios::binary);
    std::string content{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    if (!in) {
        bad_usage("--data-file: " + file + " can't be read");
    }
    return content;
}

void split_proxy(const std::string& text, request_options& request) {
    const host_port proxy = split_host_port(text);
    if (proxy.host.empty()) {
        bad_usage("--proxy: a proxy is given as HOST:PORT, not \"" + text + '"');
    }
    request.proxy_host = proxy.host;
    request.proxy_port = proxy.port;
}

bool is_folder(const std::string& path) {
    std::error_code ignored;
    return !path.empty() && (path.back() == '/' || std::filesystem::is_directory(path, ignored));
}

/// Checks and completes what the parser has read; throws what the parser throws.
request_options completed(const raw_options& raw) {
    request_options request = raw.request;
    if (!raw.method.empty()) {
        request.method = method_named(raw.method);
    }
    request.headers = joined_headers(raw.headers);
    if (!raw.data_file.empty()) {
        request.body = content_of(raw.data_file);
    }
    if (!request.body.empty() && !carries_body(request.method)) {
        bad_usage("this method sends no body");
    }
    if (request.body.size() > std::numeric_limits<std::uint32_t>::max()) {
        bad_usage("a body has at most 4294967295 bytes");
    }
    if (!raw.proxy.empty()) {
        split_proxy(raw.proxy, request);
    }
    request.output_is_folder = is_folder(request.output);
    if (!request.output.empty() && !request.output_is_folder && request.urls.size() > 1) {
        bad_usage("--output: several URLs need a folder (end its name with /)");
    }
    return request;
}

int run_requests(const request_options& request) {
    if (request.trace) {
        show_trace();
    }
    report results(request);
    std::optional<progress_line> progress;
    batch requests(request, [&](const request_result& result) {
        if (progress) {
            progress->clear();
        }
        results.add(result);
    });
    if (!request.trace) {
        progress.emplace(requests);
    }
    if (!requests.run()) {
        fmt::print(stderr, "tessel: the engine can't be started\n");
        return exit_failed;
    }
    return results.exit_code();
}

void add_options(const cli_verb& verb, raw_options& raw) {
    request_options& request = raw.request;
    verb.add_option("URL", request.urls).required();
    verb.add_option("-H,--header", raw.headers, "a header line, may be repeated").one_at_a_time();
    verb.add_option("--proxy", raw.proxy, "HOST:PORT of the proxy for all URLs");
    verb.add_option("-o,--output", request.output, "a file for the body, or a folder for several");
    verb.add_option("--parallel", request.parallel, "at most so many requests at a time")
        .between(1, k_most_parallel)
        .shows_default();
    verb.add_flag("--gzip", request.accept_gzip, "ask for compressed bodies");
    verb.add_flag("--decode", request.decode_gzip, "decompress bodies that are");
    verb.add_flag("--text", request.text, "bodies as UTF-8, from the character set that they declare");
    verb.add_flag("-i,--include", request.include, "the status in front of each body");
    verb.add_flag("--json", request.json, "a line of JSON for each URL in place of its body");
    verb.add_flag("--trace", request.trace, "every step on standard error, with its time and thread");
}

void add_verb(const cli_verb& program, const char* name, const char* help, http_method_t method,
              int& exit_code) {
    const auto verb = program.add_verb(name, help);
    auto raw = std::make_shared<raw_options>();
    raw->request.method = method;
    raw->request.include = method == http_method_head;  // there is nothing else to show
    add_options(verb, *raw);
    const bool any_method = std::string(name) == "request";
    if (any_method) {
        verb.add_option("--method", raw->method, "the method, as in PROPFIND").required();
    }
    if (any_method || carries_body(method)) {
        const auto data = verb.add_option("-d,--data", raw->request.body, "the body to send");
        verb.add_option("--data-file", raw->data_file, "a file with the body to send").excludes(data);
    }
    verb.callback([raw, &exit_code] { exit_code = run_requests(completed(*raw)); });
}

}  // namespace

void add_request_verbs(const cli_verb& program, int& exit_code) {
    add_verb(program, "get", "Get one or more URLs", http_method_get, exit_code);
    add_verb(program, "head", "Ask for the status only", http_method_head, exit_code);
    add_verb(program, "post", "Post a body", http_method_post, exit_code);
    add_verb(program, "put", "Store a body", http_method_put, exit_code);
    add_verb(program, "delete", "Delete what is there", http_method_delete, exit_code);
    add_verb(program, "request", "Send any method", http_method_get, exit_code);
}

}  // namespace command
