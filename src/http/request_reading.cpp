// Reading the body into the chain: straight into the chunks, one copy of each byte.
#include "os/memory.h"

#include "http/buffer_chain.h"
#include "http/request_machine.h"
#include "tessel/base/trace.h"

#include <utility>

namespace kro::tessel::http {
namespace {

// A body of unknown length that has come to k_long_body is taken to go on for k_likely_rest at least.
constexpr std::uint64_t k_long_body = 0x200000;
constexpr std::uint64_t k_likely_rest = 0x1000000;

// A chunk whose last byte is kept for the terminating zero.
_buffer_content* make_chunk_with_room_for_zero(std::size_t capacity) {
    _buffer_content* const chunk = make_chunk(capacity);
    if (chunk != nullptr) {
        chunk->size -= 1;
    }
    return chunk;
}

unsigned char* end_of(const _buffer_content& chunk) {
    return static_cast<unsigned char*>(chunk.data) + chunk.size;
}

}  // namespace

std::uint32_t request_machine::read_request() {
    for (;;) {
        trace_message(trace_debug) << TESSEL_W("[httputil] || read_request");
        std::uint32_t error = 0;
        if (!prepare_read(error)) {
            return error;
        }
        INTERNET_BUFFERSW& buffers = m_context.buffers;
        const os::inet_read_status read =
            os::inet().read(m_context.request, buffers.lpvBuffer, buffers.dwBufferLength, context_value());
        if (read.status.pending()) {
            trace_message(trace_debug) << TESSEL_W("Waiting for InternetReadFile to complete");
            return 0;
        }
        if (!read.status.ok()) {
            keep_bytes(read.bytes);
            trace_message(trace_debug) << TESSEL_W("InternetReadFileEx failed, error ") << read.status.error;
            return read.status.error;
        }
        buffers.dwBufferLength = read.bytes;
    }
}

// Points `buffers` at the room for the next bytes. False when there's nothing to read any more (error 0), or
// on an error.
bool request_machine::prepare_read(std::uint32_t& error) {
    if (m_context.buffers.lpvBuffer == nullptr) {
        return prepare_first_read(error);
    }
    const std::uint32_t count = m_context.buffers.dwBufferLength;
    if (count == 0) {
        error = end_of_body();
        return false;
    }
    return take_bytes(count, error);
}

bool request_machine::prepare_first_read(std::uint32_t& error) {
    std::uint32_t length = 0;
    const bool known = os::inet().query_number(m_context.request, os::k_query_content_length, length).ok();
    if (known && length == 0) {
        error = body_is_complete();
        return false;
    }
    // One byte more than a known length: the body then fills exactly this chunk and needs no flattening.
    const std::size_t capacity = known ? std::size_t{length} + 1 : k_chunk_capacity;
    _buffer_content* const chunk = make_chunk_with_room_for_zero(capacity);
    if (chunk == nullptr) {
        error = os::k_error_not_enough_memory;
        return false;
    }
    m_context.content = m_context.current_chunk = chunk;
    m_context.buffers.lpvBuffer = chunk->data;
    m_context.buffers.dwBufferLength = chunk->size;
    return true;
}

// Bytes have come, before the end or before an error.
void request_machine::keep_bytes(std::uint32_t count) {
    if (count == 0 || m_context.buffers.lpvBuffer == nullptr) {
        return;
    }
    m_slot->received += count;
    if (m_slot->next_chunk != nullptr) {  // the first bytes for it: now it belongs to the chain
        m_context.current_chunk->next = m_slot->next_chunk;
        m_context.current_chunk = std::exchange(m_slot->next_chunk, nullptr);
    }
    static_cast<unsigned char*>(m_context.buffers.lpvBuffer)[count] = 0;
}

bool request_machine::take_bytes(std::uint32_t count, std::uint32_t& error) {
    keep_bytes(count);
    auto* const position = static_cast<unsigned char*>(m_context.buffers.lpvBuffer) + count;
    const unsigned char* const end = end_of(*m_context.current_chunk);
    if (position != end) {
        m_context.buffers.lpvBuffer = position;
        m_context.buffers.dwBufferLength = static_cast<std::uint32_t>(end - position);
        return true;
    }
    if (m_slot->received >= k_long_body && m_slot->received >= m_slot->expected) {
        m_slot->expected = m_slot->received + k_likely_rest;
        os::expect_blocks(k_likely_rest);
    }
    m_slot->next_chunk =
        m_slot->received > k_max_received ? nullptr : make_chunk_with_room_for_zero(k_chunk_capacity);
    if (m_slot->next_chunk == nullptr) {
        error = os::k_error_not_enough_memory;
        return false;
    }
    m_context.buffers.lpvBuffer = m_slot->next_chunk->data;
    m_context.buffers.dwBufferLength = m_slot->next_chunk->size;
    return true;
}

std::uint32_t request_machine::end_of_body() {
    if (m_slot->next_chunk == nullptr) {
        _buffer_content& last = *m_context.current_chunk;
        last.size = static_cast<std::uint32_t>(static_cast<unsigned char*>(m_context.buffers.lpvBuffer) -
                                               static_cast<unsigned char*>(last.data));
    }
    free_chain(std::exchange(m_slot->next_chunk, nullptr));
    if (m_slot->received == 0) {
        free_chain(std::exchange(m_context.content, nullptr));
    }
    if (flatten_chain(m_context.content) == flatten_result::no_memory) {
        return os::k_error_not_enough_memory;
    }
    return body_is_complete();
}

std::uint32_t request_machine::body_is_complete() {
    m_context.current_chunk = nullptr;
    m_context.state = state_done;
    finish();
    return 0;
}

void request_machine::drop_response() {
    free_chain(std::exchange(m_context.content, nullptr));
    free_chain(std::exchange(m_slot->next_chunk, nullptr));
    m_context.current_chunk = nullptr;
    m_slot->received = m_slot->expected = 0;
}

}  // namespace kro::tessel::http
