#include "os/linux/inet_window.h"

#include <algorithm>
#include <cstring>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_first_capacity = 1024;

}  // namespace

void receive_window::append(const char* data, std::size_t bytes) {
    if (m_size + bytes > m_capacity) {
        grow(m_size + bytes);
    }
    const std::size_t at = (m_head + m_size) & (m_capacity - 1);
    const std::size_t first = std::min(bytes, m_capacity - at);
    std::memcpy(m_ring.get() + at, data, first);
    std::memcpy(m_ring.get(), data + first, bytes - first);
    m_size += bytes;
}

std::size_t receive_window::take(char* out, std::size_t capacity) noexcept {
    const std::size_t taken = std::min(capacity, m_size);
    if (taken == 0) {
        return 0;
    }
    const std::size_t first = std::min(taken, m_capacity - m_head);
    std::memcpy(out, m_ring.get() + m_head, first);
    std::memcpy(out + first, m_ring.get(), taken - first);
    m_size -= taken;
    m_head = m_size == 0 ? 0 : (m_head + taken) & (m_capacity - 1);
    return taken;
}

void receive_window::clear() noexcept {
    m_ring = nullptr;
    m_capacity = m_head = m_size = 0;
}

void receive_window::grow(std::size_t least) {
    std::size_t capacity = std::max(m_capacity, k_first_capacity);
    while (capacity < least) {
        capacity *= 2;
    }
    std::unique_ptr<char[]> ring(new char[capacity]);  // not zeroed, unlike make_unique's
    const std::size_t kept = take(ring.get(), m_size);
    m_ring = std::move(ring);
    m_capacity = capacity;
    m_head = 0;
    m_size = kept;
}

}  // namespace kro::tessel::os
