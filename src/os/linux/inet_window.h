// Received bytes that nobody has read yet: a ring that grows up to a ceiling.
#pragma once

#include <cstddef>
#include <memory>

namespace kro::tessel::os {

class receive_window {
public:
    /// Beyond this a transfer is paused. Large enough that a reader on another thread, woken once, finds
    /// work for a while; small enough that a hundred unread bodies don't hurt.
    static constexpr std::size_t k_ceiling = std::size_t{1} << 20U;

    std::size_t size() const noexcept { return m_size; }
    bool has_room_for(std::size_t bytes, std::size_t ceiling) const noexcept {
        return m_size + bytes <= ceiling || m_size == 0;
    }

    void append(const char* data, std::size_t bytes);
    /// Moves up to `capacity` bytes out. Returns their number.
    std::size_t take(char* out, std::size_t capacity) noexcept;
    void clear() noexcept;

private:
    void grow(std::size_t least);

    std::unique_ptr<char[]> m_ring;
    std::size_t m_capacity = 0;  // a power of two, or 0
    std::size_t m_head = 0;
    std::size_t m_size = 0;
};

}  // namespace kro::tessel::os
