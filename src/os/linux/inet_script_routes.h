// What scripts for proxies (PAC) say about servers, for requests that go by the system's settings.
#pragma once

#include "os/proxy_script.h"

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <tuple>
#include <vector>

namespace kro::tessel::os {

/// Keeps answers for a while, and puts one question for all requests that wait for it.
class script_routes {
public:
    /// "host:port" each, empty for a direct connection; in the order to try. None at all is direct, too.
    using proxies = std::vector<std::string>;
    using receiver = std::function<void(const proxies&)>;
    using service_maker = std::unique_ptr<proxy_script_service> (*)();

    static constexpr auto k_answers_stay = std::chrono::seconds(10);

    explicit script_routes(service_maker make_service) : m_make_service(make_service) {}

    /// What is known already; else nothing, and the receiver, which must not throw, is called once, on
    /// another thread. A script that fails is traced as a warning and stands for a direct connection, as on
    /// the other system: a notebook out of reach of its office's script still gets somewhere.
    std::optional<proxies> find(const proxy_script_question& question, receiver tell);

private:
    using clock = std::chrono::steady_clock;
    using key = std::tuple<std::string, std::string, std::uint16_t>;  // script, host, port
    struct entry {
        std::vector<receiver> waiting;  // not empty: the script has been asked
        proxies known;
        clock::time_point due = clock::time_point::min();
    };

    std::optional<proxies> look_up(const key& which, receiver& tell, bool& is_to_ask);
    void make_room();  // for new servers: answers are short-lived anyway
    void script_answered(const key& which, const proxy_script_answer& answer) noexcept;
    void tell_waiting(const key& which, const proxies& given);

    const service_maker m_make_service;
    std::mutex m_mutex;  // guards all below
    std::unique_ptr<proxy_script_service> m_service;
    std::map<key, entry> m_entries;
};

/// Of the process; never destroyed, since requests may wait while it ends.
script_routes& system_script_routes();

}  // namespace kro::tessel::os
