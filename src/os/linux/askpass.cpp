#include "os/linux/askpass.h"

#include "os/linux/descriptor.h"
#include "os/linux/inet_text.h"
#include "os/linux/message_window_loop.h"
#include "os/linux/start_conditions.h"

#include <fcntl.h>
#include <glib-unix.h>
#include <poll.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <optional>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_longest_answer = 4096;

using moment = std::int64_t;  // microseconds of GLib's monotonic clock

std::uint32_t milliseconds_until(moment end) {
    return static_cast<std::uint32_t>(std::max<moment>(0, (end - g_get_monotonic_time() + 999) / 1000));
}

/// Waits, with the thread's loop turning, until the descriptor can be read or has been closed at its other
/// end.
bool turn_until_readable(GMainContext* context, int number, moment end) {
    bool readable = false;
    const GUnixFDSourceFunc note = [](gint, GIOCondition, gpointer flag) -> gboolean {
        *static_cast<bool*>(flag) = true;
        return G_SOURCE_REMOVE;
    };
    GSource* const source =
        g_unix_fd_source_new(number, static_cast<GIOCondition>(G_IO_IN | G_IO_HUP | G_IO_ERR));
    g_source_set_callback(source, G_SOURCE_FUNC(note), &readable, nullptr);
    g_source_attach(source, context);
    run_loop_until([&readable] { return readable; }, milliseconds_until(end));
    g_source_destroy(source);
    g_source_unref(source);
    return readable;
}

bool sleep_until_readable(int number, moment end) {
    pollfd wanted{number, POLLIN, 0};
    int count = 0;
    do {
        count = ::poll(&wanted, 1, static_cast<int>(milliseconds_until(end)));
    } while (count < 0 && errno == EINTR);
    return count > 0;
}

bool wait_until_readable(int number, moment end) {
    GMainContext* const context = g_main_context_ref_thread_default();
    const bool is_ours = g_main_context_acquire(context) != FALSE;
    const bool readable =
        is_ours ? turn_until_readable(context, number, end) : sleep_until_readable(number, end);
    if (is_ours) {
        g_main_context_release(context);
    }
    g_main_context_unref(context);
    return readable;
}

/// A program that was started to ask one question.
class asking_program {
public:
    asking_program(const std::string& program, const std::string& question) {
        int ends[2] = {-1, -1};
        if (::pipe2(ends, O_CLOEXEC) == 0) {
            m_output.reset(ends[0]);
            const descriptor its_end(ends[1]);
            start_conditions conditions;
            conditions.give_nothing(STDIN_FILENO);
            conditions.give(ends[1], STDOUT_FILENO);
            if (conditions.start({program, question}, m_process) != 0) {
                m_process = -1;
            }
        }
    }
    asking_program(const asking_program&) = delete;
    asking_program& operator=(const asking_program&) = delete;
    ~asking_program() {
        ::explicit_bzero(m_answer, sizeof m_answer);
        if (m_process > 0) {
            ::kill(m_process, SIGKILL);
            reap();
        }
    }

    std::optional<std::string> answer(moment end) {
        if (m_process <= 0 || !read_all(end) || !ends_well(end)) {
            return std::nullopt;
        }
        const auto* const line_end = std::find_if(m_answer, m_answer + m_size,
                                                  [](char c) { return c == '\n' || c == '\r' || c == '\0'; });
        return std::string(static_cast<const char*>(m_answer), line_end);
    }

private:
    bool read_all(moment end) {
        while (wait_until_readable(m_output.number(), end)) {
            const ssize_t count = ::read(m_output.number(), m_answer + m_size, sizeof m_answer - m_size);
            if (count <= 0) {
                return count == 0 && m_size < sizeof m_answer;
            }
            m_size += static_cast<std::size_t>(count);
        }
        return false;
    }

    // A program that has closed its output may go on for a while.
    bool ends_well(moment end) {
        const descriptor its_end(static_cast<int>(::syscall(SYS_pidfd_open, m_process, 0)));
        return its_end.number() >= 0 && wait_until_readable(its_end.number(), end) && reap() == 0;
    }

    // The exit status; 0 also when the host has the system reap all children: then nobody can know it.
    int reap() {
        int status = 0;
        pid_t reaped = 0;
        do {
            reaped = ::waitpid(m_process, &status, 0);
        } while (reaped < 0 && errno == EINTR);
        m_process = -1;
        return status;
    }

    descriptor m_output;
    pid_t m_process = -1;
    char m_answer[k_longest_answer] = {};
    std::size_t m_size = 0;
};

// Realms come from servers: what would move a terminal's cursor or break a line becomes a blank.
std::optional<std::string> ask(const std::string& program, std::string question, moment end) {
    const auto is_control = [](char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7F; };
    std::replace_if(question.begin(), question.end(), is_control, ' ');
    return asking_program(program, question).answer(end);
}

}  // namespace

std::string askpass_program() {
    for (const char* const name : {"TESSEL_ASKPASS", "SSH_ASKPASS"}) {
        const char* const value = ::secure_getenv(name);
        if (value != nullptr && *value != '\0') {
            return value;
        }
    }
    return {};
}

bool ask_with_program(const std::string& program, std::uint32_t limit_ms, credentials_request& request) {
    const moment end = g_get_monotonic_time() + moment{limit_ms} * 1000;
    const std::string realm = request.realm.empty() ? "" : " (" + to_utf8(request.realm) + ")";
    const std::string where = (request.for_proxy ? "proxy " : "") + to_utf8(request.host) + realm;
    const std::string known = to_utf8(request.user);
    const std::string default_name = known.empty() ? "" : " [" + known + "]";
    const auto name = ask(program, "User name for " + where + default_name + ": ", end);
    const std::string user = name && !name->empty() ? *name : known;
    if (!name || user.empty()) {
        return false;
    }
    const auto password = ask(program, "Password of " + user + " for " + where + ": ", end);
    if (!password || password->empty()) {
        return false;
    }
    request.user = CTString(from_utf8(user));
    request.password = CTString(from_utf8(*password));
    return true;
}

}  // namespace kro::tessel::os
