#include "http/request_machine.h"

#include "os/message_window.h"
#include "os/thread.h"
#include "os/url.h"

#include "http/gzip.h"
#include "http/helper_window.h"
#include "tessel/base/trace.h"
#include "tessel/http/engine.h"
#include "tessel/proxy/proxy_util.h"

#include <new>
#include <utility>

namespace kro::tessel::http {
namespace {

constexpr std::uint32_t k_no_connection = 0xFFFFFFFFU;

constexpr std::uint32_t k_open_flags =
    os::k_request_reload | os::k_request_keep_connection | os::k_request_ignore_redirect_to_http |
    os::k_request_ignore_redirect_to_https | os::k_request_ignore_cert_date_invalid |
    os::k_request_ignore_cert_cn_invalid;
static_assert(k_open_flags == 0x8040F000U);

constexpr std::uint32_t k_dialog_flags =
    os::k_dialog_filter_for_errors | os::k_dialog_change_options | os::k_dialog_generate_data;

bool carries_body(http_method_t method) {
    return method != http_method_get && method != http_method_head && method != http_method_delete;
}

bool is_challenge(std::uint32_t status) {
    return status == 401 || status == 403 || status == 407;
}

void trace_step(const wchar* text) {
    trace_message(trace_debug) << text;
}

void trace_number(const wchar* text, std::uint32_t number) {
    trace_message(trace_debug) << text << number;
}

}  // namespace

request_machine::request_machine(engine_state& state, request_ref slot)
    : m_engine(state), m_slot(std::move(slot)), m_lock(m_slot->step), m_context(*m_slot->context) {
    m_engine.live.change_locked([this] { m_start = m_slot->start; });
}

std::uint32_t request_machine::start() {
    if (has_ended()) {
        return os::k_error_inet_operation_cancelled;  // by another thread, since it was found
    }
    trace_message(trace_debug) << TESSEL_W("[httputil] || init_session ")
                               << static_cast<const void*>(&m_context);
    forget_earlier_start();
    if (m_context.url.empty() || !crack_url(m_context.url, m_context.components)) {
        return os::k_error_inet_invalid_url;
    }
    os::inet_handle session = nullptr;
    const std::uint32_t error = m_engine.connections.ensure_session(m_context, status_callback, session);
    if (error != 0) {
        return error;
    }
    m_context.host_key = m_context.components.host;
    m_context.port = m_context.components.port;
    const bool connected = m_engine.connections.find({m_context.host_key, m_context.port}) != nullptr;
    m_context.state = connected ? state_opening : state_connecting;
    if (!m_engine.live.add(m_slot)) {
        return os::k_error_inet_operation_cancelled;
    }
    return connected ? process_state() : connect(session);
}

// A request that is started again closes its old request and frees what that one received; the sink's last
// decision stays.
void request_machine::forget_earlier_start() {
    const live_requests::begun begun = m_engine.live.begin_start(*m_slot);
    m_start = begun.start;
    // A context that was detached in the middle of its transfer has a request that the engine has forgotten.
    const os::inet_handle old = begun.old_request != nullptr ? begun.old_request : m_context.request;
    if (old != nullptr) {
        os::inet().close(old);
    }
    m_context.request = nullptr;
    drop_response();
    m_context.buffers = {};
    m_context.status_code = 0;
    m_context.async_result = 0;
    m_context.async_error = 0;
}

std::uint32_t request_machine::connect(os::inet_handle session) {
    const _url_components& parts = m_context.components;
    // The notice may come inside the call: then the connection is stored and the first step posted already.
    const os::inet_handle connection =
        os::inet().connect(session, parts.host, parts.port, parts.user, parts.password, context_value());
    const std::uint32_t error = os::last_error();
    if (connection == nullptr) {
        return error == os::k_error_io_pending ? 0 : error;
    }
    m_engine.connections.store({m_context.host_key, m_context.port}, connection);
    return 0;
}

std::uint32_t request_machine::process_state() {
    switch (m_context.state) {
        case state_opening:
            return open_request();
        case state_sending:
            return send_request();
        case state_ending:
            return after_send();
        case state_reading:
            return after_receive();
        default:
            return 0;
    }
}

std::uint32_t request_machine::open_request() {
    trace_step(TESSEL_W("[httputil] || open_request"));
    const os::inet_handle connection = m_engine.connections.find({m_context.host_key, m_context.port});
    if (connection == nullptr) {
        return k_no_connection;
    }
    const _url_components& parts = m_context.components;
    const std::uint32_t flags =
        parts.scheme_number == os::k_scheme_https ? k_open_flags | os::k_request_secure : k_open_flags;
    const os::inet_handle request = os::inet().open_request(
        connection, get_http_method_name(m_context.method), parts.path + parts.extra, flags, context_value());
    const std::uint32_t error = os::last_error();
    if (request != nullptr) {
        m_engine.live.change_locked([&] { m_context.request = m_slot->request = request; });
        return 0;
    }
    if (error == os::k_error_io_pending) {
        return 0;
    }
    trace_number(TESSEL_W("HttpOpenRequest failed, error "), error);
    return error;
}

void request_machine::set_proxy_credentials() {
    const proxy_info& proxy = m_context.proxy;
    if (proxy.server.empty() || (proxy.user.empty() && proxy.password.empty())) {
        return;
    }
    os::inet().set_credentials(m_context.request, os::inet_credentials::proxy,
                               proxy.user.empty() ? nullptr : &proxy.user,
                               proxy.password.empty() ? nullptr : &proxy.password);
}

std::uint32_t request_machine::send_request() {
    trace_step(TESSEL_W("[httputil] || send_request"));
    drop_response();  // of the send before, when this is another try
    set_proxy_credentials();
    INTERNET_BUFFERSW& buffers = m_context.buffers;
    buffers = {};
    buffers.dwStructSize = sizeof buffers;
    buffers.lpcszHeader = m_context.headers.c_str();
    buffers.dwHeadersLength = static_cast<std::uint32_t>(m_context.headers.length());
    if (carries_body(m_context.method)) {
        buffers.lpvBuffer = m_context.data;
        buffers.dwBufferLength = m_context.data_len;
    }
    const os::inet_status sent =
        os::inet().send(m_context.request, {buffers.lpcszHeader, buffers.dwHeadersLength}, buffers.lpvBuffer,
                        buffers.dwBufferLength, os::inet_send_mode::begin, context_value());
    if (sent.ok()) {
        trace_step(
            TESSEL_W("HttpSendRequestEx SYNC called successfully. call HttpEndRequest manually. (this may be "
                     "an error.)"));
        m_context.state = state_ending;
        return end_request();
    }
    if (sent.pending()) {
        trace_step(TESSEL_W("HttpSendRequestEx async called successfully"));
        return 0;
    }
    trace_number(TESSEL_W("HttpSendRequestEx failed, error "), sent.error);
    return sent.error;
}

std::uint32_t request_machine::after_send() {
    return m_context.async_result != 0 ? end_request() : after_failed_send();
}

std::uint32_t request_machine::after_failed_send() {
    trace_number(TESSEL_W("[httputil] Send Error: "), m_context.async_error);
    http_session_error_sink* const sink = m_context.error_sink;
    if (sink != nullptr && !call_host([&] { sink->on_send_error(&m_context); })) {
        return 0;
    }
    trace_number(TESSEL_W("[httputil] resolvent_ (enum{failed, retry, default}): "), m_context.resolvent);
    bool again = m_context.resolvent == retry;
    if (m_context.resolvent == failed) {
        // The thread's last error, not async_error: a sink that wants the prompt sets it (kept).
        const std::uint32_t error = os::last_error();
        if (error == os::k_error_inet_incorrect_user_name || error == os::k_error_inet_incorrect_password) {
            std::uint32_t answer = 0;
            if (!ask_for_credentials(error, answer)) {
                return 0;
            }
            trace_number(TESSEL_W("InternetErrorDlg return "), answer);
            again = answer == os::k_error_inet_force_retry;
        }
    }
    if (again) {
        m_context.state = state_sending;
        return send_request();
    }
    return m_context.async_error;
}

std::uint32_t request_machine::end_request() {
    trace_step(TESSEL_W("[httputil] || end_request"));
    m_context.buffers = {};
    m_context.buffers.dwStructSize = sizeof m_context.buffers;
    const os::inet_status ended = os::inet().end(m_context.request, context_value());
    if (ended.ok()) {
        return 0;
    }
    if (ended.pending()) {
        trace_step(TESSEL_W("HttpEndRequest called"));
        return 0;
    }
    trace_number(TESSEL_W("HttpEndRequest failed, error "), ended.error);
    return ended.error;
}

std::uint32_t request_machine::after_receive() {
    http_session_error_sink* const sink = m_context.error_sink;
    if (m_context.async_result == 0) {
        const std::uint32_t error = m_context.async_error;
        keep_bytes(m_context.buffers.dwBufferLength);
        trace_number(TESSEL_W("[httputil] Recv Error: "), error);
        if (sink != nullptr && !call_host([&] { sink->on_recv_error(&m_context); })) {
            return 0;
        }
        return error;
    }
    std::uint32_t status = 0;
    if (!os::inet().query_number(m_context.request, os::k_query_status_code, status).ok()) {
        const std::uint32_t error = os::last_error();
        trace_step(TESSEL_W("[httputil] Failed to get http status code"));
        return error;
    }
    m_context.status_code = status;
    if (status < 200 || status >= 300) {
        trace_message(trace_debug) << TESSEL_W("[httputil] Recv Error: ") << m_context.async_error
                                   << TESSEL_W("\tHttpcode: ") << status;
        if (sink != nullptr && !call_host([&] { sink->on_recv_error(&m_context); })) {
            return 0;
        }
    }
    return go_on_after_status();
}

// The decision counts for every status, 2xx included, and is never reset (kept).
std::uint32_t request_machine::go_on_after_status() {
    bool again = m_context.resolvent == retry;
    if (m_context.resolvent == failed && is_challenge(m_context.status_code)) {
        std::uint32_t answer = 0;
        if (!ask_for_credentials(os::k_error_inet_incorrect_password, answer)) {
            return 0;
        }
        trace_number(TESSEL_W("[httputil] InternetErrorDlg return "), answer);
        again = answer == os::k_error_inet_force_retry;
    } else if (m_context.resolvent != failed && !again) {
        return m_context.async_error;
    }
    if (again) {
        m_context.state = state_sending;
        return send_request();
    }
    return read_request();
}

bool request_machine::ask_for_credentials(std::uint32_t error, std::uint32_t& answer) {
    const os::inet_handle request = m_context.request;
    const bool current = call_host([&] {
        answer = os::inet().dialog(os::message_windows().dialog_parent(), request, error, k_dialog_flags);
    });
    const bool may_have_changed = answer == 0 || answer == os::k_error_inet_force_retry;
    return current && (!may_have_changed || read_credentials_back());
}

bool request_machine::read_credentials_back() {
    wide_string user;
    wide_string password;
    if (!os::inet().get_credentials(m_context.request, os::inet_credentials::proxy, user, password).ok()) {
        return true;
    }
    m_context.proxy.user = CTString(std::move(user));
    m_context.proxy.password = CTString(std::move(password));
    // The finder that is told of the account may be the host's.
    return call_host([proxy = m_context.proxy] { GetProxyUtil().UpdateProxyAccount(proxy); });
}

void request_machine::finish() {
    if (m_context.content != nullptr && m_context.auto_decode_gzip) {
        _buffer_content* const decoded =
            decode_gzip(m_context.request, m_context.content, [this] { return !is_current(); });
        if (decoded != nullptr) {
            m_context.content = decoded;
        }
    }
    if (!is_current()) {
        return;
    }
    const complete_procedure procedure = m_context.complete_proc;
    if (procedure != nullptr) {
        const unsigned long user_context = m_context.user_context;
        call_host([&] { procedure(user_context, &m_context); });
    }
    // Read only now: the procedure may have set it, or have ended the context.
    if (m_engine.live.is_live(*m_slot) && m_context.auto_delete) {
        http_session::mgr().remove(&m_context);
    }
}

std::uint32_t request_machine::process_guarded() try {
    return process_state();
} catch (const std::bad_alloc&) {
    return os::k_error_not_enough_memory;
}

void run_due_step(session_context* context) noexcept {
    request_ref slot = engine().live.find(context);
    if (slot == nullptr) {
        return;
    }
    request_machine machine(engine(), std::move(slot));
    if (!machine.takes_step()) {
        return;
    }
    const std::uint32_t error = machine.process_guarded();
    if (error != 0 && machine.is_current()) {
        trace_number(TESSEL_W("[httputil] state_processor failed. ret: "), error);
        machine.finish();
    }
}

}  // namespace kro::tessel::http
