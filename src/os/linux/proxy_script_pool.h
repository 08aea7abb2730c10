// Asks scripts for proxies through helper processes.
#pragma once

#include "os/proxy_script.h"

#include <chrono>
#include <memory>
#include <string>

namespace kro::tessel::os {

struct proxy_script_limits {
    std::chrono::milliseconds question{5000};  ///< from its turn to its answer, a helper's start included
    std::chrono::milliseconds idle{60'000};    ///< a helper that nobody asks for so long is ended
};

/// One helper serves all questions, in their order. When the newest of those that are being evaluated takes
/// longer than a fifth of its time while others wait, another helper is started, three at most: a script that
/// hangs for one server doesn't hold up the others. A question whose helper ends under it is put once more,
/// to another, in what is left of its time. program: of the helpers; started at the first question.
std::unique_ptr<proxy_script_service> make_proxy_script_pool(std::string program, proxy_script_limits limits);

}  // namespace kro::tessel::os
