// Any bytes as an INI file: the value that the rules give when they are followed one after the other over the
// whole file in memory.
#include "os/code_page.h"
#include "os/profile.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

namespace {

using kro::tessel::wide_string;
namespace os = kro::tessel::os;

void require(bool holds) {
    if (!holds) {
        std::abort();
    }
}

wide_string text_of(std::string_view bytes) {
    wide_string units(bytes.size(), wchar(0));
    const auto count = static_cast<std::int32_t>(bytes.size());
    units.resize(bytes.empty() ? 0
                               : static_cast<std::size_t>(os::code_pages().to_wide(
                                     os::k_code_page_utf8, 0, bytes.data(), count, units.data(), count)));
    return units;
}

wide_string text_of(std::basic_string_view<wchar> units) {
    return wide_string(units);
}

wide_string trimmed(const wide_string& text) {
    const wide_string blanks = TESSEL_W(" \t");
    const std::size_t first = text.find_first_not_of(blanks);
    return first == wide_string::npos ? wide_string()
                                      : text.substr(first, text.find_last_not_of(blanks) + 1 - first);
}

bool is_name(const wide_string& text, wchar lower) {
    return text.size() == 1 && (text[0] == lower || text[0] == lower - 32);
}

wide_string unquoted(const wide_string& value) {
    const bool quoted =
        value.size() > 1 && value.front() == value.back() && (value.front() == '"' || value.front() == '\'');
    return quoted ? value.substr(1, value.size() - 2) : value;
}

// The value of key `key` in section "s", or "-".
template <class Unit>
wide_string by_the_rules(std::basic_string_view<Unit> file, wchar key) {
    bool inside = false;
    while (!file.empty()) {
        const auto* const end = std::find_if(file.data(), file.data() + file.size(), [](Unit unit) {
            return unit == Unit('\r') || unit == Unit('\n');
        });
        const auto length = static_cast<std::size_t>(end - file.data());
        const auto bytes = file.substr(0, length);
        file.remove_prefix(std::min(file.size(), length + 1));
        const wide_string line = trimmed(text_of(bytes.substr(0, bytes.find(Unit(0)))));
        if (line.empty() || line[0] == ';') {
            continue;
        }
        const std::size_t bracket = line.rfind(wchar(']'));
        if (line[0] == '[' && bracket != wide_string::npos) {
            if (inside) {
                break;
            }
            inside = is_name(trimmed(line.substr(1, bracket - 1)), 's');
            continue;
        }
        const std::size_t sign = line.find(wchar('='));
        if (inside && is_name(trimmed(line.substr(0, sign)), key)) {
            return sign == wide_string::npos ? TESSEL_W("-") : unquoted(trimmed(line.substr(sign + 1)));
        }
    }
    return TESSEL_W("-");
}

wide_string expected(std::string_view file, wchar key) {
    const std::string_view mark = file.substr(0, 2);
    if (mark == "\xFF\xFE" || mark == "\xFE\xFF") {
        wide_string units;
        for (std::size_t at = 2; at + 1 < file.size(); at += 2) {
            const auto first = static_cast<unsigned char>(file[at]);
            const auto second = static_cast<unsigned char>(file[at + 1]);
            units.push_back(
                static_cast<wchar>(mark[0] == '\xFF' ? second << 8U | first : first << 8U | second));
        }
        return by_the_rules(std::basic_string_view<wchar>(units), key);
    }
    return by_the_rules(file.substr(file.substr(0, 3) == "\xEF\xBB\xBF" ? 3 : 0), key);
}

// A file in memory, under the name that the system has for it.
class memory_file {
public:
    memory_file() : m_descriptor(::memfd_create("ini", MFD_CLOEXEC)) {
        const std::string name = "/proc/self/fd/" + std::to_string(m_descriptor);
        m_name.assign(name.begin(), name.end());
    }
    void write(std::string_view bytes) const {
        require(::ftruncate(m_descriptor, 0) == 0);
        require(::pwrite(m_descriptor, bytes.data(), bytes.size(), 0) == static_cast<ssize_t>(bytes.size()));
    }
    const wide_string& name() const { return m_name; }

private:
    const int m_descriptor;
    wide_string m_name;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const memory_file file;
    // The first bytes put blanks and a comment in front, so that the window ends anywhere.
    std::string bytes;
    if (size > 2) {
        const std::size_t filler = data[0] % 16U == 0 ? std::size_t{65400} + data[1] : 0;
        bytes.assign(reinterpret_cast<const char*>(data) + 2, size - 2);
        const std::size_t mark = bytes.compare(0, 3, "\xEF\xBB\xBF") == 0 ? 3 : 0;
        bytes.insert(mark, filler != 0 && (mark != 0 || (bytes[0] & 0x80) == 0)
                               ? ";" + std::string(filler, 'x') + "\n"
                               : "");
    }
    file.write(bytes);
    for (const wchar key : {wchar('k'), wchar(0xE9)}) {
        wchar out[128];
        const wchar name[] = {key, 0};
        const std::uint32_t units =
            os::profiles().get_string(TESSEL_W("S"), name, TESSEL_W("-"), out, 128, file.name().c_str());
        require(units < 128 && out[units] == 0);
        require(wide_string(out, units) == expected(bytes, key).substr(0, 127));
    }
    return 0;
}
