#include "tessel/http/http_session.h"

#include "os/inet.h"

#include "platform/exception_boundary.h"
#include "tessel/http/http_client.h"
#include "tessel/platform/last_error.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <cstring>

namespace kro::tessel::http {
namespace {

constexpr std::uint32_t k_error_invalid_data = 13;

constexpr std::size_t k_zeros_behind = 2;  // text ends in a zero unit wherever its data end

bool refused(std::uint32_t error) {
    set_last_error(error);
    return false;
}

}  // namespace

http_session::http_session(const http_client* client)
    : m_agent(client != nullptr ? client->get_agent() : CTString()) {}

http_session::~http_session() {
    std::free(m_data_to_post.data);
    std::free(m_data_to_header.data);
}

bool http_session::store(byte_buffer& buffer, const void* data, std::uint32_t len) {
    if (data == nullptr && len != 0) {
        return refused(os::k_error_invalid_parameter);
    }
    byte_buffer filled;
    if (data != nullptr) {
        filled.data = std::malloc(std::size_t{len} + k_zeros_behind);
        if (filled.data == nullptr) {
            return refused(os::k_error_not_enough_memory);
        }
        filled.len = len;
        std::memcpy(filled.data, data, len);
        std::memset(static_cast<unsigned char*>(filled.data) + len, 0, k_zeros_behind);
    }
    std::free(buffer.data);  // only now: the data may have come from it
    buffer = filled;
    return true;
}

bool http_session::set_data_to_post(const void* data, unsigned int len) {
    return store(m_data_to_post, data, len);
}

bool http_session::set_data_to_header(const void* data, unsigned int len) {
    return store(m_data_to_header, data, len);
}

bool http_session::get_data_to_post(void* buf, unsigned int* len) const {
    if (len == nullptr) {
        return refused(os::k_error_invalid_parameter);
    }
    const unsigned int room = buf == nullptr ? 0 : *len;
    *len = m_data_to_post.len;
    if (room != 0 && m_data_to_post.data != nullptr) {
        std::memcpy(buf, m_data_to_post.data, std::min(room, m_data_to_post.len));
    }
    return room >= m_data_to_post.len || refused(os::k_error_insufficient_buffer);
}

bool http_session::check_input_data() const {
    return !m_url.empty() && (m_sync || m_sink != nullptr);
}

std::uint32_t http_session::run_as_set() {
    switch (m_action) {
        case action_upload:
            return runUpload();
        case action_download:
            return runDownload();
        default:
            return run();
    }
}

bool http_session::invoke() {
    m_response.reset();
    if (!check_input_data()) {
        return refused(k_error_invalid_data);
    }
    if (!m_sync) {
        return false;
    }
    std::uint32_t error = 0;
    const std::uint32_t thrown = exception::number_of([&] { error = run_as_set(); });
    error = thrown != 0 ? thrown : error;
    return error == 0 || refused(error);
}

const http_response* http_session::get_response(unsigned long) const {
    return m_response.get_status_code() != 0 ? &m_response : nullptr;
}

void http_session::set_watch(const transfer_watch& watch) {
    m_watch = std::make_shared<const transfer_watch>(watch);
}

std::uint32_t http_session::reserved1() {
    return 0;
}

std::uint32_t http_session::reserved2() {
    return 0;
}

}  // namespace kro::tessel::http
