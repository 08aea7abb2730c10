#include "../hidden_line.h"

#include "../text.h"

#include <conio.h>
#include <io.h>

#include <algorithm>
#include <cstdio>
#include <cwchar>
#include <iostream>

namespace command {
namespace {

constexpr wint_t k_interrupt = 3;
constexpr wint_t k_backspace = 8;

// Half of a character that has two units, the one that stands last.
bool is_second_half(wchar unit) {
    return unit >= 0xDC00 && unit <= 0xDFFF;
}

void take_back_one(std::wstring& line) {
    const bool has_two = line.size() > 1 && is_second_half(line.back());
    line.resize(line.size() - std::min(line.size(), std::size_t{has_two ? 2U : 1U}));
}

// Keys as they come, which the console doesn't show.
bool read_keys(std::string& line) {
    std::wstring keys;
    for (wint_t key = ::_getwch(); key != L'\r' && key != L'\n'; key = ::_getwch()) {
        if (key == k_interrupt || key == WEOF) {
            return false;
        }
        if (key == k_backspace) {
            take_back_one(keys);
        } else {
            keys += static_cast<wchar_t>(key);
        }
    }
    line = to_utf8(keys);
    return true;
}

}  // namespace

bool read_hidden_line(const std::string& question, std::string& line) {
    line.clear();
    if (::_isatty(::_fileno(stdin)) == 0) {
        return static_cast<bool>(std::getline(std::cin, line));
    }
    std::fputs(question.c_str(), stderr);
    const bool was_read = read_keys(line);
    std::fputc('\n', stderr);
    return was_read;
}

}  // namespace command
