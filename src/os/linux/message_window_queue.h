// The messages that wait for one window.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <utility>

namespace kro::tessel::os {

struct posted_message {
    std::uint32_t number;
    std::uintptr_t wparam;
    std::intptr_t lparam;
};

/// First in, first out, in blocks: growing copies nothing, and a long queue gives its memory back as it is
/// emptied. An empty queue keeps one block, so that a steady flow allocates nothing. Needs a lock around it.
class message_queue {
public:
    message_queue() = default;
    message_queue(message_queue&& other) noexcept { swap(other); }
    message_queue& operator=(message_queue&& other) noexcept {
        swap(other);
        return *this;
    }
    ~message_queue() {
        while (m_first != nullptr) {
            drop_first_block();
        }
    }

    bool empty() const noexcept { return m_size == 0; }
    std::size_t size() const noexcept { return m_size; }

    void push(const posted_message& message) {
        if (m_last == nullptr || m_end == k_block_messages) {
            append_block();
        }
        m_last->messages[m_end++] = message;
        ++m_size;
    }

    /// Not for an empty queue.
    posted_message pop() noexcept {
        const posted_message message = m_first->messages[m_begin++];
        --m_size;
        if (m_size == 0) {
            m_begin = 0;
            m_end = 0;
        } else if (m_begin == k_block_messages) {
            drop_first_block();
            m_begin = 0;
        }
        return message;
    }

    void swap(message_queue& other) noexcept {
        std::swap(m_first, other.m_first);
        std::swap(m_last, other.m_last);
        std::swap(m_begin, other.m_begin);
        std::swap(m_end, other.m_end);
        std::swap(m_size, other.m_size);
    }

private:
    static constexpr std::size_t k_block_messages = 340;  // two pages less what the allocator adds

    struct block {
        posted_message messages[k_block_messages];
        std::unique_ptr<block> next;
    };

    void append_block() {
        std::unique_ptr<block> made(new block);
        block* const last = made.get();
        (m_last == nullptr ? m_first : m_last->next) = std::move(made);
        m_last = last;
        m_end = 0;
    }
    void drop_first_block() noexcept { m_first = std::move(m_first->next); }

    std::unique_ptr<block> m_first;
    block* m_last = nullptr;
    std::size_t m_begin = 0;  // in the first block
    std::size_t m_end = 0;    // in the last one
    std::size_t m_size = 0;
};

}  // namespace kro::tessel::os
