#include "trace_lines.h"

#include "text.h"

#include <fmt/core.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <string>

namespace command {
namespace {

using steady = std::chrono::steady_clock;

std::atomic<int> g_threads_seen{0};
steady::time_point g_start;

std::string thread_name() {
    static thread_local const int t_number = g_threads_seen.fetch_add(1);
    return t_number == 0 ? "ui" : t_number == 1 ? "service" : fmt::format("thread {}", t_number);
}

void write_line(int /*level*/, const wchar* text) {
    show_trace_line(text);
}

int every_level() {
    return kro::tessel::trace_debug;
}

}  // namespace

void show_trace_line(const wchar* text) {
    const std::chrono::duration<double, std::milli> elapsed = steady::now() - g_start;
    const std::string line =
        fmt::format("[{:9.3f} ms {:<7}] {}\n", elapsed.count(), thread_name(), to_utf8(text));
    std::fwrite(line.data(), 1, line.size(), stderr);  // whole: stderr has no buffer, stdio locks it
}

void show_trace() {
    g_start = steady::now();
    thread_name();  // claims the first number for this thread
    kro::tessel::set_trace_sink({write_line, every_level});
}

}  // namespace command
