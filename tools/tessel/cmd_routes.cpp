// tessel routes URL...: the ways to a server that would be tried, and whose word they are.
#include <tessel/tessel.h>

#include "command.h"
#include "error_text.h"
#include "json_line.h"
#include "text.h"

#include <fmt/core.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <list>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

namespace command {
namespace {

using kro::tessel::CTString;
using kro::tessel::proxy_origin;
using kro::tessel::http::proxy_info;

struct routes_options {
    std::vector<std::string> urls;
    bool json = false;
};

struct found_routes {
    proxy_origin origin = proxy_origin::nothing;
    std::string script;
    double milliseconds = 0;
    std::list<proxy_info> routes;
};

bool find_routes(const CTString& url, found_routes& found) {
    CLumProxyUtil& proxies = GetProxyUtil();
    const auto start = std::chrono::steady_clock::now();
    const bool answered = proxies.GetProxyInfo(url, found.routes) != 0;
    const std::chrono::duration<double, std::milli> took = std::chrono::steady_clock::now() - start;
    found.milliseconds = took.count();
    CTString script;
    found.origin = kro::tessel::find_proxy_origin(url, script);
    found.script = to_utf8(script);
    return answered;
}

const char* name_of(proxy_origin origin) {
    switch (origin) {
        case proxy_origin::environment:
            return "environment";
        case proxy_origin::desktop:
            return "desktop";
        case proxy_origin::script:
            return "script";
        case proxy_origin::host:
            return "host";
        case proxy_origin::nothing:
            break;
    }
    return "nothing";
}

std::string described(const found_routes& found) {
    switch (found.origin) {
        case proxy_origin::environment:
            return "from the environment";
        case proxy_origin::desktop:
            return "from the desktop's settings";
        case proxy_origin::script:
            return found.script.empty() ? "from a script that has to be looked for"
                                        : "from the script " + found.script;
        case proxy_origin::host:
            return "from the host's finder";
        case proxy_origin::nothing:
            break;
    }
    return "no proxy is configured";
}

const char* type_name(const proxy_info& route) {
    return route.server.empty() ? "direct" : route.type == kro::tessel::http::proxy_https ? "https" : "http";
}

void print_json(const std::string& url, const found_routes& found) {
    nlohmann::ordered_json line = {{"url", url}, {"origin", name_of(found.origin)}};
    if (!found.script.empty()) {
        line["script"] = found.script;
    }
    line["milliseconds"] = found.milliseconds;
    line["routes"] = nlohmann::ordered_json::array();
    for (const proxy_info& route : found.routes) {
        nlohmann::ordered_json one = {{"type", type_name(route)}};
        if (!route.server.empty()) {
            one["server"] = to_utf8(route.server);
            one["port"] = route.port;
        }
        if (!route.user.empty()) {
            one["user"] = to_utf8(route.user);
        }
        line["routes"].push_back(one);
    }
    print_json_line(line);
}

void print_text(const std::string& url, const found_routes& found) {
    fmt::print("{}  {}, {:.1f} ms\n", url, described(found), found.milliseconds);
    for (const proxy_info& route : found.routes) {
        fmt::print("  {}", type_name(route));
        if (!route.server.empty()) {
            fmt::print(" {}:{}", to_utf8(route.server), route.port);
        }
        fmt::print("{}\n", route.user.empty() ? "" : ", account " + to_utf8(route.user));
    }
}

// False where there should have been routes.
bool explain_an_empty_list(const std::string& url, const found_routes& found) {
    if (!found.routes.empty()) {
        return true;
    }
    const bool by_script = found.origin == proxy_origin::script;
    const std::string problem = to_utf8(kro::tessel::last_proxy_problem());
    fmt::print(stderr, "tessel: {}: {}{}{}\n", url,
               by_script ? "A SCRIPT DECIDES ABOUT PROXIES, and it can't be evaluated here or gave no answer"
                         : "none of the proxies that are configured can be used",
               problem.empty() ? "" : ": ", problem);
    fmt::print(stderr, "tessel: {}: requests go to the server directly, which may fail\n", url);
    return false;
}

int show_routes(const routes_options& options) {
    int code = exit_ok;
    for (const std::string& url : options.urls) {
        found_routes found;
        if (!find_routes(from_utf8(url), found)) {
            constexpr std::uint32_t k_invalid_url = 12005;
            fmt::print(stderr, "tessel: {}: {}\n", url, describe_error(k_invalid_url));
            code = exit_failed;
            continue;
        }
        options.json ? print_json(url, found) : print_text(url, found);
        if (!explain_an_empty_list(url, found)) {
            code = exit_failed;
        }
    }
    return code;
}

}  // namespace

void add_routes(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("routes", "Show which proxies lead to a server, and who says so");
    auto options = std::make_shared<routes_options>();
    verb.add_option("URL", options->urls).required();
    verb.add_flag("--json", options->json, "a line of JSON for each URL");
    verb.callback([options, &exit_code] { exit_code = show_routes(*options); });
}

}  // namespace command
