#include "http/body_receiver.h"

#include "http/buffer_chain.h"

#include <algorithm>
#include <utility>

namespace kro::tessel::http {
namespace {

// Most bytes of one read while somebody watches. Others are as large as their chunk, so that the bytes go
// from the network straight to their place.
constexpr std::uint32_t k_watched_read = 256U << 10U;

// What a body of unknown length that has come to k_long_body is received into. The C library gives blocks of
// this size a mapping of their own, so each goes back to the system as soon as it has been joined; and they
// are filled by reads as large as themselves. What stays empty of the last one is never touched.
constexpr std::uint64_t k_long_body = 2U << 20U;
constexpr std::uint32_t k_large_chunk = 64U << 20U;

}  // namespace

body_receiver::body_receiver(os::inet_handle request, std::optional<std::uint32_t> length, pace how,
                             const std::function<void(std::uint64_t)>& on_bytes)
    : m_request(request), m_pace(how), m_on_bytes(on_bytes) {
    if (length && *length != 0 && *length <= k_max_received) {
        m_filled = make_chunk_to_fill(std::size_t{*length} + 1);
    }
    if (m_filled != nullptr) {  // else the length may not be true, and chunks will do
        m_is_sized = true;
        m_room = *length;
    }
}

body_receiver::~body_receiver() {
    if (m_filled != m_last) {
        free_chain(m_filled);
    }
    free_chain(m_chain);
}

std::uint32_t body_receiver::receive() {
    const std::uint32_t most = m_on_bytes ? k_watched_read : UINT32_MAX;
    for (;;) {
        if (!has_room()) {
            const std::uint32_t error = make_room();
            if (error != 0 || m_is_over) {
                return error;
            }
        }
        auto* const place = static_cast<unsigned char*>(m_filled->data) + m_used;
        const os::inet_read_status read =
            os::inet().read(m_request, place, std::min(m_room - m_used, most), 0);
        if (read.bytes != 0) {
            count(read.bytes);
        }
        if (!read.status.ok() || read.bytes == 0) {
            return read.status.error;
        }
    }
}

// Another chunk; or the end of the body, which a read into a chunk of 0 bytes couldn't tell of.
std::uint32_t body_receiver::make_room() {
    std::uint32_t room = static_cast<std::uint32_t>(k_chunk_capacity) - 1;
    if (!m_is_sized && m_received >= k_long_body && add_chunk(k_large_chunk)) {
        return 0;
    }
    if (m_is_sized || m_pace == pace::as_it_comes) {
        const os::inet_read_status there = os::inet().available(m_request);
        if (!there.status.ok() || there.bytes == 0) {
            m_is_over = true;
            return there.status.error;
        }
        room = there.bytes;
    }
    return add_chunk(room) ? 0 : os::k_error_not_enough_memory;
}

bool body_receiver::add_chunk(std::uint32_t room) {
    _buffer_content* const added =
        m_received + room > k_max_received ? nullptr : make_chunk_to_fill(std::size_t{room} + 1);
    if (added == nullptr) {
        return false;
    }
    close_last_chunk();
    m_filled = added;
    m_room = room;
    m_used = 0;
    return true;
}

void body_receiver::count(std::uint32_t bytes) {
    if (m_filled != m_last) {  // the first ones for it
        (m_last != nullptr ? m_last->next : m_chain) = m_filled;
        m_last = m_filled;
    }
    m_used += bytes;
    m_received += bytes;
    m_last->size = m_used;
    if (m_on_bytes) {
        m_on_bytes(m_received);
    }
}

void body_receiver::close_last_chunk() noexcept {
    if (m_last != nullptr) {
        static_cast<unsigned char*>(m_last->data)[m_last->size] = 0;
    }
}

_buffer_content* body_receiver::take() noexcept {
    close_last_chunk();
    const bool is_alone = m_chain != nullptr && m_chain == m_last;
    if (is_alone && m_filled == m_last && m_room - m_used > k_chunk_slack) {
        m_chain = trim_chunk(m_chain, std::size_t{m_used} + 1);  // the body broke off
    }
    if (m_filled != m_last) {
        free_chain(m_filled);
    }
    flatten_chain(m_chain);
    m_last = m_filled = nullptr;
    m_room = m_used = 0;
    return std::exchange(m_chain, nullptr);
}

}  // namespace kro::tessel::http
