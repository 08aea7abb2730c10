#include "input.h"

#include "text.h"

#include <fmt/core.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <string_view>

namespace command {
namespace {

namespace http = kro::tessel::http;
using namespace std::string_view_literals;

struct file_closer {
    void operator()(std::FILE* file) const noexcept {
        if (file != stdin) {
            std::fclose(file);
        }
    }
};

bool begins(std::string_view bytes, std::string_view mark) {
    return bytes.substr(0, mark.size()) == mark;
}

kro::tessel::CTString from_utf16(std::string_view bytes, bool big_endian) {
    kro::tessel::CTString text;
    for (std::size_t i = 0; i + 1 < bytes.size(); i += 2) {
        const auto first = static_cast<unsigned char>(bytes[i]);
        const auto second = static_cast<unsigned char>(bytes[i + 1]);
        text.push_back(static_cast<wchar>(big_endian ? first << 8U | second : second << 8U | first));
    }
    return text;
}

}  // namespace

std::string read_input(const std::string& file) {
    const std::unique_ptr<std::FILE, file_closer> in(file == "-" ? stdin : std::fopen(file.c_str(), "rb"));
    std::string bytes;
    char buffer[65536];
    for (std::size_t count = 1; in != nullptr && count != 0;) {
        count = std::fread(buffer, 1, sizeof(buffer), in.get());
        bytes.append(buffer, count);
    }
    if (in == nullptr || std::ferror(in.get()) != 0) {
        throw std::runtime_error(fmt::format("{} can't be read: {}", file, std::strerror(errno)));
    }
    return bytes;
}

kro::tessel::CTString decode_text(std::string bytes) {
    if (begins(bytes, "\xFF\xFE"sv) || begins(bytes, "\xFE\xFF"sv)) {
        return from_utf16(std::string_view(bytes).substr(2), bytes[0] == '\xFE');
    }
    if (begins(bytes, "\xEF\xBB\xBF"sv)) {
        return from_utf8(std::string_view(bytes).substr(3));
    }
    kro::tessel::CTString text = from_utf8(bytes);
    const bool has_wrong_bytes = text.find(wchar(0xFFFD)) != kro::tessel::CTString::npos &&
                                 bytes.find("\xEF\xBF\xBD") == std::string::npos;
    if (has_wrong_bytes) {
        const http::_buffer_content content = {nullptr, static_cast<std::uint32_t>(bytes.size()),
                                               bytes.data()};
        return http::buffer_content_to_string(&content, false);
    }
    return text;
}

void write_output(const std::string& bytes) {
    std::fwrite(bytes.data(), 1, bytes.size(), stdout);  // main looks at the stream's error mark
}

}  // namespace command
