// The status and body of a finished transfer.
#pragma once

#include <tessel/http/buffer_content.h>

#include <cstdint>

namespace kro::tessel::http {

/// A status code and the chain of received bytes that it owns.
///
/// Copies are shallow: they share the chain with the source, and whoever copies makes sure that only one
/// of the two is destroyed with the chain in it (kept: hosts hand responses on this way).
class TESSEL_API http_response {
public:
    http_response() = default;
    http_response(const http_response&) = default;
    http_response& operator=(const http_response&) = default;
    virtual ~http_response();

    /// Frees the chain and zeroes the status code.
    void reset();

    void set_status_code(unsigned short code) { status_code = code; }
    unsigned short get_status_code() const { return status_code; }  ///< 0: no response yet

    /// Takes the chain over. A chain that was stored before is not freed: reset() first (kept).
    void set_buffer_content(_buffer_content* chain) { buffer_content = chain; }
    /// Null for an empty body; stays the response's.
    const _buffer_content* get_buffer_content() const { return buffer_content; }

private:
    std::uint16_t status_code = 0;  // NOLINT(readability-identifier-naming): named as in the interface
    _buffer_content* buffer_content = nullptr;  // NOLINT(readability-identifier-naming)
};

}  // namespace kro::tessel::http
