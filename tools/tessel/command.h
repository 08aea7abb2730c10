// The verbs of the command. Each add_ function adds one verb (or one family) to the program; running it
// writes the exit code.
#pragma once

#include "arguments.h"

namespace command {

enum exit_code : int {
    exit_ok = 0,
    exit_failed = 1,     ///< something could not be done; standard error says what
    exit_usage = 2,      ///< bad arguments
    exit_bad_status = 3  ///< every request was answered, at least one with a status of 400 or above
};

void add_request_verbs(const cli_verb& program, int& exit_code);   ///< get head post put delete request
void add_transfer_verbs(const cli_verb& program, int& exit_code);  ///< fetch download upload
void add_coders(const cli_verb& program, int& exit_code);          ///< encode decode
void add_text(const cli_verb& program, int& exit_code);
void add_url(const cli_verb& program, int& exit_code);
void add_error(const cli_verb& program, int& exit_code);
void add_timer(const cli_verb& program, int& exit_code);
void add_xml(const cli_verb& program, int& exit_code);
void add_locale(const cli_verb& program, int& exit_code);
void add_reg(const cli_verb& program, int& exit_code);   ///< reg list, get, set, delete
void add_soap(const cli_verb& program, int& exit_code);  ///< soap config
void add_routes(const cli_verb& program, int& exit_code);
void add_accounts(const cli_verb& program, int& exit_code);  ///< accounts list, add, forget

}  // namespace command
