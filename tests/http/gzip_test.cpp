// Faults to catch: a body decoded that must stay as received or the other way round, bytes lost or doubled
// where one output chunk ends and the next begins, an input freed although the decoding failed (or kept
// although it succeeded), and a stream that makes the decoder run or allocate without end.
#include "http/gzip.h"

#include "os/inet.h"

#include "http/buffer_chain.h"
#include "support/scripted_inet.h"

#include <gtest/gtest.h>
#include <zlib.h>

#include <cstring>
#include <random>
#include <string>

namespace {

using namespace std::string_literals;
using kro::tessel::wide_string;
using kro::tessel::http::_buffer_content;
using kro::tessel::http::decode_gzip;
using kro::tessel::http::free_chain;
using kro::tessel::http::make_chunk;
using tessel_test::scripted_inet;

const std::string k_header = "\x1F\x8B\x08\0\0\0\0\0\0\x03"s;

// flush: Z_FINISH, or Z_SYNC_FLUSH for a stream that breaks off at a byte's end with everything out.
std::string deflated(const std::string& text, int flush = Z_FINISH) {
    z_stream stream = {};
    EXPECT_EQ(deflateInit2(&stream, 9, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY), Z_OK);
    std::string out(deflateBound(&stream, static_cast<uLong>(text.size())) + 16, '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data());
    stream.avail_out = static_cast<uInt>(out.size());
    EXPECT_EQ(deflate(&stream, flush), flush == Z_FINISH ? Z_STREAM_END : Z_OK);
    out.resize(stream.total_out);
    deflateEnd(&stream);
    return out;
}

std::string packed(const std::string& text) {
    return k_header + deflated(text) + "CRC.SIZE";  // neither is looked at
}

std::string random_text(std::size_t size, unsigned letters) {
    std::mt19937 random(static_cast<unsigned>(size));
    std::string text(size, ' ');
    for (char& letter : text) {
        letter = static_cast<char>('a' + random() % letters);
    }
    return text;
}

// A chain of one chunk, which the test frees unless the decoder did.
class body {
public:
    explicit body(const std::string& bytes) : m_bytes(bytes), m_chain(make_chunk(bytes.size())) {
        std::memcpy(m_chain->data, bytes.data(), bytes.size());
    }
    body(const body&) = delete;
    body& operator=(const body&) = delete;
    ~body() { free_chain(m_chain); }

    // The decoded bytes, or "kept" when the chain is as it was.
    std::string decoded(const std::function<bool()>& stopped = [] { return false; }) {
        _buffer_content* const output = decode_gzip(nullptr, m_chain, stopped);
        if (output == nullptr) {
            EXPECT_EQ(std::string(static_cast<const char*>(m_chain->data), m_chain->size), m_bytes);
            return "kept";
        }
        m_chain = nullptr;
        const auto* const data = static_cast<const char*>(output->data);
        EXPECT_EQ(output->next, nullptr);
        EXPECT_EQ(data[output->size], 0) << "no zero behind the bytes";
        std::string text(data, output->size);
        free_chain(output);
        return text;
    }

    void append(_buffer_content* chunk) { m_chain->next = chunk; }

private:
    const std::string m_bytes;
    _buffer_content* m_chain;
};

class Gzip : public testing::Test {
public:
    Gzip() { inet.content_encoding = TESSEL_W("gzip"); }

    scripted_inet inet;
};

TEST_F(Gzip, InflatesBodiesOfEverySizeAndRatio) {
    const struct {
        const char* description;
        std::string text;
    } rows[] = {
        {"nothing", ""},
        {"one byte", "x"},
        {"zeros inside", "a\0b\0"s},
        {"stored", random_text(5000, 256)},
        {"fits the first chunk", random_text(100000, 8)},
        {"many chunks of a small input", std::string(1000000, 'x')},
        {"several slices", random_text(5000000, 40)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(body(packed(row.text)).decoded() == row.text, true) << row.description;
    }
}

// The output ends a few bytes in front of, with or behind a chunk.
TEST_F(Gzip, LosesNothingWhereAChunkEnds) {
    for (const std::size_t chunks : {1U, 2U, 5U}) {
        for (std::size_t offset = 0; offset < 7; ++offset) {
            const std::string text(chunks * 200 * 7 - 3 + offset, 'x');
            std::string bytes = packed(text);
            ASSERT_LT(bytes.size(), 200U);
            bytes.resize(200);  // what is behind the stream counts for the chunks' capacity only
            EXPECT_EQ(body(bytes).decoded(), text) << chunks << " chunks and " << offset;
        }
    }
}

// Nothing comes out after the last full chunk, and nothing says that it was the last.
TEST_F(Gzip, EndsAStreamThatIsCutWithAFullChunk) {
    int cases = 0;
    for (std::size_t size = 70; size < 7000; size += 7) {
        const std::string text(size, 'x');
        const std::string stream = deflated(text, Z_SYNC_FLUSH);
        std::string bytes = k_header;
        while (bytes.size() + stream.size() < size / 7) {
            bytes += "\0\0\0\xFF\xFF"s;  // an empty block
        }
        bytes += stream;
        if (bytes.size() * 7 == size) {
            ++cases;
            ASSERT_EQ(body(bytes).decoded(), text);
        }
    }
    EXPECT_GT(cases, 10);
}

TEST_F(Gzip, GivesWhatACutStreamHolds) {
    const std::string text = random_text(3000, 20) + std::string(3000, 'x');
    const std::string bytes = k_header + deflated(text);
    for (std::size_t length = 10; length < bytes.size(); ++length) {
        const std::string got = body(bytes.substr(0, length)).decoded();
        ASSERT_EQ(got, text.substr(0, got.size())) << length;
        if (length + 1 == bytes.size()) {
            EXPECT_GT(got.size(), 5700U);  // the last match may be missing
        }
    }
}

TEST_F(Gzip, LeavesWhatItMayNotOrCannotDecode) {
    const std::string good = packed("text");
    const auto changed = [&](std::size_t at, char byte) {
        std::string bytes = good;
        bytes[at] = byte;
        return bytes;
    };
    const struct {
        const char* description;
        std::string bytes;
    } rows[] = {
        {"not gzip", "plain text, long enough"},
        {"a file name", changed(3, 8)},
        {"a time", changed(6, 1)},
        {"another method", changed(2, 7)},
        {"9 bytes", good.substr(0, 9)},
        {"8 bytes", good.substr(0, 8)},
        {"nothing", ""},
        {"a block type that doesn't exist", k_header + "\x07garbage"},
        {"a stored block with wrong lengths", k_header + std::string("\x01\x05\0\x05\0hello", 10)},
        {"a distance before the beginning", k_header + std::string("\x63\x01\x11\x11\x11\x11", 6)},
        {"broken behind several chunks", k_header + deflated(std::string(30000, 'x'), Z_SYNC_FLUSH) + "\x07"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(body(row.bytes).decoded(), "kept") << row.description;
    }
    EXPECT_EQ(body(changed(8, 2)).decoded(), "text") << "the packer's level counts for nothing";
    EXPECT_EQ(body(changed(9, 11)).decoded(), "text") << "nor does its system";
    EXPECT_EQ(decode_gzip(nullptr, nullptr, [] { return false; }), nullptr);
}

TEST_F(Gzip, AsksForTheContentEncodingExactly) {
    const struct {
        const wchar* encoding;
        const char* expected;
    } rows[] = {{TESSEL_W("gzip"), "text"}, {TESSEL_W("GZIP"), "kept"},     {TESSEL_W("x-gzip"), "kept"},
                {TESSEL_W(""), "kept"},     {TESSEL_W("gzip, br"), "kept"}, {TESSEL_W("deflate"), "kept"},
                {nullptr, "kept"}};
    for (const auto& row : rows) {
        inet.content_encoding = std::nullopt;
        if (row.encoding != nullptr) {
            inet.content_encoding = row.encoding;
        }
        EXPECT_EQ(body(packed("text")).decoded(), row.expected);
    }
}

// A chain that could not be flattened: only its first chunk is looked at, but all of it is freed.
TEST_F(Gzip, LooksAtTheFirstChunkOnly) {
    const std::string bytes = packed(random_text(3000, 30));
    body cut(bytes.substr(0, 1000));
    _buffer_content* const rest = make_chunk(bytes.size() - 1000);
    std::memcpy(rest->data, bytes.data() + 1000, rest->size);
    cut.append(rest);
    const std::string got = cut.decoded();
    EXPECT_EQ(got, random_text(3000, 30).substr(0, got.size()));
    EXPECT_LT(got.size(), 2000U);
}

TEST_F(Gzip, KeepsTheInputWhenThereIsNoMemory) {
    const std::string text(100000, 'x');
    int calls = 0;
    for (; calls < 1000; ++calls) {
        body input(packed(text));
        kro::tessel::http::fail_chunks_for_test(calls);
        const std::string got = input.decoded();
        kro::tessel::http::fail_chunks_for_test(-1);
        if (got != "kept") {
            EXPECT_EQ(got, text);
            break;
        }
    }
    EXPECT_GT(calls, 2);  // the first chunk, further ones and the joined one have failed
    EXPECT_LT(calls, 1000);
}

TEST_F(Gzip, StopsBetweenSlicesWhenAskedTo) {
    const std::string text(20U << 20U, 'x');
    int asked = 0;
    EXPECT_EQ(body(packed(text)).decoded([&] { return ++asked == 3; }), "kept");
    EXPECT_EQ(asked, 3);
    asked = 0;
    EXPECT_EQ(body(packed(text)).decoded([&] { return ++asked < 0; }) == text, true);
    EXPECT_GE(asked, 20);
}

// Consuming the chain gives the same bytes as copying it.
TEST(BufferChain, FlattensAnOwnedChain) {
    _buffer_content* chain = make_chunk(3);
    std::memcpy(chain->data, "abc", 3);
    EXPECT_EQ(kro::tessel::http::flatten_chain(chain), kro::tessel::http::flatten_result::flat_already);
    chain->next = make_chunk(2);
    std::memcpy(chain->next->data, "de", 2);
    chain->next->next = make_chunk(0);
    EXPECT_EQ(kro::tessel::http::get_buffer_content_count(chain), 5U);
    EXPECT_EQ(kro::tessel::http::get_buffer_content_count(nullptr), 0U);
    kro::tessel::http::fail_chunks_for_test(0);
    EXPECT_EQ(kro::tessel::http::flatten_chain(chain), kro::tessel::http::flatten_result::no_memory);
    kro::tessel::http::fail_chunks_for_test(-1);
    ASSERT_EQ(kro::tessel::http::flatten_chain(chain), kro::tessel::http::flatten_result::flattened);
    EXPECT_EQ(std::string(static_cast<const char*>(chain->data), 6), "abcde\0"s);
    EXPECT_EQ(chain->size, 5U);
    EXPECT_EQ(chain->next, nullptr);
    free_chain(chain);
}

}  // namespace
