// The coders beside the libraries that a program would otherwise use for them.
#include "support/beside.h"
#include "tessel/codec/base64.h"

#include <benchmark/benchmark.h>
#include <openssl/evp.h>

#include <algorithm>
#include <random>
#include <string>

namespace {

using tessel_bench::compare;

std::string random_bytes(std::size_t count) {
    std::mt19937 random(1);
    std::string bytes(count, '\0');
    std::generate(bytes.begin(), bytes.end(), [&random] { return static_cast<char>(random()); });
    return bytes;
}

const unsigned char* bytes_of(const std::string& text) {
    return reinterpret_cast<const unsigned char*>(text.data());
}

unsigned char* bytes_of(std::string& text) {
    return reinterpret_cast<unsigned char*>(text.data());
}

// ---- base64 beside OpenSSL's block functions

void base64_encode(benchmark::State& state) {
    std::string bytes = random_bytes(static_cast<std::size_t>(state.range(0)));
    const int count = static_cast<int>(bytes.size());
    std::string text(bytes.size() / 3 * 4 + 8, '\0');
    compare(
        state, bytes.size(), [&] { EVP_EncodeBlock(bytes_of(text), bytes_of(std::as_const(bytes)), count); },
        [&] { xbase64_encode(bytes.data(), count, text.data(), 0); });
}

void base64_decode(benchmark::State& state) {
    xbase64_init_decode_table();
    std::string bytes = random_bytes(static_cast<std::size_t>(state.range(0)) / 4 * 3);
    std::string text(bytes.size() / 3 * 4, '\0');
    const int count = xbase64_encode(bytes.data(), static_cast<int>(bytes.size()), text.data(), 0);
    compare(
        state, text.size(), [&] { EVP_DecodeBlock(bytes_of(bytes), bytes_of(std::as_const(text)), count); },
        [&] { xbase64_decode(text.data(), count, bytes.data(), 0); });
}

BENCHMARK(base64_encode)->Arg(16 << 20)->Arg(100)->UseManualTime();
BENCHMARK(base64_decode)->Arg(16 << 20)->Arg(100)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
