// Records every trace line of the process while it lives.
#pragma once

#include "tessel/base/string.h"
#include "tessel/base/trace.h"
#include "tessel/platform/host.h"

#include <algorithm>
#include <mutex>
#include <string_view>
#include <utility>
#include <vector>

namespace tessel_test {

class trace_recorder {
public:
    explicit trace_recorder(int level = kro::tessel::trace_debug) {
        const std::lock_guard lock(s_mutex);
        s_lines.clear();
        s_level = level;
        kro::tessel::set_trace_sink({write, get_level});
    }
    ~trace_recorder() { kro::tessel::set_trace_sink({nullptr, nullptr}); }
    trace_recorder(const trace_recorder&) = delete;
    trace_recorder& operator=(const trace_recorder&) = delete;

    using line = std::pair<int, kro::tessel::wide_string>;

    static std::vector<line> lines() {
        const std::lock_guard lock(s_mutex);
        return s_lines;
    }
    static std::size_t count(std::basic_string_view<wchar> part) {
        const std::lock_guard lock(s_mutex);
        return static_cast<std::size_t>(std::count_if(s_lines.begin(), s_lines.end(), [&](const line& one) {
            return one.second.find(part) != kro::tessel::wide_string::npos;
        }));
    }
    static bool has(std::basic_string_view<wchar> part) { return count(part) != 0; }
    static void clear() {
        const std::lock_guard lock(s_mutex);
        s_lines.clear();
    }

private:
    static void write(int level, const wchar* text) {
        const std::lock_guard lock(s_mutex);
        s_lines.emplace_back(level, text);
    }
    static int get_level() {
        const std::lock_guard lock(s_mutex);
        return s_level;
    }

    static inline std::mutex s_mutex;  // guards the two below
    static inline std::vector<line> s_lines;
    static inline int s_level = kro::tessel::trace_debug;
};

}  // namespace tessel_test
