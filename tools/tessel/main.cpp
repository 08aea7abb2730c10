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
    command::add_request_verbs(verbs, code);
    command::add_transfer_verbs(verbs, code);
    command::add_url(verbs, code);
    command::add_coders(verbs, code);
    command::add_text(verbs, code);
    command::add_error(verbs, code);
    command::add_timer(verbs, code);
    command::add_xml(verbs, code);
    command::add_locale(verbs, code);
    command::add_reg(verbs, code);
    command::add_soap(verbs, code);
    command::add_routes(verbs, code);
    command::add_accounts(verbs, code);
    try {
        program.parse(argc, argv);
    } catch (const CLI::Success& wanted) {  // --help, --version
        return program.exit(wanted);
    } catch (const CLI::ParseError& error) {
        fmt::print(stderr, "tessel: {} (tessel --help shows how)\n", error.what());
        return command::exit_usage;
    } catch (const command::usage_error& error) {
        fmt::print(stderr, "tessel: {} (tessel --help shows how)\n", error.what());
        return command::exit_usage;
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
