#include "proxy/settings_finder.h"

#include "os/code_page.h"
#include "os/inet.h"
#include "os/proxy_script.h"
#include "os/proxy_settings.h"

#include "base/text_conversion.h"
#include "tessel/base/trace.h"

#include <exception>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

namespace kro::tessel::proxy {
namespace {

constexpr int k_not_supported = 50;

wide_string wide(const std::string& utf8) {
    return widen(os::k_code_page_utf8, utf8);
}

std::mutex g_problem_mutex;  // guards the next
std::string g_problem;       // UTF-8

void note_problem(const std::string& problem) {
    const std::lock_guard lock(g_problem_mutex);
    g_problem = problem;
}

void append_item(std::string& list, const os::proxy_route& route) {
    std::string item = "DIRECT";
    if (route.type != os::proxy_route::kind::direct) {
        if (route.host.find(':') != std::string::npos) {
            trace_message(trace_warning)
                << TESSEL_W("A proxy whose name is an IPv6 address is left out: ") << wide(route.host);
            return;
        }
        const bool secure = route.type == os::proxy_route::kind::https;
        item = (secure ? "https=" : "http=") + route.host + ":" + std::to_string(route.port);
    }
    list += (list.empty() ? "" : ";") + item;
}

// The list of an answer; an empty one is a problem, whose reason may be known.
std::string list_of(const std::vector<os::proxy_route>& routes, const std::string& left_out,
                    std::string problem) {
    if (!left_out.empty()) {
        trace_message(trace_warning) << TESSEL_W("Left out of the proxies: ") << wide(left_out);
    }
    std::string list;
    for (const os::proxy_route& route : routes) {
        append_item(list, route);
    }
    if (list.empty() && problem.empty()) {
        problem = left_out.empty() ? "its proxies can't be named in a list" : "left out: " + left_out;
    }
    note_problem(list.empty() ? problem : std::string());
    return list;
}

class settings_finder final : public IProxyFinder {
public:
    explicit settings_finder(IProxyFinderSink* sink) : m_sink(sink) {}

    int GetProxyInfo(int first, const wchar* host, unsigned short port, int* notPreconfigured, int* bAsync,
                     wchar* buffer, unsigned long* capacity) override;
    void SetAccount(const wchar* /*user*/, const wchar* /*password*/) override {}
    int BookAccount(const wchar* /*server*/, unsigned short /*port*/, const wchar* /*user*/,
                    const wchar* /*password*/) override {
        return k_not_supported;
    }

private:
    void ask_script(const os::proxy_decision& decision, const wchar* host, unsigned short port);
    void script_answered(const std::string& server, unsigned short port,
                         const os::proxy_script_answer& answer) noexcept;

    IProxyFinderSink* const m_sink;
    std::unique_ptr<os::proxy_script_service> m_scripts;  // made when settings first name a script
};

void settings_finder::ask_script(const os::proxy_decision& decision, const wchar* host, unsigned short port) {
    if (m_scripts == nullptr) {
        m_scripts = os::make_proxy_script_service();
    }
    std::string server = narrow(os::k_code_page_utf8, host);  // the answer names it as the question did
    m_scripts->ask({decision.script, decision.url_host, port},
                   [this, server = std::move(server), port](const os::proxy_script_answer& answer) {
                       script_answered(server, port, answer);
                   });
}

// A script that fails mustn't look like one that decides for a direct connection.
void settings_finder::script_answered(const std::string& server, unsigned short port,
                                      const os::proxy_script_answer& answer) noexcept try {
    if (!answer.problem.empty()) {
        trace_message(trace_warning) << TESSEL_W("The script for proxies has no answer for ") << wide(server)
                                     << TESSEL_W(":") << port << TESSEL_W(": ") << wide(answer.problem);
    }
    const std::string list = list_of(answer.routes, answer.left_out, answer.problem);
    m_sink->OnProxyGetted(server.c_str(), port, list.c_str());
} catch (const std::exception&) {
    m_sink->OnProxyGetted(server.c_str(), port, "");
}

int settings_finder::GetProxyInfo(int /*first*/, const wchar* host, unsigned short port,
                                  int* notPreconfigured, int* bAsync, wchar* buffer,
                                  unsigned long* capacity) try {
    if (host == nullptr || notPreconfigured == nullptr || bAsync == nullptr || buffer == nullptr ||
        capacity == nullptr) {
        return static_cast<int>(os::k_error_invalid_parameter);
    }
    const os::proxy_decision decision = os::read_proxy_settings(host, port);
    const bool by_script = decision.source == os::proxy_source::script;
    wide_string list;
    if (by_script) {
        ask_script(decision, host, port);
    } else {
        list = wide(list_of(decision.routes, decision.left_out, {}));
    }
    if (list.size() >= *capacity) {
        return static_cast<int>(os::k_error_insufficient_buffer);
    }
    buffer[list.copy(buffer, list.size())] = 0;
    *bAsync = by_script ? 1 : 0;
    *notPreconfigured = by_script || decision.source == os::proxy_source::desktop ? 0 : 1;
    return 0;
} catch (const std::exception&) {
    return static_cast<int>(os::k_error_not_enough_memory);
}

}  // namespace

std::unique_ptr<IProxyFinder> make_settings_finder(IProxyFinderSink* sink) {
    return std::unique_ptr<IProxyFinder>(new (std::nothrow) settings_finder(sink));
}

}  // namespace kro::tessel::proxy

kro::tessel::CTString kro::tessel::last_proxy_problem() {
    const std::lock_guard lock(proxy::g_problem_mutex);
    return CTString(proxy::wide(proxy::g_problem));
}
