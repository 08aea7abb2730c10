#include "os/linux/inet_script_routes.h"

#include "os/linux/inet_text.h"

#include "tessel/base/trace.h"

#include <exception>
#include <iterator>
#include <utility>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_max_entries = 256;

// Proxies that are spoken to over TLS are none that a request can go through.
script_routes::proxies usable(const proxy_script_answer& answer) {
    script_routes::proxies found;
    for (const proxy_route& route : answer.routes) {
        if (route.type == proxy_route::kind::direct) {
            found.emplace_back();
        } else if (route.type == proxy_route::kind::http) {
            found.push_back(route.host + ':' + std::to_string(route.port));
        }
    }
    return found;
}

void trace_failure(const std::string& host, std::string_view reason) {
    trace_message(trace_warning) << TESSEL_W("The script for proxies names none for ") << widen(host)
                                 << TESSEL_W(", which is reached directly: ") << widen(reason);
}

script_routes::proxies proxies_of(const std::string& host, const proxy_script_answer& answer) {
    script_routes::proxies found = usable(answer);
    if (found.empty()) {
        trace_failure(host, answer.problem.empty() ? "it names " + answer.left_out : answer.problem);
    }
    return found;
}

}  // namespace

std::optional<script_routes::proxies> script_routes::find(const proxy_script_question& question,
                                                          receiver tell) {
    const key which(question.script, question.host, question.port);
    bool is_to_ask = false;
    auto known = look_up(which, tell, is_to_ask);
    if (!is_to_ask) {
        return known;
    }
    try {
        m_service->ask(question,
                       [this, which](const proxy_script_answer& answer) { script_answered(which, answer); });
    } catch (const std::exception& error) {
        trace_failure(question.host, error.what());
        {
            const std::lock_guard lock(m_mutex);
            auto& waiting = m_entries[which].waiting;
            waiting.erase(waiting.begin());  // the caller, who is told at once
        }
        tell_waiting(which, {});
        return proxies();
    }
    return std::nullopt;
}

std::optional<script_routes::proxies> script_routes::look_up(const key& which, receiver& tell,
                                                             bool& is_to_ask) {
    const std::lock_guard lock(m_mutex);
    if (m_service == nullptr) {
        m_service = m_make_service();
    }
    if (m_entries.size() >= k_max_entries) {
        make_room();
    }
    entry& about = m_entries[which];
    if (about.waiting.empty() && clock::now() < about.due) {
        return about.known;
    }
    is_to_ask = about.waiting.empty();
    about.waiting.push_back(std::move(tell));
    return std::nullopt;
}

void script_routes::make_room() {
    for (auto at = m_entries.begin(); at != m_entries.end();) {
        at = at->second.waiting.empty() ? m_entries.erase(at) : std::next(at);
    }
}

void script_routes::script_answered(const key& which, const proxy_script_answer& answer) noexcept try {
    tell_waiting(which, proxies_of(std::get<1>(which), answer));
} catch (const std::exception&) {
    tell_waiting(which, {});
}

void script_routes::tell_waiting(const key& which, const proxies& given) {
    std::vector<receiver> waiting;
    {
        const std::lock_guard lock(m_mutex);
        entry& about = m_entries[which];
        waiting.swap(about.waiting);
        about.known = given;
        about.due = clock::now() + k_answers_stay;
    }
    for (const receiver& tell : waiting) {
        tell(given);
    }
}

script_routes& system_script_routes() {
    static script_routes& s_routes = *new script_routes(make_proxy_script_service);
    return s_routes;
}

}  // namespace kro::tessel::os
