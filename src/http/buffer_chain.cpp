#include "http/buffer_chain.h"

#include "os/memory.h"

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <utility>

namespace kro::tessel::http {
namespace {

constexpr std::uint64_t k_max_size = 0xFFFFFFFFU;

std::atomic<int> g_calls_until_failure{-1};

bool is_to_fail() noexcept {
    int left = g_calls_until_failure.load(std::memory_order_relaxed);
    if (left > 0) {
        g_calls_until_failure.store(left - 1, std::memory_order_relaxed);
    }
    return left == 0;
}

std::uint64_t total_size(const _buffer_content* chain) noexcept {
    std::uint64_t total = 0;
    for (; chain != nullptr; chain = chain->next) {
        total += chain->size;
    }
    return total;
}

bool may_make(std::size_t capacity) noexcept {
    return capacity <= k_max_size && !is_to_fail();
}

_buffer_content* set_up(void* block, std::size_t capacity) noexcept {
    if (block == nullptr) {
        return nullptr;
    }
    auto* const chunk = static_cast<_buffer_content*>(block);
    chunk->next = nullptr;
    chunk->size = static_cast<std::uint32_t>(capacity);
    chunk->data = chunk + 1;
    os::expect_to_fill(block, sizeof(_buffer_content) + capacity);
    return chunk;
}

// The chunk, its bytes still undefined, that a chain is to be joined into.
flatten_result make_joined(const _buffer_content* chain, _buffer_content*& joined) noexcept {
    const std::uint64_t total = total_size(chain);
    if (chain == nullptr || total <= chain->size) {
        return flatten_result::flat_already;
    }
    joined = total < k_max_size ? make_chunk_to_fill(static_cast<std::size_t>(total) + 1) : nullptr;
    if (joined == nullptr) {
        return flatten_result::no_memory;
    }
    joined->size = static_cast<std::uint32_t>(total);
    static_cast<unsigned char*>(joined->data)[total] = 0;
    return flatten_result::flattened;
}

unsigned char* copy_bytes(const _buffer_content& chunk, unsigned char* position) noexcept {
    if (chunk.data == nullptr || chunk.size == 0) {
        return position;
    }
    std::memcpy(position, chunk.data, chunk.size);
    return position + chunk.size;
}

}  // namespace

void fail_chunks_for_test(int from_call) noexcept {
    g_calls_until_failure.store(from_call, std::memory_order_relaxed);
}

_buffer_content* make_chunk(std::size_t capacity) noexcept {
    // calloc gives large chunks as untouched zero pages, so a big body isn't written twice.
    return may_make(capacity) ? set_up(std::calloc(1, sizeof(_buffer_content) + capacity), capacity)
                              : nullptr;
}

_buffer_content* make_chunk_to_fill(std::size_t capacity) noexcept {
    return may_make(capacity) ? set_up(std::malloc(sizeof(_buffer_content) + capacity), capacity) : nullptr;
}

_buffer_content* trim_chunk(_buffer_content* chunk, std::size_t bytes) noexcept {
    auto* const trimmed = static_cast<_buffer_content*>(std::realloc(chunk, sizeof(_buffer_content) + bytes));
    if (trimmed == nullptr) {
        return chunk;
    }
    trimmed->data = trimmed + 1;
    return trimmed;
}

void free_chain(_buffer_content* chain) noexcept {
    while (chain != nullptr) {
        std::free(std::exchange(chain, chain->next));
    }
}

flatten_result flatten_chain(_buffer_content*& chain) noexcept {
    _buffer_content* joined = nullptr;
    const flatten_result result = make_joined(chain, joined);
    if (result == flatten_result::flattened) {
        auto* position = static_cast<unsigned char*>(joined->data);
        while (chain != nullptr) {
            position = copy_bytes(*chain, position);
            std::free(std::exchange(chain, chain->next));
        }
        chain = joined;
    }
    return result;
}

std::uint32_t get_buffer_content_count(const _buffer_content* chunk) {
    return static_cast<std::uint32_t>(total_size(chunk));
}

}  // namespace kro::tessel::http
