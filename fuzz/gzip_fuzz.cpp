// Any bytes behind a gzip header. The work is stopped after a few slices, so that a small input that
// inflates a thousandfold doesn't fill the memory; what comes out must be what zlib gives in one go.
#include "http/buffer_chain.h"
#include "http/gzip.h"

#include <zlib.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

namespace http = kro::tessel::http;

namespace {

constexpr std::size_t k_slices = 4;
constexpr std::size_t k_header_bytes = 10;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

constexpr std::size_t k_room = (k_slices + 1) * http::k_gzip_slice;

// zlib's code, and the bytes that it wrote in `count`.
int inflate_in_one_go(const http::_buffer_content& body, std::vector<unsigned char>& out,
                      std::size_t& count) {
    z_stream stream = {};
    require(inflateInit2(&stream, -15) == Z_OK);
    stream.next_in = static_cast<Bytef*>(body.data) + k_header_bytes;
    stream.avail_in = static_cast<uInt>(body.size - k_header_bytes);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    const int code = inflate(&stream, Z_NO_FLUSH);
    count = stream.total_out;
    inflateEnd(&stream);
    return code;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    http::_buffer_content* const body = http::make_chunk(k_header_bytes + size);
    if (size != 0) {
        std::memcpy(static_cast<char*>(body->data) + k_header_bytes, data, size);
    }
    static std::vector<unsigned char> expected(k_room);  // kept: new memory would take most of the time
    std::size_t count = 0;
    const int code = inflate_in_one_go(*body, expected, count);
    const bool is_broken = code != Z_OK && code != Z_STREAM_END && code != Z_BUF_ERROR;

    std::size_t asked = 0;
    http::_buffer_content* output = nullptr;
    const int got = http::inflate_chunk(
        *body, [&] { return ++asked > k_slices; }, output);
    if (output != nullptr) {
        require(got == Z_STREAM_END && !is_broken && output->next == nullptr);
        require(count == k_room || output->size == count);
        require(std::memcmp(output->data, expected.data(), std::min<std::size_t>(output->size, count)) == 0);
        require(static_cast<const char*>(output->data)[output->size] == 0);
    } else {
        require(got != Z_STREAM_END);
    }
    http::free_chain(output);
    http::free_chain(body);
    return 0;
}
