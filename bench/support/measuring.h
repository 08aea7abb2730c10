// Medians of rounds in which the sides take turns, so that a busy machine hits all of them.
#pragma once

#include "support/bench_server.h"

#include <sys/prctl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <vector>

namespace tessel_bench {

struct measured {
    double seconds = 0;
    double processor = 0;
};

inline double processor_seconds() {
    rusage use{};
    ::getrusage(RUSAGE_SELF, &use);
    const auto seconds = [](const timeval& time) {
        return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
    };
    return seconds(use.ru_utime) + seconds(use.ru_stime);
}

inline measured measure(const std::function<void()>& work) {
    const double processor = processor_seconds();
    const auto start = std::chrono::steady_clock::now();
    work();
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
    return {took.count(), processor_seconds() - processor};
}

inline double median(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values[values.size() / 2];
}

struct settings {
    int rounds = 7;
    int requests = 20'000;
    std::size_t mib = 512;
    std::uint32_t limit = 0;  ///< of connections to the server; 0: the library's own
    std::uint16_t port = 0;
    std::vector<std::uint16_t> ports;  ///< of all servers: the same one is seen as many
    std::vector<std::string> names;    ///< of the measurements; none: all
    std::string side;                  ///< only sides whose names begin so, for a profiler

    bool wants(const std::string& name) const {
        return names.empty() || std::find(names.begin(), names.end(), name) != names.end();
    }
};

/// For a server with many connections, and for those who keep many.
inline void raise_descriptor_limit() {
    rlimit limit{};
    ::getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);
}

/// Reads [--rounds N] [--requests N] [--mib N] [--limit N] [--side TEXT] [name ...] and starts the server in
/// a process of its own.
inline settings settings_of(int count, char** arguments, std::size_t servers = 1) {
    settings how;
    for (int i = 1; i < count; ++i) {
        const std::string word = arguments[i];
        if (word == "--rounds" && i + 1 < count) {
            how.rounds = std::atoi(arguments[++i]);
        } else if (word == "--requests" && i + 1 < count) {
            how.requests = std::atoi(arguments[++i]);
        } else if (word == "--limit" && i + 1 < count) {
            how.limit = static_cast<std::uint32_t>(std::atoi(arguments[++i]));
        } else if (word == "--mib" && i + 1 < count) {
            how.mib = static_cast<std::size_t>(std::atoi(arguments[++i]));
        } else if (word == "--side" && i + 1 < count) {
            how.side = arguments[++i];
        } else if (word.rfind("--benchmark_min_time", 0) == 0) {
            how.rounds = 1;  // as for the other benchmarks: only see that it runs
            how.requests = 400;
            how.mib = 4;
        } else {
            how.names.push_back(word);
        }
    }
    raise_descriptor_limit();
    bench_server server(servers);
    how.ports = server.ports();
    how.port = how.ports.front();
    if (::fork() == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        server.run();
    }
    server.close_listeners();
    return how;
}

struct side {
    std::string name;
    std::function<void()> work;
    std::vector<double> seconds;
    std::vector<double> processor;
};

inline void compare(const settings& how, const std::string& title, double units, const char* unit,
                    std::vector<side> sides) {
    const auto is_left_out = [&how](const side& one) { return one.name.rfind(how.side, 0) != 0; };
    sides.erase(std::remove_if(sides.begin(), sides.end(), is_left_out), sides.end());
    if (sides.empty()) {
        return;
    }
    for (int round = 0; round < how.rounds; ++round) {
        for (side& one : sides) {
            const measured result = measure(one.work);
            one.seconds.push_back(result.seconds);
            one.processor.push_back(result.processor);
        }
    }
    const double ours = median(sides.front().seconds);
    for (const side& one : sides) {
        const double seconds = median(one.seconds);
        std::printf("%-10s %-24s %10.0f %s/s  %8.2f us of processor a unit   ratio %.3f\n", title.c_str(),
                    one.name.c_str(), units / seconds, unit, median(one.processor) / units * 1e6,
                    seconds / ours);
    }
    std::fflush(stdout);
}

}  // namespace tessel_bench
