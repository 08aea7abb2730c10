#include "../hidden_line.h"

#include <conio.h>
#include <io.h>

#include <cstdio>
#include <iostream>

namespace command {
namespace {

constexpr int k_interrupt = 3;
constexpr int k_backspace = 8;

// Keys as they come, which the console doesn't show.
bool read_keys(std::string& line) {
    for (int key = ::_getch(); key != '\r' && key != '\n'; key = ::_getch()) {
        if (key == k_interrupt || key == EOF) {
            return false;
        }
        if (key != k_backspace) {
            line += static_cast<char>(key);
        } else if (!line.empty()) {
            line.pop_back();
        }
    }
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
