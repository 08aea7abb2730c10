// A gzip body to the text that a host reads, against zlib's inflate alone into memory that is there already.
// Both do the same body in turns; "ratio" is ours over the reference's bytes a second, by the medians.
#include "http/buffer_chain.h"
#include "http/gzip.h"
#include "support/scripted_inet.h"
#include "tessel/http/buffer_content.h"

#include <benchmark/benchmark.h>
#include <time.h>
#include <zlib.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace {

using kro::tessel::http::_buffer_content;

// An XML answer as servers of such clients send it: much repeated markup around values that differ.
std::string document(std::size_t bytes, unsigned seed) {
    static const char* const k_words[] = {"meeting", "project", "the",  "about", "tomorrow",
                                          "please",  "status",  "call", "when",  "done",
                                          "review",  "with",    "team", "at"};
    std::mt19937 random(seed);
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<messages>\n";
    while (text.size() < bytes) {
        text += " <message id=\"" + std::to_string(random()) + "\" from=\"user" +
                std::to_string(random() % 500) + "@example.com\" read=\"" + (random() % 3 != 0 ? "1" : "0") +
                "\">";
        for (auto words = 3 + random() % 12; words != 0; --words) {
            text += k_words[random() % std::size(k_words)];
            text += ' ';
        }
        text += "</message>\n";
    }
    text.resize(bytes);
    return text;
}

std::string packed(const std::string& text) {
    z_stream stream = {};
    deflateInit2(&stream, 6, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
    std::string out(deflateBound(&stream, static_cast<uLong>(text.size())) + 32, '\0');
    std::memcpy(out.data(), "\x1F\x8B\x08\0\0\0\0\0\0\x03", 10);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(text.data()));
    stream.avail_in = static_cast<uInt>(text.size());
    stream.next_out = reinterpret_cast<Bytef*>(out.data()) + 10;
    stream.avail_out = static_cast<uInt>(out.size() - 10);
    deflate(&stream, Z_FINISH);
    out.resize(10 + stream.total_out + 8);
    deflateEnd(&stream);
    return out;
}

void inflate_alone(const std::string& bytes, std::vector<unsigned char>& out) {
    z_stream stream = {};
    inflateInit2(&stream, -15);
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(bytes.data())) + 10;
    stream.avail_in = static_cast<uInt>(bytes.size() - 10);
    stream.next_out = out.data();
    stream.avail_out = static_cast<uInt>(out.size());
    if (inflate(&stream, Z_FINISH) != Z_STREAM_END) {
        std::abort();
    }
    inflateEnd(&stream);
}

_buffer_content* received(const std::string& bytes) {
    _buffer_content* const chunk = kro::tessel::http::make_chunk(bytes.size());
    std::memcpy(chunk->data, bytes.data(), bytes.size());
    return chunk;
}

// Of this thread's processor, page faults included: the machine may be busy with other work.
double seconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// Short bodies are measured many at a time, so that reading the clock doesn't count.
constexpr std::size_t k_batch_bytes = 100U << 10U;

void gzip_body_to_text(benchmark::State& state) {
    const auto size = static_cast<std::size_t>(state.range(0));
    const std::size_t batch = std::max<std::size_t>(1, k_batch_bytes / size);
    tessel_test::scripted_inet service;
    service.content_encoding = TESSEL_W("gzip");
    // Many documents in turn: a processor learns the branches of a short one by heart.
    std::vector<std::string> bodies;
    for (std::size_t total = 0; total < 2 * size || total < (std::size_t{4} << 20U); total += size) {
        bodies.push_back(packed(document(size, static_cast<unsigned>(total))));
    }
    std::size_t next = 0;
    const auto next_body = [&]() -> const std::string& { return bodies[next++ % bodies.size()]; };
    std::vector<unsigned char> out(size);
    std::vector<_buffer_content*> chunks(batch);
    std::vector<double> reference;
    std::vector<double> decoding;
    std::vector<double> ours;
    while (state.KeepRunning()) {
        double start = seconds();
        for (std::size_t one = 0; one < batch; ++one) {
            inflate_alone(next_body(), out);
        }
        reference.push_back(seconds() - start);

        std::generate(chunks.begin(), chunks.end(), [&] { return received(next_body()); });
        start = seconds();
        for (_buffer_content*& chunk : chunks) {
            chunk = kro::tessel::http::decode_gzip(nullptr, chunk, [] { return false; });
        }
        decoding.push_back(seconds() - start);

        start = seconds();
        for (const _buffer_content* chunk : chunks) {
            if (kro::tessel::http::buffer_content_to_string(chunk, false).size() != size) {
                std::abort();
            }
        }
        ours.push_back(decoding.back() + seconds() - start);
        state.SetIterationTime(ours.back());
        std::for_each(chunks.begin(), chunks.end(), kro::tessel::http::free_chain);
    }
    const double alone = median(reference);
    state.counters["packed"] = static_cast<double>(bodies.front().size());
    state.counters["zlib_MB/s"] = static_cast<double>(size * batch) / alone / 1e6;
    state.counters["ratio_decode"] = alone / median(decoding);
    state.counters["ratio"] = alone / median(ours);
}
BENCHMARK(gzip_body_to_text)->Arg(2 << 10)->Arg(100 << 10)->Arg(10 << 20)->UseManualTime();

// A process that has freed a large block once keeps memory of up to that size for the next; a new one gives
// each text's memory back, and the page faults would be measured.
const bool k_allocator_is_warm = [] {
    void* block = std::malloc(std::size_t{24} << 20U);
    benchmark::DoNotOptimize(block);
    std::free(block);
    return true;
}();

}  // namespace

BENCHMARK_MAIN();
