#include "arguments.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstddef>
#include <map>

namespace command {

cli_option cli_option::required() const {
    return cli_option(m_option->required());
}

cli_option cli_option::check(std::string (*complaint)(const std::string&)) const {
    return cli_option(m_option->check(complaint));
}

cli_option cli_option::one_of(const std::vector<std::string>& texts) const {
    return cli_option(m_option->check(CLI::IsMember(texts)));
}

cli_option cli_option::between(std::uint32_t least, std::uint32_t most) const {
    return cli_option(m_option->check(CLI::Range(least, most)));
}

cli_option cli_option::excludes(cli_option other) const {
    return cli_option(m_option->excludes(other.m_option));
}

cli_option cli_option::one_at_a_time() const {
    return cli_option(m_option->allow_extra_args(false));
}

cli_option cli_option::shows_default() const {
    return cli_option(m_option->capture_default_str());
}

cli_option cli_option::type_name(const char* name) const {
    return cli_option(m_option->type_name(name));
}

cli_verb cli_verb::add_verb(const char* name, const char* help) const {
    return cli_verb(m_app->add_subcommand(name, help));
}

void cli_verb::require_verb() const {
    m_app->require_subcommand(1);
}

cli_option cli_verb::add_option(const char* name, std::string& value, const char* help) const {
    return cli_option(m_app->add_option(name, value, help));
}

cli_option cli_verb::add_option(const char* name, std::optional<std::string>& value, const char* help) const {
    return cli_option(m_app->add_option(name, value, help));
}

cli_option cli_verb::add_option(const char* name, std::vector<std::string>& values, const char* help) const {
    return cli_option(m_app->add_option(name, values, help));
}

cli_option cli_verb::add_option(const char* name, std::uint32_t& value, const char* help) const {
    return cli_option(m_app->add_option(name, value, help));
}

cli_option cli_verb::add_option_function(const char* name,
                                         const std::function<void(const std::string&)>& take,
                                         const char* help) const {
    return cli_option(m_app->add_option_function<std::string>(name, take, help));
}

void cli_verb::add_flag(const char* name, bool& value, const char* help) const {
    m_app->add_flag(name, value, help);
}

void cli_verb::callback(const std::function<void()>& run) const {
    m_app->callback(run);
}

std::vector<std::pair<std::string, std::string>> cli_verb::given(
    const std::vector<std::string>& names) const {
    std::vector<std::pair<std::string, std::string>> found;
    std::map<std::string, std::size_t> taken;
    for (const CLI::Option* option : m_app->parse_order()) {
        const std::string& name = option->get_name();
        if (std::find(names.begin(), names.end(), name) != names.end()) {
            found.emplace_back(name, option->results().at(taken[name]++));
        }
    }
    return found;
}

}  // namespace command
