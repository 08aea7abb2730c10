// Receiving the body of a synchronous transfer into a chain of chunks.
#pragma once

#include "os/inet.h"

#include "tessel/http/buffer_content.h"

#include <cstdint>
#include <functional>
#include <optional>

namespace kro::tessel::http {

/// Reads a response's body to its end. One whose length is known goes into one chunk, so that it's there once
/// only, however long it is.
class body_receiver {
public:
    enum class pace {
        by_chunk,    ///< a body of unknown length in chunks of k_chunk_capacity, each read until it's full
        as_it_comes  ///< in chunks of what is there
    };

    /// length:  what the response says of it; the memory is taken at once, but touched as the body comes.
    /// on_bytes: told how many bytes have come, after each read; may be empty. Its exceptions pass.
    body_receiver(os::inet_handle request, std::optional<std::uint32_t> length, pace how,
                  const std::function<void(std::uint64_t)>& on_bytes);
    body_receiver(const body_receiver&) = delete;
    body_receiver& operator=(const body_receiver&) = delete;
    ~body_receiver();

    /// Returns 0 at the end of the body, else the error number: of a read, or 8 for a body that finds no
    /// room. What had come before stays.
    std::uint32_t receive();

    /// Hands out what was received as one chunk, ended by a zero byte that isn't counted, or a chain if there
    /// was no room to join it. Null for an empty body.
    _buffer_content* take() noexcept;

private:
    std::uint32_t make_room();
    bool add_chunk(std::uint32_t room);
    void count(std::uint32_t bytes);
    void close_last_chunk() noexcept;
    bool has_room() const noexcept { return m_used < m_room; }

    const os::inet_handle m_request;
    const pace m_pace;
    const std::function<void(std::uint64_t)>& m_on_bytes;
    bool m_is_sized = false;  // the first chunk was made for the whole body
    bool m_is_over = false;

    _buffer_content* m_chain = nullptr;
    _buffer_content* m_last = nullptr;    // of the chain
    _buffer_content* m_filled = nullptr;  // gets the next bytes: m_last, or not in the chain before the first
    std::uint32_t m_room = 0;             // of m_filled, without the byte for the zero
    std::uint32_t m_used = 0;
    std::uint64_t m_received = 0;
};

}  // namespace kro::tessel::http
