// tessel soap URL: one call; tessel config URL: a client's configuration.
#include <tessel/tessel.h>

#include "command.h"
#include "hidden_line.h"
#include "json_line.h"
#include "soap_answer.h"
#include "soap_errors.h"
#include "text.h"

#include <fmt/core.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <string>
#include <utility>
#include <vector>

namespace command {
namespace {

using kro::tessel::CTString;

struct soap_options {
    std::string url;
    std::string method;
    std::string name_space;
    std::vector<std::string> siblings, children, uncles;
    bool trace = false;
};

struct config_options {
    std::string url;
    std::string action;
    std::string user;
    std::string client_name = "tessel";
    std::string client_version = TESSEL_VERSION;
    std::string name_space;
    bool json = false;
    bool trace = false;
};

int report_failure(const std::string& url) {
    const std::string why = soap_errors::last();
    fmt::print(stderr, "tessel: {}: {}\n", url, why.empty() ? "the call failed" : why);
    return exit_failed;
}

// NAME=TEXT, or NAME for an empty element.
void add_element(CLumSoapClient& client, SOAP_ELEMENT_TYPE type, const std::string& text) {
    const std::size_t sign = std::min(text.find('='), text.size());
    const std::size_t value = std::min(sign + 1, text.size());
    client.AddElement(type, from_utf8(text.substr(0, sign)), from_utf8(text.substr(value)));
}

// The elements in the order in which they stand on the command line, over all three options.
void add_elements(CLumSoapClient& client, const cli_verb& verb) {
    const std::map<std::string, SOAP_ELEMENT_TYPE> types = {{"--element", SOAP_ELEMENT_SIBLING},
                                                            {"--child", SOAP_ELEMENT_CHILD},
                                                            {"--uncle", SOAP_ELEMENT_UNCLE}};
    for (const auto& [name, text] : verb.given({"--element", "--child", "--uncle"})) {
        add_element(client, types.at(name), text);
    }
}

int make_call(const soap_options& options, const cli_verb& verb) {
    const soap_errors errors(options.trace);
    CLumSoapClient client;
    add_elements(client, verb);
    if (client.Call(from_utf8(options.url), from_utf8(options.method), from_utf8(options.name_space)) != 1) {
        return report_failure(options.url);
    }
    const std::string answer = text_of_answer(client);
    fmt::print("{}", indented_xml(answer));
    if (holds_fault(answer)) {
        fmt::print(stderr, "tessel: {}: the service answered with a fault\n", options.url);
        return exit_bad_status;
    }
    return exit_ok;
}

void print_table(const CLumSoapClient::client_cfg& pairs) {
    std::size_t width = 0;
    for (const auto& pair : pairs) {
        width = std::max(width, to_utf8(pair.first).size());
    }
    for (const auto& [name, value] : pairs) {
        fmt::print("{:<{}}  {}\n", to_utf8(name), width, to_utf8(value));
    }
}

void print_json(const CLumSoapClient::client_cfg& pairs) {
    for (const auto& [name, value] : pairs) {
        print_json_line(nlohmann::ordered_json{{"name", to_utf8(name)}, {"value", to_utf8(value)}});
    }
}

// Blanks don't count in a screen name, and a call without one, or without the client's name or version, isn't
// made.
std::string check_not_blank(const std::string& text) {
    return text.find_first_not_of(' ') == std::string::npos ? "may not be blank" : "";
}

int show_config(const config_options& options) {
    std::string password;
    if (!read_hidden_line(fmt::format("Password of {}: ", options.user), password)) {
        fmt::print(stderr, "tessel: no password was entered\n");
        return exit_failed;
    }
    const soap_errors errors(options.trace);
    kro::tessel::set_soap_service_namespace(from_utf8(options.name_space));
    CLumSoapClient client;
    CTString texts[] = {from_utf8(options.url),         from_utf8(options.action),
                        from_utf8(options.user),        from_utf8(password),
                        from_utf8(options.client_name), from_utf8(options.client_version)};
    if (client.CallService(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5]) != 1) {
        return report_failure(options.url);
    }
    options.json ? print_json(client.getClientCfgMap()) : print_table(client.getClientCfgMap());
    return exit_ok;
}

void add_soap_verb(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("soap", "Call a method of a SOAP service");
    auto options = std::make_shared<soap_options>();
    verb.add_option("URL", options->url).required();
    verb.add_option("--method", options->method, "the method's name").required();
    verb.add_option("--namespace", options->name_space, "its namespace; the SOAP action is both, joined")
        .required();
    const auto add = [&](const char* name, std::vector<std::string>& elements, const char* help) {
        verb.add_option(name, elements, help).type_name("NAME[=TEXT]").one_at_a_time();
    };
    add("--element", options->siblings,
        "an element beside the last one, in the method's where it is the first");
    add("--child", options->children, "an element inside the last one");
    add("--uncle", options->uncles, "an element beside the parent of the last one");
    verb.add_flag("--trace", options->trace, "every step on standard error");
    verb.callback([options, verb, &exit_code] { exit_code = make_call(*options, verb); });
}

void add_config_verb(const cli_verb& program, int& exit_code) {
    const auto verb = program.add_verb("config", "Show the configuration that a service keeps for a client");
    auto options = std::make_shared<config_options>();
    verb.add_option("URL", options->url).required();
    verb.add_option("--user", options->user,
                    "the screen name; the password is asked for, or read from a pipe")
        .required()
        .check(check_not_blank);
    verb.add_option("--action", options->action, "the SOAP action");
    verb.add_option("--namespace", options->name_space, "the service's namespace");
    verb.add_option("--client-name", options->client_name).shows_default().check(check_not_blank);
    verb.add_option("--client-version", options->client_version).shows_default().check(check_not_blank);
    verb.add_flag("--json", options->json, "a line of JSON for each pair");
    verb.add_flag("--trace", options->trace, "every step on standard error, passwords of proxies included");
    verb.callback([options, &exit_code] { exit_code = show_config(*options); });
}

}  // namespace

void add_soap(const cli_verb& program, int& exit_code) {
    add_soap_verb(program, exit_code);
    add_config_verb(program, exit_code);
}

}  // namespace command
