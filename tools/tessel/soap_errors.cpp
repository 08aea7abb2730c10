#include "soap_errors.h"

#include <tessel/tessel.h>

#include "error_text.h"
#include "text.h"
#include "trace_lines.h"

#include <fmt/core.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace command {
namespace {

constexpr std::string_view k_mark = "Soap Error: ";
constexpr std::string_view k_fault_mark = "Soap Fault: ";

struct listening {
    int level = 0;
    bool shows_all = false;
    std::string code;
    std::string fault;
};

listening& heard() {
    static listening s_heard;
    return s_heard;
}

void listen(int level, const wchar* text) {
    const std::string line = to_utf8(text);
    const std::size_t error = line.find(k_mark);
    const std::size_t fault = line.find(k_fault_mark);
    if (fault != std::string::npos) {
        heard().fault = line.substr(fault + k_fault_mark.size());
    } else if (error != std::string::npos) {
        heard().code = line.substr(error + k_mark.size());
    }
    if (heard().shows_all) {
        show_trace_line(text);
    } else if (fault == std::string::npos && level <= heard().level) {  // the fault is told at the end
        fmt::print(stderr, "{}\n", line);
    }
}

int wanted_level() {
    return kro::tessel::trace_debug;
}

std::string describe(std::uint32_t code) {
    constexpr std::uint32_t k_system = 0x80070000;
    constexpr std::uint32_t k_http = 0x80190000;
    const std::uint32_t kind = code & 0xFFFF0000U;
    const std::uint32_t number = code & 0xFFFFU;
    switch (code) {
        case 0x80004003:
            return "the answer holds no result";
        case 0x80004005:
            return "the answer is no XML document that is to be read (does a SOAP service live at this URL?)";
        case 0x80040154:
            return "the system has no SOAP toolkit (install it)";
        case 0x80070057:
            return "a name, a value or the action holds characters that can't be sent (names are XML names "
                   "without a colon)";
        case 0x8007000D:
            return "the answer is compressed, which nobody asked for";
        case 0x800700DF:
            return "the answer is too large";
        case 0x8007000E:
            return "no memory";
        case 0x800A13BA:
            return "the proxy wants an account (tessel accounts keeps it)";
        default:
            break;
    }
    if (kind == k_http) {
        return fmt::format("the server answered with HTTP status {}", number);
    }
    return kind == k_system ? describe_error(number) : std::string("the SOAP toolkit failed");
}

}  // namespace

soap_errors::soap_errors(bool shows_trace) {
    const char* level = std::getenv("TESSEL_TRACE");
    heard().level = level == nullptr ? 0 : std::atoi(level);
    heard().shows_all = shows_trace;
    if (shows_trace) {
        show_trace();
    }
    kro::tessel::set_trace_sink({listen, wanted_level});
}

soap_errors::~soap_errors() {
    kro::tessel::set_trace_sink({nullptr, nullptr});
}

std::string soap_errors::last() {
    if (!heard().fault.empty()) {
        return "the service answered with a fault: " + heard().fault;
    }
    if (heard().code.empty()) {
        return {};
    }
    return fmt::format("{}: {}", heard().code,
                       describe(static_cast<std::uint32_t>(std::strtoul(heard().code.c_str(), nullptr, 16))));
}

}  // namespace command
