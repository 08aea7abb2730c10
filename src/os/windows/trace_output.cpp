#include "os/trace_output.h"

#include <windows.h>

#include <cstdlib>
#include <new>
#include <string>

namespace kro::tessel::os {

int default_trace_level() noexcept {
    static const int level = [] {
        const char* const text = std::getenv("TESSEL_TRACE");
        return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10));
    }();
    return level;
}

void write_default_trace(const wchar* text) noexcept {
    try {
        // One call a line, so that lines of several threads don't mix.
        const wide_string line = wide_string(text) + TESSEL_W("\n");
        ::OutputDebugStringW(line.c_str());
    } catch (const std::bad_alloc&) {
        // A line that there's no memory for is lost: there is nobody to tell.
    }
}

}  // namespace kro::tessel::os
