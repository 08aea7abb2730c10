#include "os/linux/proxy_helper.h"

#include "os/linux/start_conditions.h"

#include <dlfcn.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>

namespace kro::tessel::os {
namespace {

// An installation may be moved: the program is looked for beside this library first. Only where the loader
// knows the library by its whole path; another would be taken from the current directory.
std::string beside_this_library() {
    Dl_info library{};
    if (::dladdr(reinterpret_cast<const void*>(&proxy_helper_program), &library) == 0 ||
        library.dli_fname == nullptr || library.dli_fname[0] != '/') {
        return {};
    }
    const std::string path(library.dli_fname);
    return path.substr(0, path.rfind('/')) + "/tessel/tessel-proxy-helper";
}

}  // namespace

std::string proxy_helper_program() {
    const char* const named = ::secure_getenv("TESSEL_PROXY_HELPER");
    if (named != nullptr && *named != 0) {
        return named;
    }
    const std::string beside = beside_this_library();
    return !beside.empty() && ::access(beside.c_str(), X_OK) == 0 ? beside : TESSEL_INSTALLED_PROXY_HELPER;
}

int proxy_helper::start(const std::string& program, std::chrono::milliseconds limit) {
    int ends[2] = {-1, -1};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) {
        return errno;
    }
    m_socket.reset(ends[0]);
    const descriptor its_end(ends[1]);
    start_conditions conditions;
    conditions.give(its_end.number(), STDIN_FILENO);
    conditions.give(STDIN_FILENO, STDOUT_FILENO);
    conditions.give_nothing(STDERR_FILENO);
    conditions.set_apart();
    pid_t process = -1;
    int error = conditions.start({program, std::to_string(limit.count())}, process);
    if (error == 0) {
        m_process.reset(static_cast<int>(::syscall(SYS_pidfd_open, process, 0)));
        error = m_process.number() < 0 ? errno : 0;  // it ends by itself then, since nobody listens to it
    }
    return error;
}

// A host may ignore SIGCHLD or reap all children itself: then there is nothing left to reap here.
proxy_helper::~proxy_helper() {
    if (m_process.number() >= 0) {
        ::syscall(SYS_pidfd_send_signal, m_process.number(), SIGKILL, nullptr, 0);
        siginfo_t ending{};
        while (::waitid(P_PIDFD, static_cast<id_t>(m_process.number()), &ending, WEXITED) < 0 &&
               errno == EINTR) {
        }
    }
}

bool proxy_helper::say(std::string_view line) {
    return ::send(m_socket.number(), line.data(), line.size(), MSG_NOSIGNAL | MSG_DONTWAIT) ==
           static_cast<ssize_t>(line.size());
}

bool proxy_helper::take_line(std::string& line) {
    const auto filled = m_read.begin() + static_cast<std::ptrdiff_t>(m_size);
    const auto end = std::find(m_read.begin(), filled, '\n');
    if (end == filled) {
        return false;
    }
    line.assign(m_read.begin(), end);
    m_size = static_cast<std::size_t>(std::copy(end + 1, filled, m_read.begin()) - m_read.begin());
    return true;
}

proxy_helper::hearing proxy_helper::hear(std::string& line) {
    while (!take_line(line)) {
        if (m_size == m_read.size()) {
            return hearing::broken;
        }
        const ssize_t count =
            ::recv(m_socket.number(), m_read.data() + m_size, m_read.size() - m_size, MSG_DONTWAIT);
        if (count < 0 && errno == EINTR) {
            continue;
        }
        if (count <= 0) {
            return count < 0 && (errno == EAGAIN || errno == EWOULDBLOCK) ? hearing::nothing_yet
                                                                          : hearing::ended;
        }
        m_size += static_cast<std::size_t>(count);
    }
    return hearing::line;
}

}  // namespace kro::tessel::os
