// What a watch gets of a response before it is complete: its head, and its body piece by piece.
#include "os/inet.h"

#include "http/session_transfer.h"

#include <algorithm>
#include <memory>
#include <utility>

namespace kro::tessel::http {
namespace {

constexpr std::uint32_t k_largest_piece = 256U << 10U;

}  // namespace

void session_transfer::tell_head() const {
    const std::uint32_t status = m_session.m_response.get_status_code();
    if (m_watch == nullptr || !m_watch->head || status == 0) {
        return;
    }
    wide_string lines;
    std::uint32_t index = 0;
    os::inet().query_text(m_request, os::k_query_raw_headers_crlf, index, lines);
    m_watch->head({status, std::move(lines)});
}

// Each piece is what is there, so that none waits for the next.
std::uint32_t session_transfer::hand_body_on(const std::function<void(std::uint64_t)>& on_bytes) const {
    const std::unique_ptr<unsigned char[]> piece(new unsigned char[k_largest_piece]);
    for (std::uint64_t done = 0;;) {
        const os::inet_read_status there = os::inet().available(m_request);
        if (!there.status.ok() || there.bytes == 0) {
            return there.status.error;
        }
        const os::inet_read_status read =
            os::inet().read(m_request, piece.get(), std::min(there.bytes, k_largest_piece), 0);
        if (read.bytes != 0) {
            m_watch->body(piece.get(), read.bytes);
            done += read.bytes;
            if (on_bytes) {
                on_bytes(done);
            }
        }
        if (!read.status.ok()) {
            return read.status.error;
        }
    }
}

}  // namespace kro::tessel::http
