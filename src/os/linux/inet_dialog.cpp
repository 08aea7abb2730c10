#include "os/linux/inet_dialog.h"

#include "os/linux/askpass.h"
#include "os/prompt.h"

#include <algorithm>

namespace kro::tessel::os {
namespace {

// The realm of a challenge, as in: Basic realm="a \"quoted\" name", charset="UTF-8".
std::string realm_of(std::string_view challenge) {
    const std::string lower = lowered(challenge);
    const auto found = lower.find("realm=");
    if (found == std::string::npos) {
        return {};
    }
    std::string_view rest = challenge.substr(found + 6);
    if (rest.empty() || rest.front() != '"') {
        return std::string(trimmed(rest.substr(0, rest.find(','))));
    }
    std::string realm;
    for (std::size_t i = 1; i < rest.size() && rest[i] != '"'; ++i) {
        if (rest[i] == '\\' && i + 1 < rest.size()) {
            ++i;
        }
        realm += rest[i];
    }
    return realm;
}

bool is_certificate_question(std::uint32_t error) noexcept {
    return error == k_error_inet_cert_date_invalid || error == k_error_inet_cert_cn_invalid ||
           error == k_error_inet_invalid_ca;
}

bool ask(credentials_request& question, const wide_account& refused) {
    if (const credentials_prompt prompt = current_prompt()) {
        return prompt(question);
    }
    const std::string program = askpass_program();
    if (program.empty() || !ask_with_program(program, k_askpass_limit_ms, question)) {
        return false;
    }
    // A program that knows one answer only would give it for ever, and have the account locked.
    return question.user != refused.user || question.password != refused.password;
}

std::uint32_t ask_for_credentials(inet_request& request, const inet_request::challenge& challenge) {
    credentials_request question;
    question.for_proxy = challenge.status == 407;
    const wide_account known = request.account_in_question(question.for_proxy);
    question.host = widen(challenge.host);
    question.realm = from_utf8(realm_of(challenge.text));
    question.user = known.user;
    if (!ask(question, known)) {
        return k_error_cancelled_by_user;
    }
    request.take_account(question.for_proxy, {question.user, question.password});
    return k_error_inet_force_retry;
}

}  // namespace

std::uint32_t show_dialog(inet_request& request, std::uint32_t error, std::uint32_t flags) {
    const bool looks_at_response = (flags & k_dialog_filter_for_errors) != 0;
    const bool is_about_account =
        error == k_error_inet_incorrect_user_name || error == k_error_inet_incorrect_password;
    if (is_certificate_question(error)) {
        return k_error_cancelled_by_user;  // nobody can be asked to trust a certificate here
    }
    if (is_about_account || (looks_at_response && error == 0)) {
        const auto challenge = request.challenge_of_response();
        if (challenge.status == 401 || challenge.status == 407) {
            return ask_for_credentials(request, challenge);
        }
        return 0;
    }
    return looks_at_response ? 0 : k_error_cancelled_by_user;
}

}  // namespace kro::tessel::os
