#include "os/linux/proxy_helper/limits.h"

#include <poll.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/time.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <fstream>
#include <string>

namespace kro::tessel::os {
namespace {

constexpr rlim_t k_memory_of_scripts = 256U << 20U;

rlim_t writable_memory() {
    std::ifstream status("/proc/self/status");
    for (std::string word; status >> word;) {
        rlim_t kibibytes = 0;
        if (word == "VmData:" && status >> kibibytes) {
            return kibibytes * 1024;
        }
    }
    return 0;
}

void set_alarm(std::chrono::milliseconds from_now) {
    itimerval timer{};
    timer.it_value.tv_sec = from_now.count() / 1000;
    timer.it_value.tv_usec = from_now.count() % 1000 * 1000;
    ::setitimer(ITIMER_REAL, &timer, nullptr);
}

}  // namespace

void end_with_host() {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    pollfd host{STDIN_FILENO, POLLIN, 0};
    if (::poll(&host, 1, 0) > 0 && (host.revents & (POLLHUP | POLLIN)) == POLLHUP) {
        ::_exit(0);
    }
}

void settle_environment() {
    for (const char* const name :
         {"no_proxy", "NO_PROXY", "all_proxy", "ALL_PROXY", "http_proxy", "HTTP_PROXY", "https_proxy",
          "HTTPS_PROXY", "ftp_proxy", "FTP_PROXY", "_PX_DEBUG_PACURL"}) {
        ::unsetenv(name);
    }
    ::setenv("GIGACAGE_ENABLED", "0", 1);  // 72 GB of addresses
    ::setenv("JSC_useJIT", "false", 1);    // scripts are short: compiling is for what attackers bring
    ::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    const rlimit no_core{0, 0};
    ::setrlimit(RLIMIT_CORE, &no_core);
    if (::chdir("/") != 0) {
        ::_exit(1);
    }
}

void limit_memory() {
    const rlim_t most = writable_memory() + k_memory_of_scripts;
    const rlimit limit{most, most};
    ::setrlimit(RLIMIT_DATA, &limit);
}

time_limit::time_limit(std::chrono::milliseconds limit) {
    set_alarm(limit);
}

time_limit::~time_limit() {
    set_alarm(std::chrono::milliseconds(0));
}

}  // namespace kro::tessel::os
