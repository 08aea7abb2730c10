// tessel: what the library does, from a shell.
#include "certificates.h"
#include "command.h"
#include "standard_streams.h"

#include <fmt/core.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>

namespace {

void trust(const std::string& file) {
    if (const std::string refusal = command::trust_certificates_in(file); !refusal.empty()) {
        throw command::usage_error("--ca-file: " + refusal);
    }
}

int misused(const std::exception& error) {
    fmt::print(stderr, "tessel: {} (tessel --help shows how)\n", error.what());
    return command::exit_usage;
}

int run(int argc, char** argv) {
    CLI::App program("Makes HTTP requests through the tessel library and shows what it knows.", "tessel");
    int code = command::exit_ok;
    program.require_subcommand(1);
    program.allow_windows_style_options(false);  // a path may begin with a slash on every system
    program.fallthrough();                       // the options of the program may stand behind a verb
    program
        .add_option_function<std::string>("--ca-file", trust, "Trust the certificates in this PEM file only")
        ->type_name("FILE");
    program.set_version_flag("--version", "tessel " TESSEL_VERSION);
    const command::cli_verb verbs(&program);
    for (auto* const add :
         {command::add_request_verbs, command::add_transfer_verbs, command::add_url, command::add_coders,
          command::add_text, command::add_error, command::add_timer, command::add_xml, command::add_locale,
          command::add_reg, command::add_soap, command::add_routes, command::add_accounts}) {
        add(verbs, code);
    }
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& wanted) {  // --help, --version
        return program.exit(wanted);
    } catch (const CLI::ParseError& error) {
        return misused(error);
    } catch (const command::usage_error& error) {
        return misused(error);
    }
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        fmt::print(stderr, "tessel: standard output can't be written\n");
        return command::exit_failed;
    }
    return code;
}

}  // namespace

int main(int argc, char** argv) {
    command::pass_bytes_on();
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "tessel: %s\n", error.what());
        return command::exit_failed;
    }
}
