#include "os/linux/start_conditions.h"

#include <fcntl.h>
#include <unistd.h>

#include <csignal>

namespace kro::tessel::os {

start_conditions::start_conditions() {
    sigset_t none;
    sigset_t all;
    ::sigemptyset(&none);
    ::sigfillset(&all);
    ::posix_spawn_file_actions_init(&m_files);
    ::posix_spawnattr_init(&m_attributes);
    ::posix_spawnattr_setsigmask(&m_attributes, &none);
    ::posix_spawnattr_setsigdefault(&m_attributes, &all);
    ::posix_spawnattr_setflags(&m_attributes, m_flags);
}

start_conditions::~start_conditions() {
    ::posix_spawnattr_destroy(&m_attributes);
    ::posix_spawn_file_actions_destroy(&m_files);
}

void start_conditions::give(int descriptor, int as) {
    ::posix_spawn_file_actions_adddup2(&m_files, descriptor, as);
}

void start_conditions::give_nothing(int as) {
    ::posix_spawn_file_actions_addopen(&m_files, as, "/dev/null", O_RDWR, 0);
}

void start_conditions::set_apart() {
    ::posix_spawn_file_actions_addclosefrom_np(&m_files, STDERR_FILENO + 1);
    m_flags |= POSIX_SPAWN_SETSID;
    ::posix_spawnattr_setflags(&m_attributes, m_flags);
}

int start_conditions::start(std::vector<std::string> arguments, pid_t& process) const {
    std::vector<char*> pointers;
    pointers.reserve(arguments.size() + 1);
    for (std::string& argument : arguments) {
        pointers.push_back(argument.data());
    }
    pointers.push_back(nullptr);
    return ::posix_spawnp(&process, pointers[0], &m_files, &m_attributes, pointers.data(), environ);
}

}  // namespace kro::tessel::os
