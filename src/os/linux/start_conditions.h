// What another program is started with.
#pragma once

#include <spawn.h>
#include <sys/types.h>

#include <string>
#include <vector>

namespace kro::tessel::os {

/// A program started with these has no signal blocked or ignored, whatever the host has, and of the
/// descriptors 0 to 2 those that it is given.
class start_conditions {
public:
    start_conditions();
    start_conditions(const start_conditions&) = delete;
    start_conditions& operator=(const start_conditions&) = delete;
    ~start_conditions();

    void give(int descriptor, int as);
    void give_nothing(int as);
    /// Descriptors above 2 are closed, even those that the host lets every program inherit, and the terminal
    /// of the host isn't the program's.
    void set_apart();

    /// Runs a program, looked for along PATH when its name has no slash; the first argument is its name.
    /// Returns: an error number of the system, 0 when it runs. Never a copy of this process: safe on any
    ///          thread, whatever locks others hold.
    int start(std::vector<std::string> arguments, pid_t& process) const;

private:
    posix_spawn_file_actions_t m_files{};
    posix_spawnattr_t m_attributes{};
    short m_flags = POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF;
};

}  // namespace kro::tessel::os
