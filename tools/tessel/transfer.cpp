#include "transfer.h"

#include "command.h"
#include "error_text.h"
#include "interrupt.h"
#include "stall_watch.h"
#include "text.h"

#include <fmt/core.h>

#include <charconv>
#include <cstdio>
#include <nlohmann/json.hpp>
#include <string_view>
#include <system_error>
#include <utility>

namespace command {
namespace {

namespace http = kro::tessel::http;

constexpr std::uint32_t k_connection_aborted = 12030;

std::string name_of(const http::proxy_info& route) {
    return route.server.empty() ? std::string("direct")
                                : fmt::format("proxy {}:{}", to_utf8(route.server), route.port);
}

std::string all_routes(const transfer_result& result) {
    std::string text;
    for (const route_attempt& one : result.attempts) {
        text += fmt::format("{}{}: {}", text.empty() ? "" : ", ", one.route, one.error);
    }
    return text;
}

std::string why(const transfer_request& request, const transfer_result& result) {
    if (result.interrupted != 0) {
        return "interrupted";
    }
    if (result.stood_still) {
        return fmt::format("not a byte moved for {} s (--timeout allows more)", request.timeout);
    }
    if (result.announced) {
        return fmt::format("{} of {} bytes came", request.resumed + result.received,
                           request.resumed + *result.announced);
    }
    std::string text = describe_error(result.error);
    if (result.attempts.size() > 1) {
        text += fmt::format(" [tried {}]", all_routes(result));
    }
    return text;
}

}  // namespace

transfer::transfer(const transfer_request& request, head_handler head, body_handler body)
    : m_request(request), m_head(std::move(head)), m_body(std::move(body)), m_bar(request.url) {}

transfer_result transfer::run() {
    const auto start = std::chrono::steady_clock::now();
    const interrupt_watch interrupts([this] { stop(); });
    stall_watch stalls(std::chrono::seconds(m_request.timeout), [this] { stop(); });
    m_moved = [&stalls] { stalls.moved(); };
    http::transfer_watch watch;
    watch.progress = [this](const http::transfer_progress& progress) { show(progress); };
    watch.head = [this](const http::response_head& head) { take_head(head); };
    watch.body = m_body;
    watch.cancel = m_cancel;
    set_watch(watch);
    const auto headers = from_utf8(m_request.headers);
    const unsigned long flags = http::k_client_raw_data | (m_request.gzip ? http::k_client_decode_gzip : 0UL);
    m_result.error = static_cast<std::uint32_t>(Invoke(
        m_request.method, from_utf8(m_request.url), m_request.body.empty() ? nullptr : m_request.body.data(),
        static_cast<unsigned long>(m_request.body.size()), headers.empty() ? nullptr : headers.data(),
        static_cast<unsigned long>(headers.size() * sizeof(wchar)), flags));
    m_bar.clear();
    m_result.took =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - start);
    notice_missing_bytes();
    if (m_result.error != 0) {
        m_result.interrupted = interrupt_watch::exit_code();
        m_result.stood_still = stalls.has_stalled();
    }
    return m_result;
}

void transfer::take_head(const http::response_head& head) {
    constexpr std::uint32_t k_no_content = 204;
    constexpr std::uint32_t k_not_modified = 304;
    const bool has_body =
        head.status != k_no_content && head.status != k_not_modified && !is_bad_status(head.status);
    const bool says_length = has_body && header_in(head, "Transfer-Encoding").empty();
    m_announced = says_length ? number_of(header_in(head, "Content-Length")) : std::nullopt;
    m_received = 0;
    if (m_head) {
        m_head(head);
    }
}

// The library hands on what came of a body that breaks off, as a success.
void transfer::notice_missing_bytes() {
    if (m_result.error != 0 || !m_announced || m_received >= *m_announced) {
        return;
    }
    m_result.error = k_connection_aborted;
    m_result.announced = m_announced;
    m_result.received = m_received;
    if (!m_result.attempts.empty()) {
        m_result.attempts.back().error = m_result.error;
    }
}

const http::_buffer_content* transfer::content() {
    return m_response == nullptr ? nullptr : m_response->get_buffer_content();
}

void transfer::on_completed(http::http_session* session, unsigned long /*action*/,
                            const http::http_response* response) {
    const auto error = static_cast<std::uint32_t>(kro::tessel::get_last_error());
    if (m_is_over) {
        return;  // nothing is sent by the routes behind the one that was stopped
    }
    m_is_over = m_cancel.is_cancelled();
    m_result.attempts.push_back({name_of(session->get_proxy_info()), error});
    m_result.status = response->get_status_code();
    m_response = response;
}

void transfer::show(const http::transfer_progress& progress) {
    m_moved();
    if (progress.direction == http::transfer_download) {
        m_received = progress.done;
    }
    if ((progress.direction == http::transfer_upload) == m_request.shows_upload) {
        const bool knows_total = progress.total != http::transfer_progress::k_unknown;
        m_bar.show(m_request.resumed, progress.done, knows_total ? progress.total : 0);
    }
}

std::optional<std::uint64_t> number_of(const std::string& digits) {
    std::uint64_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto read = std::from_chars(digits.data(), end, value);
    return read.ec == std::errc() && read.ptr == end ? std::optional(value) : std::nullopt;
}

std::string header_in(const http::response_head& head, const std::string& name) {
    const std::string lines = to_utf8(head.lines);
    for (std::size_t begin = 0; begin < lines.size();) {
        const std::size_t end = std::min(lines.find("\r\n", begin), lines.size());
        const std::string line = lines.substr(begin, end - begin);
        const std::size_t colon = line.find(':');
        if (colon != std::string::npos && to_lower(line.substr(0, colon)) == to_lower(name)) {
            return trimmed(line.substr(colon + 1));
        }
        begin = end + 2;
    }
    return {};
}

int complain_about(const transfer_request& request, const transfer_result& result, const std::string& what) {
    if (result.error != 0 || !what.empty()) {
        fmt::print(stderr, "tessel: {}: {}\n", request.url, what.empty() ? why(request, result) : what);
        return result.interrupted != 0 ? result.interrupted : exit_failed;
    }
    if (is_bad_status(result.status)) {
        fmt::print(stderr, "tessel: {}: {}\n", request.url, describe_status(result.status));
        return exit_bad_status;
    }
    return exit_ok;
}

nlohmann::ordered_json json_of(const transfer_request& request, const transfer_result& result,
                               std::uint64_t bytes) {
    auto attempts = nlohmann::ordered_json::array();
    for (const route_attempt& one : result.attempts) {
        attempts.push_back({{"route", one.route}, {"error", one.error}});
    }
    return {{"url", request.url},    {"status", result.status},
            {"bytes", bytes},        {"milliseconds", result.took.count()},
            {"error", result.error}, {"route", result.error == 0 ? result.route() : std::string()},
            {"attempts", attempts}};
}

}  // namespace command
