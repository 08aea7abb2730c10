// Scripts that decide on proxies (PAC): what one says about a server.
#pragma once

#include "os/proxy_settings.h"

#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace kro::tessel::os {

struct proxy_script_question {
    std::string
        script;  ///< the script's URL; empty, where the system can look for one: it has to be looked for
    std::string host;  ///< the server's name as it stands in a URL
    std::uint16_t port = 0;
};

struct proxy_script_answer {
    std::vector<proxy_route> routes;  ///< in the order to try; empty when there is a problem
    std::string left_out;             ///< what it names but is no HTTP proxy; may be empty
    std::string problem;              ///< why there is no answer, in English; empty when there is one
};

/// Asks scripts, outside this process or in the system's own service: whatever a script does, the host goes
/// on.
class proxy_script_service {
public:
    using receiver = std::function<void(const proxy_script_answer&)>;

    /// Afterwards no receiver is called; one that is running on another thread has returned.
    virtual ~proxy_script_service() = default;

    /// Returns at once. The receiver, which must not throw, is called once, on a thread of the service and
    /// without a lock of its; questions may overtake each other.
    /// Throws std::exception, and the receiver isn't called then.
    virtual void ask(proxy_script_question question, receiver answered) = 0;
};

/// A question is put as http or, for port 443, as https. Three are asked at a time. Where the library runs
/// the scripts itself, one has its answer within 5 seconds of its turn: a script takes no longer, or is
/// ended. The service of Windows knows no such limit, but for fetching a script.
std::unique_ptr<proxy_script_service> make_proxy_script_service();

}  // namespace kro::tessel::os
