// Inflating a gzip-encoded response.
#pragma once

#include "os/inet.h"

#include "tessel/http/buffer_content.h"

#include <cstddef>
#include <functional>

namespace kro::tessel::http {

/// The output is inflated into chunks of this many times the input's size...
inline constexpr std::size_t k_gzip_output_factor = 7;
/// ...but no larger ones: a chunk is allocated before it is known how much of it will be used, and must find
/// room in one piece. What goes beyond the first chunk costs memory and time twice while the chunks are
/// joined, so it isn't small either.
inline constexpr std::size_t k_max_gzip_chunk = (sizeof(void*) > 4 ? 256U : 64U) << 20U;
/// Most bytes of a decoded response: more than this a chunk's size and the zero behind it can't express.
inline constexpr std::size_t k_max_gzip_output = 0xFFFFFFFEU;
/// Bytes inflated between two questions whether to go on.
inline constexpr std::size_t k_gzip_slice = 1U << 20U;

/// Inflates a received body when it is one that is to be inflated: the response's Content-Encoding is
/// exactly "gzip" and its first chunk begins with the ten bytes of a gzip header without flags and time
/// (a stream with a file name, comment or extra field stays as it is, kept). A stream that is cut short
/// gives what could be decoded; the checksum isn't looked at.
///
/// request: the request handle that the response belongs to.
/// chain:   the received bytes; only its first chunk is looked at. May be null.
/// stopped: asked after every k_gzip_slice bytes of output; true ends the work.
/// Returns: one chunk, ended by a zero byte that isn't counted, and `chain` freed; or null, and `chain`
///          untouched and still the caller's: not to be decoded, broken, stopped, too large or no memory.
_buffer_content* decode_gzip(os::inet_handle request, _buffer_content* chain,
                             const std::function<bool()>& stopped);

/// The part of it that needs no request: inflates the first chunk.
/// output:  set only on success.
/// Returns: Z_STREAM_END (1), for a stream that is cut short too; else zlib's code, Z_MEM_ERROR (-4) for
///          every lack of room and Z_BUF_ERROR (-5) when stopped.
int inflate_chunk(const _buffer_content& chunk, const std::function<bool()>& stopped,
                  _buffer_content*& output);

}  // namespace kro::tessel::http
