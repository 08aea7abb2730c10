#include "os/trace_output.h"

#include "code_page_utf8.h"

#include <unistd.h>

#include <cstdlib>
#include <new>
#include <string>

namespace kro::tessel::os {
namespace {

// The text in UTF-8, with a line end.
std::string line_of(const wchar* text) {
    const std::size_t units = std::char_traits<wchar>::length(text);
    const std::size_t bytes = wide_to_utf8(text, units, false, nullptr, 0).written;
    std::string line(bytes + 1, '\n');
    wide_to_utf8(text, units, false, line.data(), bytes);
    return line;
}

}  // namespace

int default_trace_level() noexcept {
    static const int level = [] {
        const char* text = std::getenv("TESSEL_TRACE");
        return text == nullptr ? 0 : static_cast<int>(std::strtol(text, nullptr, 10));
    }();
    return level;
}

void write_default_trace(const wchar* text) noexcept {
    try {
        const std::string line = line_of(text);
        // One write a line, so that lines of several threads and processes don't mix.
        [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
    } catch (const std::bad_alloc&) {
        // A line that there's no memory for is lost: there is nobody to tell.
    }
}

}  // namespace kro::tessel::os
