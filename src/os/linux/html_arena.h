// Memory for one parse after the other: taken piece by piece, given back all at once, kept in part.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <new>
#include <utility>

namespace kro::tessel::os {

class html_arena {
public:
    html_arena() = default;
    html_arena(const html_arena&) = delete;
    html_arena& operator=(const html_arena&) = delete;
    ~html_arena() { free_from(m_first); }

    /// Null when there is no memory.
    void* take(std::size_t bytes) noexcept {
        bytes = (bytes + k_alignment - 1) / k_alignment * k_alignment;
        if (bytes > m_left && !next_block(bytes)) {
            return nullptr;
        }
        char* const taken = m_at;
        m_at += bytes;
        m_left -= bytes;
        return taken;
    }

    /// Whatever has been taken is gone.
    void reset() noexcept {
        std::size_t kept = 0;
        for (block** one = &m_first; *one != nullptr; one = &(*one)->next) {
            kept += (*one)->bytes;
            if (kept > k_most_kept) {
                free_from(*one);
                *one = nullptr;
                break;
            }
        }
        m_current = nullptr;
        m_left = 0;
    }

private:
    static constexpr std::size_t k_alignment = alignof(std::max_align_t);
    static constexpr std::size_t k_block = std::size_t{256} << 10U;
    static constexpr std::size_t k_most_kept = std::size_t{8} << 20U;  // for a document of some 200 KiB

    struct alignas(k_alignment) block {
        block* next;
        std::size_t bytes;
    };

    static void free_from(block* one) noexcept {
        while (one != nullptr) {
            std::free(std::exchange(one, one->next));
        }
    }

    // Goes on to the block behind the current one, or a new one in front of one that is too small.
    bool next_block(std::size_t bytes) noexcept {
        block** const link = m_current == nullptr ? &m_first : &m_current->next;
        if (*link == nullptr || (*link)->bytes < bytes) {
            const std::size_t size = std::max(bytes, k_block);
            void* const memory = std::malloc(sizeof(block) + size);
            if (memory == nullptr) {
                return false;
            }
            *link = new (memory) block{*link, size};
        }
        m_current = *link;
        m_at = reinterpret_cast<char*>(m_current + 1);
        m_left = m_current->bytes;
        return true;
    }

    block* m_first = nullptr;
    block* m_current = nullptr;
    char* m_at = nullptr;
    std::size_t m_left = 0;
};

}  // namespace kro::tessel::os
