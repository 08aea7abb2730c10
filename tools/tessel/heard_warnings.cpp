#include "heard_warnings.h"

#include <tessel/tessel.h>

#include "text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <utility>

namespace command {
namespace {

std::mutex g_lock;
std::vector<std::string> g_heard;

int level_of_environment() {
    static const int level = [] {
        const char* const text = std::getenv("TESSEL_TRACE");
        return text == nullptr ? 0 : std::atoi(text);
    }();
    return level;
}

void listen(int level, const wchar* text) {
    const std::string line = to_utf8(text);
    if (level <= kro::tessel::trace_warning) {
        const std::size_t colon = line.find(": ");
        const std::lock_guard lock(g_lock);
        g_heard.push_back(line.substr(colon == std::string::npos ? 0 : colon + 2));
    } else if (level <= level_of_environment()) {
        fmt::print(stderr, "{}\n", line);
    }
}

}  // namespace

heard_warnings::heard_warnings() {
    level_of_environment();
    kro::tessel::set_trace_sink({listen, level_of_environment});
}

heard_warnings::~heard_warnings() {
    kro::tessel::set_trace_sink({nullptr, nullptr});
}

std::vector<std::string> heard_warnings::take() {
    const std::lock_guard lock(g_lock);
    return std::exchange(g_heard, {});
}

}  // namespace command
