// The unit of received data, chained, and how it is turned into text.
#pragma once

#include <tessel/base/string.h>

#include <cstdint>

namespace kro::tessel::http {

/// One chunk of received bytes. Header and bytes are one `malloc` allocation, `data` pointing right
/// behind the header; a chain is freed chunk by chunk with `free`, by whoever holds it (one holder at a
/// time: a session_context or an http_response). Behind the received bytes of a finished response stands
/// a zero byte that isn't counted.
struct _buffer_content {
    _buffer_content* next;  ///< null at the end
    std::uint32_t size;     ///< valid bytes
    void* data;
};

/// Sum of the sizes of every chunk of a chain.
/// chunk:   head of the chain, may be null (an empty chain, 0); not taken over.
/// Returns: bytes, modulo 2^32 like the sizes themselves.
/// Thread:  any, as long as nobody changes the chain meanwhile.
TESSEL_API std::uint32_t get_buffer_content_count(const _buffer_content* chunk);

/// The text of one chunk (callers pass a flattened chain), converted from the code page that an XML
/// declaration within its first 256 bytes names: 65001 for "UTF-8", the page of the charset for the
/// names in the library's table, else the ANSI code page.
/// chunk:  may be null; null data gives an empty string. Zero bytes inside the text are kept.
/// raw:    accepted and ignored (kept for the interface's sake).
/// Thread: any.
TESSEL_API CTString buffer_content_to_string(const _buffer_content* chunk, bool raw);

}  // namespace kro::tessel::http
