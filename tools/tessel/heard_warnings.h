// What the library warns of while something is done: the only place where it says why a list is shorter.
#pragma once

#include <string>
#include <vector>

namespace command {

/// Listens to the trace while it lives. Other lines go on to standard error up to the level that TESSEL_TRACE
/// names.
class heard_warnings {
public:
    heard_warnings();
    heard_warnings(const heard_warnings&) = delete;
    heard_warnings& operator=(const heard_warnings&) = delete;
    ~heard_warnings();

    /// The warnings and errors since the last call, without their prefix; from all threads.
    static std::vector<std::string> take();
};

}  // namespace command
