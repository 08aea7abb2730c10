// tessel beside a reference. Each iteration measures both on the same input, one after the other, so that a
// busy machine slows both; the counter `ratio` says how many times as fast tessel is.
#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstddef>
#include <cstdint>

namespace tessel_bench {

class stopwatch {
public:
    double seconds() const { return std::chrono::duration<double>(clock::now() - m_start).count(); }

private:
    using clock = std::chrono::steady_clock;
    clock::time_point m_start = clock::now();
};

/// Runs both until the benchmark has enough, and reports the bytes of tessel and the ratio. For a benchmark
/// with UseManualTime.
template <class Reference, class Tessel>
void compare(benchmark::State& state, std::size_t bytes, Reference reference, Tessel tessel) {
    double reference_seconds = 0;
    double tessel_seconds = 0;
    // Short texts: many calls a measurement, or the clock would be measured.
    const std::size_t calls = 1 + 65536 / bytes;
    for ([[maybe_unused]] auto _ : state) {
        const stopwatch of_reference;
        for (std::size_t i = 0; i < calls; ++i) {
            reference();
            benchmark::ClobberMemory();
        }
        reference_seconds += of_reference.seconds();
        const stopwatch of_tessel;
        for (std::size_t i = 0; i < calls; ++i) {
            tessel();
            benchmark::ClobberMemory();
        }
        const double seconds = of_tessel.seconds();
        tessel_seconds += seconds;
        state.SetIterationTime(seconds);
    }
    state.SetBytesProcessed(static_cast<std::int64_t>(bytes * calls) * state.iterations());
    state.counters["ratio"] = reference_seconds / tessel_seconds;
}

}  // namespace tessel_bench
