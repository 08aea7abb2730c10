#include "../hidden_line.h"

#include <signal.h>
#include <termios.h>
#include <unistd.h>

#include <cstdio>
#include <iterator>

namespace command {
namespace {

constexpr int k_ending_signals[] = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP};

volatile sig_atomic_t g_signal = 0;

void note(int signal) {
    g_signal = signal;
}

// Notes the signals that end or stop a program, so that a read returns and the terminal can be put right
// first.
class noted_signals {
public:
    noted_signals() {
        g_signal = 0;
        struct sigaction noting = {};
        noting.sa_handler = note;
        for (std::size_t i = 0; i < std::size(k_ending_signals); ++i) {
            ::sigaction(k_ending_signals[i], &noting, &m_before[i]);
        }
    }
    noted_signals(const noted_signals&) = delete;
    noted_signals& operator=(const noted_signals&) = delete;
    ~noted_signals() {
        for (std::size_t i = 0; i < std::size(k_ending_signals); ++i) {
            ::sigaction(k_ending_signals[i], &m_before[i], nullptr);
        }
        if (g_signal != 0) {
            ::raise(g_signal);
        }
    }

private:
    struct sigaction m_before[std::size(k_ending_signals)] = {};
};

class quiet_terminal {
public:
    quiet_terminal() : m_is_terminal(::tcgetattr(STDIN_FILENO, &m_before) == 0) {
        termios quiet = m_before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO);
        m_is_quiet = m_is_terminal && ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    quiet_terminal(const quiet_terminal&) = delete;
    quiet_terminal& operator=(const quiet_terminal&) = delete;
    ~quiet_terminal() {
        if (m_is_quiet) {
            ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &m_before);
            std::fputc('\n', stderr);  // in place of the one that wasn't shown
        }
    }

    bool is_safe() const { return !m_is_terminal || m_is_quiet; }
    bool is_terminal() const { return m_is_terminal; }

private:
    termios m_before = {};
    bool m_is_terminal = false;
    bool m_is_quiet = false;
};

// Byte by byte: what is behind the line stays for whoever reads next.
bool read_line(std::string& line) {
    char byte = 0;
    ssize_t count = 0;
    while (g_signal == 0 && (count = ::read(STDIN_FILENO, &byte, 1)) == 1 && byte != '\n') {
        line += byte;
    }
    if (!line.empty() && line.back() == '\r') {
        line.pop_back();
    }
    return g_signal == 0 && (count == 1 || (count == 0 && !line.empty()));
}

}  // namespace

bool read_hidden_line(const std::string& question, std::string& line) {
    line.clear();
    const noted_signals signals;
    const quiet_terminal terminal;
    if (!terminal.is_safe()) {
        return false;
    }
    if (terminal.is_terminal()) {
        std::fputs(question.c_str(), stderr);
    }
    return read_line(line);
}

}  // namespace command
