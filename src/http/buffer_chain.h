// Making, flattening and freeing chains of received data.
#pragma once

#include "tessel/http/buffer_content.h"

#include <cstddef>
#include <cstdint>

namespace kro::tessel::http {

/// Bytes of a chunk after the first one of known length, the byte kept for the zero included.
inline constexpr std::size_t k_chunk_capacity = 10240;

/// Most bytes of a received body: sizes have 32 bits, and one byte is kept for the zero.
inline constexpr std::uint64_t k_max_received = 0xFFFFFFFEU;
/// A chunk with this much room unused is cut down to what it holds.
inline constexpr std::size_t k_chunk_slack = 64U << 10U;

/// A chunk of `capacity` zero bytes, its size set to that. Null when there is no memory or the capacity
/// exceeds 2^32 - 1.
_buffer_content* make_chunk(std::size_t capacity) noexcept;

/// The same with undefined bytes, for chunks that are filled at once.
_buffer_content* make_chunk_to_fill(std::size_t capacity) noexcept;

/// Gives back the memory behind the first `bytes` bytes of a chunk; its size stays. Returns the chunk, which
/// may have moved.
_buffer_content* trim_chunk(_buffer_content* chunk, std::size_t bytes) noexcept;

/// Frees a chain, chunk by chunk in a loop; null is accepted.
void free_chain(_buffer_content* chain) noexcept;

enum class flatten_result { flat_already, flattened, no_memory };

/// Joins a chain of several chunks into one chunk that ends in a zero byte which isn't counted, freeing each
/// chunk as soon as it has been copied, so that the peak is the joined chunk and one other. `chain` is
/// changed only when flattened. A total of 2^32 - 1 bytes or more counts as no memory.
flatten_result flatten_chain(_buffer_content*& chain) noexcept;

/// Makes every make_chunk and make_chunk_to_fill fail from the given call on (0: the next one), -1 ends that.
void fail_chunks_for_test(int from_call) noexcept;

}  // namespace kro::tessel::http
