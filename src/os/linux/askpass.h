// The prompt for credentials when the host has none: a program that asks the user, as ssh and others run it.
#pragma once

#include "tessel/platform/host.h"

#include <cstdint>
#include <string>

namespace kro::tessel::os {

/// The program that asks: TESSEL_ASKPASS, else SSH_ASKPASS; empty when neither is set. A program without a
/// slash is looked for along PATH.
std::string askpass_program();

/// How long a user may take over one question.
inline constexpr std::uint32_t k_askpass_limit_ms = 5 * 60 * 1000;

/// Runs `program` twice, with the question as its only argument and without a shell: for the user name, where
/// an empty answer keeps the one that is known, and for the password. The first line of what it writes is the
/// answer, in UTF-8. Meanwhile the calling thread's loop goes on turning, unless another thread turns it.
/// Returns false when there is no answer: the program can't be run, ends with a status other than 0, writes
/// nothing or more than an answer can be, or takes longer than the limit (it is killed then).
bool ask_with_program(const std::string& program, std::uint32_t limit_ms, credentials_request& request);

}  // namespace kro::tessel::os
