#include "http/gzip.h"

#include "http/buffer_chain.h"
#include "tessel/base/string.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>

namespace kro::tessel::http {
namespace {

// Magic, deflate, no flags, no time; two further bytes of the header (the packer's level and system) count
// for nothing.
constexpr unsigned char k_header[8] = {0x1F, 0x8B, 8, 0, 0, 0, 0, 0};
constexpr std::size_t k_header_bytes = 10;
constexpr int k_raw_window_bits = -15;  // no header for zlib to look at, and the largest window
constexpr char k_zlib_interface[] = "1.2.3";

struct chain_deleter {
    void operator()(_buffer_content* chain) const noexcept { free_chain(chain); }
};
using owned_chain = std::unique_ptr<_buffer_content, chain_deleter>;

class inflate_stream {
public:
    explicit inflate_stream(const _buffer_content& chunk) {
        m_stream.next_in = static_cast<Bytef*>(chunk.data) + k_header_bytes;
        m_stream.avail_in = chunk.size - static_cast<uInt>(k_header_bytes);
        m_state = inflateInit2_(&m_stream, k_raw_window_bits, k_zlib_interface, sizeof(m_stream));
    }
    inflate_stream(const inflate_stream&) = delete;
    inflate_stream& operator=(const inflate_stream&) = delete;
    ~inflate_stream() {
        if (m_state == Z_OK) {
            inflateEnd(&m_stream);
        }
    }

    int state() const { return m_state; }

    // Inflates into `room` bytes; `left` is set to how many of them stay free.
    int run(unsigned char* out, std::size_t room, std::size_t& left) {
        m_stream.next_out = out;
        m_stream.avail_out = static_cast<uInt>(room);
        const int code = inflate(&m_stream, Z_NO_FLUSH);
        left = m_stream.avail_out;
        return code;
    }

private:
    z_stream m_stream = {};
    int m_state;
};

// A chain of chunks of one capacity that is filled from front to back. Each chunk has a byte more than its
// capacity, for the zero behind the last one's bytes.
class output_chain {
public:
    explicit output_chain(std::size_t input_bytes)
        : m_capacity(static_cast<std::size_t>(std::min(input_bytes * std::uint64_t{k_gzip_output_factor},
                                                       std::uint64_t{k_max_gzip_chunk}))) {}

    bool add_chunk() {
        _buffer_content* const chunk = make_chunk_to_fill(m_capacity + 1);
        if (chunk == nullptr) {
            return false;
        }
        chunk->size = 0;
        if (m_last == nullptr) {
            m_chain.reset(chunk);
        } else {
            m_last->next = chunk;
        }
        m_last = chunk;
        return true;
    }

    std::size_t room() const { return m_capacity - m_last->size; }
    std::uint64_t total() const { return m_total; }
    unsigned char* end() const { return static_cast<unsigned char*>(m_last->data) + m_last->size; }

    void written(std::size_t bytes) {
        m_last->size += static_cast<std::uint32_t>(bytes);
        m_total += bytes;
    }

    // The bytes as one chunk; null when there is no memory for it.
    owned_chain take() {
        *end() = 0;
        _buffer_content* chain = m_chain.release();
        switch (flatten_chain(chain)) {
            case flatten_result::flattened:
                break;
            case flatten_result::no_memory:
                free_chain(chain);
                return nullptr;
            case flatten_result::flat_already:
                free_chain(std::exchange(chain->next, nullptr));  // an empty chunk behind a full one
                static_cast<unsigned char*>(chain->data)[chain->size] = 0;
                if (m_capacity - chain->size >= k_chunk_slack) {
                    chain = trim_chunk(chain, std::size_t{chain->size} + 1);
                }
                break;
        }
        return owned_chain(chain);
    }

private:
    const std::size_t m_capacity;
    owned_chain m_chain;
    _buffer_content* m_last = nullptr;
    std::uint64_t m_total = 0;
};

bool is_encoded_as_gzip(os::inet_handle request) {
    std::uint32_t index = 0;
    wide_string encoding;
    return os::inet().query_text(request, os::k_query_content_encoding, index, encoding).ok() &&
           encoding == TESSEL_W("gzip");
}

bool begins_as_gzip(const _buffer_content* chunk) {
    return chunk != nullptr && chunk->data != nullptr && chunk->size >= k_header_bytes &&
           std::memcmp(chunk->data, k_header, sizeof(k_header)) == 0;
}

}  // namespace

int inflate_chunk(const _buffer_content& chunk, const std::function<bool()>& stopped,
                  _buffer_content*& output) {
    inflate_stream stream(chunk);
    if (stream.state() != Z_OK) {
        return stream.state();
    }
    output_chain chain(chunk.size);
    if (!chain.add_chunk()) {
        return Z_MEM_ERROR;
    }
    // Every turn but the last fills its slice, so deflate's limit of about 1032 to 1 bounds the turns.
    for (;;) {
        const std::size_t slice = std::min(chain.room(), k_gzip_slice);
        std::size_t left = 0;
        const int code = stream.run(chain.end(), slice, left);
        chain.written(slice - left);
        // Room left without an end: the input is used up. Z_BUF_ERROR says so when nothing came out.
        if (code == Z_STREAM_END || code == Z_BUF_ERROR || (code == Z_OK && left != 0)) {
            break;
        }
        // After Z_MEM_ERROR zlib never goes on either, however much room it gets.
        if (code != Z_OK) {
            return code;
        }
        if (chain.total() > k_max_gzip_output) {
            return Z_MEM_ERROR;
        }
        if (stopped()) {
            return Z_BUF_ERROR;
        }
        if (chain.room() == 0 && !chain.add_chunk()) {
            return Z_MEM_ERROR;
        }
    }
    owned_chain flat = chain.take();
    if (flat == nullptr) {
        return Z_MEM_ERROR;
    }
    output = flat.release();
    return Z_STREAM_END;
}

_buffer_content* decode_gzip(os::inet_handle request, _buffer_content* chain,
                             const std::function<bool()>& stopped) {
    if (!is_encoded_as_gzip(request) || !begins_as_gzip(chain)) {
        return nullptr;
    }
    _buffer_content* output = nullptr;
    if (inflate_chunk(*chain, stopped, output) != Z_STREAM_END) {
        return nullptr;
    }
    free_chain(chain);
    return output;
}

}  // namespace kro::tessel::http
