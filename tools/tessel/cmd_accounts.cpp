// tessel accounts list|add|forget: the accounts of proxies that every program on this library begins with.
#include <tessel/tessel.h>

#include "command.h"
#include "error_text.h"
#include "hidden_line.h"
#include "host_port.h"
#include "json_line.h"
#include "reg_value.h"
#include "text.h"

#include <fmt/core.h>

#include <cstdint>
#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>

namespace command {
namespace {

using kro::tessel::http::proxy_http;
using kro::tessel::http::proxy_https;
using kro::tessel::http::proxy_info;

constexpr long k_access_denied = 5;

struct accounts_options {
    std::string proxy;
    std::string user;
    std::string type = "http";
    bool shows_passwords = false;
    bool json = false;
};

// The library reads the server up to the first colon, so that an IPv6 address can't be kept.
std::string check_proxy(const std::string& text) {
    const std::string host = split_host_port(text).host;
    return host.empty() || host.find_first_of(":\\") != std::string::npos
               ? fmt::format("a proxy is given as HOST:PORT, not \"{}\"", text)
               : "";
}

// Host names have no case, but routes are compared with it, and discovery's are in lower case.
host_port place_of(const accounts_options& options) {
    host_port place = split_host_port(options.proxy);
    place.host = to_lower(place.host);
    return place;
}

int failed(const std::string& what, long status) {
    fmt::print(stderr, "tessel: {}: {}\n", what, describe_error(static_cast<std::uint32_t>(status)));
    return exit_failed;
}

void print_json(const proxy_info& account, bool shows_password) {
    nlohmann::ordered_json line = {{"server", to_utf8(account.server)},
                                   {"port", account.port},
                                   {"type", account.type == proxy_https ? "https" : "http"},
                                   {"user", to_utf8(account.user)}};
    if (shows_password) {
        line["password"] = to_utf8(account.password);
    }
    print_json_line(line);
}

void print_text(const proxy_info& account, bool shows_password) {
    const char* const hidden = account.password.empty() ? "(no password)" : "(password hidden)";
    fmt::print("{}:{}  {}  {}  {}\n", to_utf8(account.server), account.port,
               account.type == proxy_https ? "https" : "http", to_utf8(account.user),
               shows_password ? to_utf8(account.password) : hidden);
}

int list(const accounts_options& options) {
    if (const long status = registry_status(HKEY_CURRENT_USER); status != 0) {
        return failed("the registry", status);
    }
    for (const CLumProxyInfo& account : kro::tessel::saved_proxy_accounts()) {
        options.json ? print_json(account, options.shows_passwords)
                     : print_text(account, options.shows_passwords);
    }
    return exit_ok;
}

int add(const accounts_options& options) {
    const host_port place = place_of(options);
    std::string password;
    if (!read_hidden_line(fmt::format("Password of {} at {}: ", options.user, options.proxy), password) ||
        password.empty()) {
        fmt::print(stderr, "tessel: no password was entered\n");
        return exit_failed;
    }
    const proxy_info account(options.type == "https" ? proxy_https : proxy_http, from_utf8(place.host),
                             place.port, from_utf8(options.user), from_utf8(password));
    if (GetProxyUtil().SaveProxyInfo(account) == 0) {
        const long status = registry_status(HKEY_CURRENT_USER);
        return failed(options.proxy, status == 0 ? k_access_denied : status);
    }
    return exit_ok;
}

int forget(const accounts_options& options) {
    const host_port place = place_of(options);
    if (kro::tessel::forget_proxy_account(from_utf8(place.host), place.port)) {
        return exit_ok;
    }
    if (const long status = registry_status(HKEY_CURRENT_USER); status != 0) {
        return failed(options.proxy, status);
    }
    fmt::print(stderr, "tessel: {}: no account of this proxy can be forgotten (tessel accounts list)\n",
               options.proxy);
    return exit_failed;
}

cli_verb add_verb(const cli_verb& family, const char* name, const char* what,
                  int (*run)(const accounts_options&), const std::shared_ptr<accounts_options>& options,
                  int& exit_code) {
    const auto verb = family.add_verb(name, what);
    verb.callback([options, run, &exit_code] { exit_code = run(*options); });
    return verb;
}

}  // namespace

void add_accounts(const cli_verb& program, int& exit_code) {
    const auto family = program.add_verb("accounts", "Show and change the accounts of proxies that are kept");
    family.require_verb();
    auto options = std::make_shared<accounts_options>();
    const auto listing = add_verb(family, "list", "Show all", list, options, exit_code);
    const auto adding = add_verb(family, "add", "Keep one; its password is asked for, or read from a pipe",
                                 add, options, exit_code);
    const auto forgetting = add_verb(family, "forget", "Forget one", forget, options, exit_code);
    listing.add_flag("--show-passwords", options->shows_passwords, "in clear");
    listing.add_flag("--json", options->json, "a line of JSON for each");
    for (const cli_verb verb : {adding, forgetting}) {
        verb.add_option("HOST:PORT", options->proxy, "of the proxy").required().check(check_proxy);
    }
    adding.add_option("--user", options->user, "the user name").required();
    adding.add_option("--type", options->type, "how it is spoken to")
        .one_of({"http", "https"})
        .shows_default();
}

}  // namespace command
