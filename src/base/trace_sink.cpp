#include "base/trace_sink.h"

#include "os/trace_output.h"

#include <atomic>
#include <mutex>

namespace kro::tessel {
namespace {

void write_by_default(int level, const wchar* text) {
    if (level <= os::default_trace_level()) {
        os::write_default_trace(text);
    }
}

constexpr trace_sink k_default_sink{write_by_default, os::default_trace_level};

std::atomic<const trace_sink*> g_sink{&k_default_sink};

// Sinks that hosts have set, never freed: another thread may be inside a replaced one. Each is kept once.
struct kept_sink {
    trace_sink sink;
    kept_sink* next;
};

const trace_sink* keep(const trace_sink& sink) {
    static std::mutex mutex;  // guards the list
    static kept_sink* first = nullptr;
    const std::lock_guard lock(mutex);
    for (const kept_sink* kept = first; kept != nullptr; kept = kept->next) {
        if (kept->sink.write == sink.write && kept->sink.level == sink.level) {
            return &kept->sink;
        }
    }
    first = new kept_sink{sink, first};
    return &first->sink;
}

}  // namespace

const trace_sink& current_trace_sink() noexcept {
    return *g_sink.load(std::memory_order_acquire);
}

bool trace_line_is_wanted(int level) noexcept {
    return &current_trace_sink() != &k_default_sink || level <= os::default_trace_level();
}

void set_trace_sink(trace_sink sink) {
    const bool complete = sink.write != nullptr && sink.level != nullptr;
    g_sink.store(complete ? keep(sink) : &k_default_sink, std::memory_order_release);
}

}  // namespace kro::tessel
