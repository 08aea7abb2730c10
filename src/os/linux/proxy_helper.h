// The library's end of one proxy helper: a process of the program tessel-proxy-helper.
#pragma once

#include "os/linux/descriptor.h"
#include "os/linux/proxy_helper/protocol.h"

#include <sys/types.h>

#include <array>
#include <chrono>
#include <string>
#include <string_view>

namespace kro::tessel::os {

/// The program: what TESSEL_PROXY_HELPER names, else the one that was installed with this library.
std::string proxy_helper_program();

/// Ends the process when it is destroyed. One thread at a time, and that which starts it has to stay: the
/// kernel ends the process with it.
class proxy_helper {
public:
    proxy_helper() = default;
    proxy_helper(const proxy_helper&) = delete;
    proxy_helper& operator=(const proxy_helper&) = delete;
    ~proxy_helper();

    /// limit: how long it may take over one question.
    /// Returns an error number of the system, or 0.
    int start(const std::string& program, std::chrono::milliseconds limit);

    /// Never waits. False: it doesn't take it, and must be ended.
    bool say(std::string_view line);

    enum class hearing { nothing_yet, line, ended, broken };
    /// Never waits. A line is what came up to a line end, without it; broken: it talks, but not in lines.
    hearing hear(std::string& line);

    /// To wait on.
    int socket() const noexcept { return m_socket.number(); }

private:
    bool take_line(std::string& line);

    descriptor m_socket;
    descriptor m_process;  // a number that no other process gets, whoever reaps this one
    std::array<char, proxy_helper_protocol::k_longest_line> m_read{};
    std::size_t m_size = 0;
};

}  // namespace kro::tessel::os
