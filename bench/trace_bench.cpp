// What the trace facility costs when nobody listens, beside one relaxed atomic load.
#include "tessel/base/trace.h"

#include <benchmark/benchmark.h>

#include <atomic>

namespace {

using namespace kro::tessel;

std::atomic<int> g_level{trace_error};

void relaxed_load(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        benchmark::DoNotOptimize(g_level.load(std::memory_order_relaxed));
    }
}
BENCHMARK(relaxed_load);

void debug_message(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        trace_message(trace_debug) << TESSEL_W("[bench] status ") << 200 << static_cast<const void*>(&state);
    }
}
BENCHMARK(debug_message);

void debug_line(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        trace_debug_line(TESSEL_W("[bench] a line"));
    }
}
BENCHMARK(debug_line);

void scope(benchmark::State& state) {
    for ([[maybe_unused]] auto _ : state) {
        const trace_scope traced(TESSEL_W("bench::scope"));
        benchmark::DoNotOptimize(&traced);
    }
}
BENCHMARK(scope);

}  // namespace

BENCHMARK_MAIN();
