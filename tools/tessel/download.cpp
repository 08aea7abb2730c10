#include "download.h"

#include "error_text.h"

#include <fmt/core.h>

#include <algorithm>
#include <utility>

namespace command {
namespace {

namespace http = kro::tessel::http;

constexpr std::uint32_t k_status_ok = 200;
constexpr std::uint32_t k_status_partial = 206;
constexpr std::uint32_t k_first_redirect = 300;
constexpr std::uint32_t k_status_no_such_range = 416;

bool is_success(std::uint32_t status) {
    return status >= k_status_ok && status < k_first_redirect;
}

// "bytes 100-199/200": the first one and the size of the whole; "bytes */200" has no first one.
struct content_range {
    std::optional<std::uint64_t> first, whole;
};

content_range range_of(const http::response_head& head) {
    const std::string text = header_in(head, "Content-Range");
    const std::size_t slash = text.find('/');
    if (text.rfind("bytes ", 0) != 0 || slash == std::string::npos) {
        return {};
    }
    const std::string bytes = text.substr(6, slash - 6);
    const std::size_t dash = std::min(bytes.find('-'), bytes.size());
    content_range range{number_of(bytes.substr(0, dash)), number_of(text.substr(slash + 1))};
    const auto last = number_of(bytes.substr(std::min(dash + 1, bytes.size())));
    if (!range.whole && last) {
        range.whole = *last + 1;  // as much as was asked for, where the server doesn't know the whole
    }
    return range;
}

// Only a strong tag says that not a byte has changed.
std::string strong_tag_of(const http::response_head& head) {
    const std::string tag = header_in(head, "ETag");
    return tag.rfind('"', 0) == 0 && header_in(head, "Accept-Ranges") != "none" ? tag : std::string();
}

}  // namespace

download::download(const transfer_request& request, const std::string& file, bool starts_anew)
    : m_headers(request.headers), m_request(request), m_part(file, request.url) {
    if (starts_anew || request.gzip) {  // a range of a compressed body is of no use for the file
        m_part.forget();
    }
}

void download::run() {
    try_once();
    if (std::exchange(m_has_to_start_over, false) && m_result.interrupted == 0) {
        m_part.forget();
        try_once();
    }
}

void download::try_once() {
    m_request.headers = m_headers;
    m_request.resumed = 0;
    m_trouble.clear();
    if (m_part.left_over() != 0) {
        m_request.headers += fmt::format("{}Range: bytes={}-\r\nIf-Range: {}",
                                         m_headers.empty() ? "" : "\r\n", m_part.left_over(), m_part.tag());
    }
    transfer* running = nullptr;
    transfer::body_handler body;
    if (!m_request.gzip) {
        body = [this, &running](const void* data, std::uint32_t size) {
            stop_unless(!m_writes || m_part.write(data, size), *running);
        };
    }
    transfer one(
        m_request, [this, &running](const http::response_head& head) { take_head(*running, head); }, body);
    running = &one;
    m_result = one.run();
    if (!m_has_to_start_over) {
        finish(one);
    }
}

void download::take_head(transfer& running, const http::response_head& head) {
    m_writes = m_is_complete = false;
    const std::uint64_t asked_from = m_part.left_over();
    if (head.status == k_status_partial) {
        go_on(running, head);
    } else if (head.status == k_status_no_such_range && asked_from != 0) {
        m_is_complete = range_of(head).whole == asked_from;
        m_request.resumed = asked_from;
        if (!m_is_complete) {
            start_over(running);
        }
    } else if (is_success(head.status)) {
        m_request.resumed = 0;
        m_expected = std::nullopt;
        m_writes = true;
        stop_unless(m_part.begin(m_request.gzip ? std::string() : strong_tag_of(head)), running);
    }
}

void download::go_on(transfer& running, const http::response_head& head) {
    const content_range range = range_of(head);
    const std::string tag = header_in(head, "ETag");
    if (m_part.left_over() == 0 || range.first != m_part.left_over() ||
        (!tag.empty() && tag != m_part.tag())) {
        start_over(running);
        return;
    }
    m_request.resumed = *range.first;
    m_expected = range.whole;
    m_writes = true;
    stop_unless(m_part.go_on(*range.first), running);
}

// The server's answer doesn't continue the part.
void download::start_over(transfer& running) {
    m_has_to_start_over = m_part.left_over() != 0;
    m_trouble = "the server sends a range that wasn't asked for";
    running.stop();
}

void download::stop_unless(bool written, transfer& running) {
    if (!written) {
        m_trouble = m_part.error();
        m_writes = false;
        running.stop();
    }
}

bool download::is_good() const {
    return m_result.error == 0 && m_trouble.empty() && (m_is_complete || is_success(m_result.status));
}

void download::finish(transfer& running) {
    if (m_request.gzip && is_good()) {
        for (const auto* chunk = running.content(); chunk != nullptr; chunk = chunk->next) {
            stop_unless(m_trouble.empty() && m_part.write(chunk->data, chunk->size), running);
        }
    }
    const std::uint64_t size = m_is_complete ? m_part.left_over() : m_part.size();
    if (is_good() && m_expected && !m_is_complete && size != *m_expected) {
        m_trouble = fmt::format("{} of {} bytes came", size, *m_expected);
    }
    if (m_result.error == 0 && m_trouble.empty() && !is_good() && !is_bad_status(m_result.status)) {
        m_trouble = describe_status(m_result.status);  // an answer without the file
    }
    if (is_good()) {
        m_bytes = size;
        stop_unless(m_part.complete(), running);
    }
    if (!is_good()) {
        m_bytes = m_part.close();
    }
}

}  // namespace command
