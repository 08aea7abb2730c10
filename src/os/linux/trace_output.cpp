#include "os/trace_output.h"

#include <unistd.h>

#include <cstdlib>
#include <string>

namespace kro::tessel::os {
namespace {

void append_utf8(std::string& out, std::uint32_t point) {
    const auto unit = [&out](std::uint32_t bits) { out.push_back(static_cast<char>(bits)); };
    if (point < 0x80U) {
        unit(point);
    } else if (point < 0x800U) {
        unit(0xC0U | (point >> 6U));
        unit(0x80U | (point & 0x3FU));
    } else if (point < 0x10000U) {
        unit(0xE0U | (point >> 12U));
        unit(0x80U | ((point >> 6U) & 0x3FU));
        unit(0x80U | (point & 0x3FU));
    } else {
        unit(0xF0U | (point >> 18U));
        unit(0x80U | ((point >> 12U) & 0x3FU));
        unit(0x80U | ((point >> 6U) & 0x3FU));
        unit(0x80U | (point & 0x3FU));
    }
}

std::string to_utf8(const wchar* text) {
    std::string out;
    for (; *text != 0; ++text) {
        const std::uint32_t unit = *text;
        const bool leads = unit >= 0xD800U && unit < 0xDC00U;
        const bool paired = leads && text[1] >= 0xDC00U && text[1] < 0xE000U;
        if (paired) {
            ++text;
            append_utf8(out, 0x10000U + ((unit - 0xD800U) << 10U) + (*text - 0xDC00U));
        } else {
            append_utf8(out, unit >= 0xD800U && unit < 0xE000U ? 0xFFFDU : unit);
        }
    }
    return out;
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
        std::string line = to_utf8(text);
        line.push_back('\n');
        // One write a line, so that lines of several threads and processes don't mix.
        [[maybe_unused]] const auto written = ::write(STDERR_FILENO, line.data(), line.size());
    } catch (const std::bad_alloc&) {
        // A line that there's no memory for is lost: there is nobody to tell.
    }
}

}  // namespace kro::tessel::os
