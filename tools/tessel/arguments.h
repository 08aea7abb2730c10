// The verbs of the command and their options. Only arguments.cpp and main.cpp see the parser itself: reading
// its header takes several times as long as compiling a verb.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace CLI {
class App;
class Option;
}  // namespace CLI

namespace command {

/// Bad arguments, found by a verb itself: shown like what the parser finds.
class usage_error : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

/// One option or positional argument; a handle to what the parser owns.
class cli_option {
public:
    explicit cli_option(CLI::Option* option) : m_option(option) {}

    cli_option required() const;
    /// The function gives what is wrong with a text, "" for nothing.
    cli_option check(std::string (*complaint)(const std::string&)) const;
    cli_option one_of(const std::vector<std::string>& texts) const;
    cli_option between(std::uint32_t least, std::uint32_t most) const;
    cli_option excludes(cli_option other) const;
    cli_option one_at_a_time() const;  ///< it takes one text each time that it is given
    cli_option shows_default() const;
    cli_option type_name(const char* name) const;

private:
    CLI::Option* m_option;
};

/// The program, a verb or a family of verbs; a handle to what the parser owns. What an option writes to has
/// to live until the verb has run.
class cli_verb {
public:
    explicit cli_verb(CLI::App* app) : m_app(app) {}

    cli_verb add_verb(const char* name, const char* help) const;
    void require_verb() const;  ///< of a family: one of its verbs has to follow
    cli_option add_option(const char* name, std::string& value, const char* help = "") const;
    cli_option add_option(const char* name, std::optional<std::string>& value, const char* help = "") const;
    cli_option add_option(const char* name, std::vector<std::string>& values, const char* help = "") const;
    cli_option add_option(const char* name, std::uint32_t& value, const char* help = "") const;
    cli_option add_option_function(const char* name, const std::function<void(const std::string&)>& take,
                                   const char* help) const;
    void add_flag(const char* name, bool& value, const char* help) const;
    void callback(const std::function<void()>& run) const;

    /// The options among these names as they were given: name and text, in the order of the command line.
    std::vector<std::pair<std::string, std::string>> given(const std::vector<std::string>& names) const;

private:
    CLI::App* m_app;
};

}  // namespace command
