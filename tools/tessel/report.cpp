#include "report.h"

#include "body_output.h"
#include "command.h"
#include "error_text.h"
#include "json_line.h"
#include "text.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <nlohmann/json.hpp>

namespace command {
namespace {

namespace http = kro::tessel::http;

struct file_closer {
    void operator()(std::FILE* file) const noexcept { std::fclose(file); }
};

const http::_buffer_content* body_of(const request_result& result) {
    return result.context == nullptr ? nullptr : result.context->content;
}

std::uint32_t status_of(const request_result& result) {
    return result.context == nullptr ? 0 : result.context->status_code;
}

/// The last piece of the URL's path; "index" where that is no name for a file.
std::string name_in(const std::string& url) {
    http::_url_components parts;
    if (!http::crack_url(from_utf8(url), parts)) {
        return "index";
    }
    const std::string name = std::filesystem::path(to_utf8(parts.path)).filename().string();
    return name.empty() || name == "." || name == ".." ? "index" : name;
}

}  // namespace

report::report(const request_options& options) : m_options(options) {
    if (options.output_is_folder) {
        std::filesystem::create_directories(options.output);
    }
}

void report::add(const request_result& result) {
    std::string file;
    if (result.error != 0) {
        complain(result, describe_error(result.error));
    } else {
        if (is_bad_status(status_of(result))) {
            m_bad_status = true;
            fmt::print(stderr, "tessel: {}: {}\n", m_options.urls[result.index],
                       describe_status(status_of(result)));
        }
        if (!m_options.output.empty()) {
            file = write_to_file(result);
        } else if (!m_options.json) {
            write_to_stdout(result);
        }
    }
    if (m_options.json) {
        write_json(result, file);
    }
}

int report::exit_code() const {
    return m_failed ? exit_failed : m_bad_status ? exit_bad_status : exit_ok;
}

void report::write_to_stdout(const request_result& result) const {
    if (m_options.include) {
        fmt::print("HTTP {}\n\n", status_of(result));
    }
    if (m_options.text) {
        const std::string text = text_of(result);
        std::fwrite(text.data(), 1, text.size(), stdout);
    } else {
        write_chain(body_of(result), stdout);  // main looks at the stream's error mark
    }
}

/// Returns the file's name; empty, with a complaint, when it couldn't be written.
std::string report::write_to_file(const request_result& result) {
    std::string name = file_for(m_options.urls[result.index]);
    std::unique_ptr<std::FILE, file_closer> file(std::fopen(name.c_str(), "wb"));
    bool written = file != nullptr;
    if (written && m_options.text) {
        const std::string text = text_of(result);
        written = std::fwrite(text.data(), 1, text.size(), file.get()) == text.size();
    } else if (written) {
        written = write_chain(body_of(result), file.get());
    }
    if (file != nullptr && std::fclose(file.release()) != 0) {
        written = false;
    }
    if (!written) {
        complain(result, fmt::format("{} can't be written: {}", name, std::strerror(errno)));
        return {};
    }
    return name;
}

/// No two results share a file: the second page.html becomes page.html.2.
std::string report::file_for(const std::string& url) {
    if (!m_options.output_is_folder) {
        return m_options.output;
    }
    const std::string stem = (std::filesystem::path(m_options.output) / name_in(url)).string();
    std::string name = stem;
    for (int number = 2; !m_files.insert(name).second; ++number) {
        name = fmt::format("{}.{}", stem, number);
    }
    return name;
}

std::string report::text_of(const request_result& result) const {
    const auto* body = body_of(result);
    return body == nullptr ? std::string() : to_utf8(http::buffer_content_to_string(body, false));
}

void report::write_json(const request_result& result, const std::string& file) {
    nlohmann::ordered_json line = {{"url", m_options.urls[result.index]},
                                   {"status", status_of(result)},
                                   {"bytes", http::get_buffer_content_count(body_of(result))},
                                   {"milliseconds", result.took.count()},
                                   {"error", result.error}};
    if (!file.empty()) {
        line["file"] = file;
    } else if (m_options.text && result.error == 0) {
        line["text"] = text_of(result);
    }
    print_json_line(line);
}

void report::complain(const request_result& result, const std::string& what) {
    m_failed = true;
    fmt::print(stderr, "tessel: {}: {}\n", m_options.urls[result.index], what);
}

}  // namespace command
