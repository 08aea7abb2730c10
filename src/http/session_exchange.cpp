// Sending a session's request and deciding, with its sink and its user, what is to follow.
#include "os/message_window.h"

#include "base/text_conversion.h"
#include "http/request_headers.h"
#include "http/session_transfer.h"
#include "tessel/base/trace.h"
#include "tessel/platform/exception.h"

namespace kro::tessel::http {
namespace {

using exception::internal_errno_exception;

constexpr std::uint32_t k_utf8 = 65001;
constexpr std::uint32_t k_error_of_status = 12000;

constexpr std::uint32_t k_dialog_flags =
    os::k_dialog_filter_for_errors | os::k_dialog_change_options | os::k_dialog_generate_data;

constexpr std::basic_string_view<wchar> k_raw_type =
    TESSEL_W("Content-Type: application/x-www-form-urlencoded");
constexpr std::basic_string_view<wchar> k_text_type =
    TESSEL_W("Content-Type: application/x-www-form-urlencoded;charset:utf-8");

bool carries_body(http_method_t method) {
    return method != http_method_get && method != http_method_head && method != http_method_delete;
}

bool asks_for_credentials(std::uint32_t status) {
    return status == 401 || status == 403 || status == 407;
}

}  // namespace

void session_transfer::compose(form how) {
    m_outgoing = {};
    if (how == form::bare) {
        return;
    }
    const auto& given = m_session.m_data_to_header;
    wide_string& lines = m_outgoing.headers;
    lines = header_lines(given.data, given.len);
    if (how == form::run && !names_header(lines, TESSEL_W("content-type"))) {
        append_header(lines, m_session.m_raw_data ? k_raw_type : k_text_type);
    }
    if (m_session.m_accept_gzip_header) {
        append_header(lines, TESSEL_W("Accept-Encoding: gzip, deflate"));
    }
    if (how == form::run) {
        append_header(lines, TESSEL_W("Connection: close"));
    }
    if (carries_body(m_session.m_method)) {
        add_body(how);
    }
}

void session_transfer::add_body(form how) {
    const auto& given = m_session.m_data_to_post;
    m_outgoing.body = given.data;
    m_outgoing.bytes = given.len;
    if (how == form::run && !m_session.m_raw_data) {
        try {
            m_outgoing.text =
                narrow(k_utf8, {static_cast<const wchar*>(given.data), given.len / sizeof(wchar)});
        } catch (const std::length_error&) {
            throw exception::internal_errno_exception(os::k_error_invalid_parameter);
        }
        m_outgoing.body = m_outgoing.text.data();
        m_outgoing.bytes = static_cast<std::uint32_t>(m_outgoing.text.size());
    }
}

// Composed for each attempt: the sink may have changed what is to be sent.
os::inet_status session_transfer::send(form how) {
    m_session.m_response.reset();
    compose(how);
    m_gone_out = 0;
    const auto context = is_watched() ? reinterpret_cast<std::uintptr_t>(this) : 0;
    const os::inet_status sent =
        os::inet().send(m_request, m_outgoing.headers, m_outgoing.bytes == 0 ? nullptr : m_outgoing.body,
                        m_outgoing.bytes, os::inet_send_mode::whole, context);
    throw_if_ended();
    return sent;
}

void session_transfer::read_status() {
    std::uint32_t status = 0;
    const os::inet_status known = os::inet().query_number(m_request, os::k_query_status_code, status);
    if (!known.ok()) {
        throw internal_errno_exception(known.error);
    }
    m_session.m_response.set_status_code(static_cast<unsigned short>(status));
}

session_transfer::outcome session_transfer::send_and_check(form how) {
    const os::inet_status sent = send(how);
    if (!sent.ok()) {
        return {false, false, sent.error};
    }
    read_status();
    const std::uint32_t status = m_session.m_response.get_status_code();
    const bool ok = status >= 200 && status <= 299;
    return {true, ok, ok ? 0 : k_error_of_status};
}

void session_transfer::send_regardless(form how) {
    if (send(how).ok()) {
        read_status();
    }
}

void session_transfer::send_until_settled(form how) {
    for (;;) {
        const outcome what = send_and_check(how);
        if (what.ok) {
            return;
        }
        if (!is_wanted_again(what)) {
            if (!what.sent) {
                throw internal_errno_exception(what.error);
            }
            return;  // an error status is a response, too
        }
    }
}

bool session_transfer::is_wanted_again(const outcome& what) {
    const error_resolvent decision = ask_sink(what);
    return decision == retry || (decision == failed && user_wants_again(what));
}

error_resolvent session_transfer::ask_sink(const outcome& what) {
    trace_message(trace_debug) << TESSEL_W("[httputil] err/result/code (before on_send_data_error) is ")
                               << what.error << TESSEL_W("/") << int{what.ok} << TESSEL_W("/")
                               << m_session.m_response.get_status_code();
    error_resolvent decision = failed;
    http_session_sink* const sink = m_session.m_sink;
    if (sink != nullptr) {
        sink->on_send_data_error(&m_session, m_request, what.error, decision);
    }
    trace_message(trace_debug) << TESSEL_W("[httputil] \terr/result (after on_send_data_error) is ")
                               << what.error << TESSEL_W("/") << static_cast<int>(decision);
    if (sink != nullptr && decision == failed) {
        sink->on_response_error(&m_session, m_request, what.error, decision);
    }
    return decision;
}

bool session_transfer::user_wants_again(const outcome& what) {
    const bool is_challenge = asks_for_credentials(m_session.m_response.get_status_code());
    const std::uint32_t error = is_challenge ? os::k_error_inet_incorrect_password : what.error;
    const bool is_shown = is_challenge || error == os::k_error_inet_incorrect_user_name ||
                          error == os::k_error_inet_incorrect_password;
    trace_message(trace_debug) << TESSEL_W("showdlg is ") << int{is_shown};
    if (!is_shown) {
        return false;
    }
    void* const parent = m_session.m_parent_wnd;
    const std::uint32_t answer = os::inet().dialog(
        parent != nullptr ? parent : os::message_windows().dialog_parent(), m_request, error, k_dialog_flags);
    trace_message(trace_debug) << TESSEL_W("InternetErrorDlg return ") << answer;
    return answer == os::k_error_inet_force_retry;
}

}  // namespace kro::tessel::http
