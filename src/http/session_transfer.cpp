#include "http/session_transfer.h"

#include "os/thread.h"
#include "os/url.h"

#include "http/cancel_state.h"
#include "http/gzip.h"
#include "platform/exception_boundary.h"
#include "tessel/platform/exception.h"

#include <algorithm>
#include <charconv>
#include <system_error>
#include <utility>

namespace kro::tessel::http {
namespace {

using exception::internal_errno_exception;
using wide_view = std::basic_string_view<wchar>;

constexpr std::uint32_t k_open_flags = os::k_request_reload | os::k_request_no_cache_write |
                                       os::k_request_ignore_redirect_to_https |
                                       os::k_request_ignore_redirect_to_http;
static_assert(k_open_flags == 0x8400C000U);  // a faulty certificate is a failure

constexpr wide_view k_default_agent = TESSEL_W("Mozilla/4.0 (compatible; MSIE 6.0; Win32)");
constexpr wide_view k_local_names = TESSEL_W("<local>");
constexpr std::uint32_t k_least_wait_for_large_body = 360000;  // ms

// Ends the run with the last error, which the failed call has set.
[[noreturn]] void fail_with_last_error() {
    const std::uint32_t error = os::last_error();
    throw internal_errno_exception(error != 0 ? error : os::k_error_inet_internal);
}

CTString proxy_text(const proxy_info& proxy) {
    const std::string port = std::to_string(proxy.port);
    CTString text = proxy.server + TESSEL_W(":");
    text.append(port.begin(), port.end());
    return text;
}

void close(os::inet_handle& handle) noexcept {
    if (handle != nullptr) {
        os::inet().close(std::exchange(handle, nullptr));
    }
}

}  // namespace

std::uint32_t session_transfer::perform(const std::function<void()>& steps) {
    set_last_error(0);
    std::uint32_t error = exception::number_of([&] {
        steps();
        throw_if_ended();
    });
    if (error != 0 && is_cancelled()) {
        error = os::k_error_inet_operation_cancelled;
    }
    close_all();
    set_last_error(error);  // for the sink
    if (m_session.m_sink != nullptr) {
        const std::uint32_t thrown = exception::number_of([this] {
            m_session.m_sink->on_completed(&m_session, m_session.get_action_data(), &m_session.m_response);
        });
        error = error != 0 ? error : thrown;
    }
    set_last_error(error);
    return error;
}

void session_transfer::open_as_set() {
    const proxy_info& proxy = m_session.m_proxy;
    const CTString& agent = m_session.m_agent;
    const std::uint32_t undirected = m_session.m_preconfig ? os::k_access_preconfigured : os::k_access_direct;
    open(proxy.server.empty() ? undirected : os::k_access_proxy,
         proxy.server.empty() ? CTString() : proxy_text(proxy),
         agent.empty() ? k_default_agent : wide_view(agent));
    set_proxy_account();
}

void session_transfer::open_for_large_body() {
    open(os::k_access_preconfigured, {}, k_default_agent);
    std::uint32_t wait = 0;
    const bool known = os::inet().get_timeout(m_request, os::inet_timeout::receive, wait).ok();
    const bool is_limited = wait != 0;
    if (!known || (is_limited && wait < k_least_wait_for_large_body)) {
        os::inet().set_timeout(m_request, os::inet_timeout::receive, k_least_wait_for_large_body);
    }
}

const _url_components& session_transfer::url_parts() {
    if (m_session.m_cracked_url.empty() || m_session.m_cracked_url != m_session.m_url) {
        m_session.m_cracked_url.clear();
        if (!crack_url(m_session.m_url, m_session.m_components)) {
            fail_with_last_error();
        }
        m_session.m_cracked_url = m_session.m_url;
    }
    return m_session.m_components;
}

void session_transfer::open(std::uint32_t access, wide_view proxy, wide_view agent) {
    os::inet_service& net = os::inet();
    const _url_components& parts = url_parts();
    const bool is_system = access == os::k_access_preconfigured;
    m_internet = net.open(access, proxy, is_system ? k_local_names : wide_view(), agent, false);
    if (m_internet == nullptr) {
        fail_with_last_error();
    }
    if (is_watched()) {
        net.set_callback(m_internet, hear);
    }
    m_connection = net.connect(m_internet, parts.host, parts.port, parts.user, parts.password, 0);
    if (m_connection == nullptr) {
        fail_with_last_error();
    }
    const bool is_secure = parts.scheme_number == os::k_scheme_https;
    m_request =
        net.open_request(m_connection, get_http_method_name(m_session.m_method), parts.path + parts.extra,
                         k_open_flags | (is_secure ? os::k_request_secure : 0), 0);
    if (m_request == nullptr) {
        fail_with_last_error();
    }
    if (m_watch != nullptr && !m_watch->cancel.state().enter(m_request)) {
        close(m_request);
        throw internal_errno_exception(os::k_error_inet_operation_cancelled);
    }
}

void session_transfer::set_proxy_account() {
    const proxy_info& proxy = m_session.m_proxy;
    if (!proxy.user.empty() || !proxy.password.empty()) {
        os::inet().set_credentials(m_request, os::inet_credentials::proxy,
                                   proxy.user.empty() ? nullptr : &proxy.user,
                                   proxy.password.empty() ? nullptr : &proxy.password);
    }
}

void session_transfer::close_all() noexcept {
    close_request();
    close(m_connection);
    close(m_internet);
}

void session_transfer::close_request() noexcept {
    if (m_request == nullptr) {
        return;
    }
    const transfer_watch* const watch = m_watch.get();
    if (watch != nullptr && !watch->cancel.state().leave(m_request)) {
        m_request = nullptr;  // closed by whoever cancelled
    }
    close(m_request);
}

// ---- the response

std::optional<std::uint32_t> session_transfer::announced_length() const {
    std::uint32_t length = 0;
    const bool known = os::inet().query_number(m_request, os::k_query_content_length, length).ok();
    return known && m_session.m_method != http_method_head ? std::optional(length) : std::nullopt;
}

// Of a body that has more bytes than a number of the service can say.
std::uint64_t session_transfer::announced_total() const {
    wide_string digits;
    std::uint32_t index = 0;
    std::uint64_t total = 0;
    if (m_session.m_method == http_method_head ||
        !os::inet().query_text(m_request, os::k_query_content_length, index, digits).ok()) {
        return transfer_progress::k_unknown;
    }
    const std::string text(digits.begin(), digits.end());
    const auto end = std::from_chars(text.data(), text.data() + text.size(), total);
    return end.ec == std::errc() && end.ptr == text.data() + text.size() ? total
                                                                         : transfer_progress::k_unknown;
}

std::uint32_t session_transfer::receive_into_response(body_receiver::pace how) {
    tell_head();
    const std::optional<std::uint32_t> length = announced_length();
    std::function<void(std::uint64_t)> on_bytes;
    if (is_watched()) {
        const std::uint64_t total = length ? *length : announced_total();
        on_bytes = [this, total](std::uint64_t done) { report(transfer_download, done, total); };
    }
    if (m_watch != nullptr && m_watch->body) {
        const std::uint32_t error = hand_body_on(on_bytes);
        throw_if_ended();
        return error;
    }
    body_receiver body(m_request, length, how, on_bytes);
    const std::uint32_t error = body.receive();
    m_received = body.take();
    m_session.m_response.set_buffer_content(m_received);
    throw_if_ended();
    const bool is_flat = m_received == nullptr || m_received->next == nullptr;
    return error == 0 && !is_flat ? os::k_error_not_enough_memory : error;
}

void session_transfer::receive(body_receiver::pace how) {
    const std::uint32_t error = receive_into_response(how);
    if (error != 0) {
        throw internal_errno_exception(error);
    }
    if (m_session.m_auto_decode_gzip && m_received != nullptr) {
        decode();
    }
}

void session_transfer::receive_regardless(body_receiver::pace how) {
    const std::uint32_t error = receive_into_response(how);
    if (error == os::k_error_not_enough_memory) {
        throw internal_errno_exception(error);
    }
}

void session_transfer::decode() {
    _buffer_content* const decoded = decode_gzip(m_request, m_received, [this] { return is_cancelled(); });
    if (decoded != nullptr) {
        m_session.m_response.set_buffer_content(decoded);
    }
}

// ---- watching

// Also when the flag has been reset since.
bool session_transfer::is_cancelled() const noexcept {
    return m_watch != nullptr && (m_watch->cancel.is_cancelled() ||
                                  (m_request != nullptr && m_watch->cancel.state().has_closed(m_request)));
}

// Before the sink is asked about a failure: what was ended on purpose is not to be sent again.
void session_transfer::throw_if_ended() const {
    if (m_host_error != 0) {
        throw internal_errno_exception(m_host_error);
    }
    if (is_cancelled()) {
        throw internal_errno_exception(os::k_error_inet_operation_cancelled);
    }
}

void session_transfer::report(transfer_direction direction, std::uint64_t done, std::uint64_t total) const {
    m_watch->progress({direction, done, total});
}

// Inside a call of the service, which exceptions must not cross: one ends the request instead.
void session_transfer::body_goes_out(std::uint64_t bytes) noexcept {
    const std::uint64_t done = std::min<std::uint64_t>(bytes, m_outgoing.bytes);
    if (done <= m_gone_out || m_host_error != 0) {
        return;
    }
    m_gone_out = done;
    m_host_error = exception::number_of([&] { report(transfer_upload, done, m_outgoing.bytes); });
    const transfer_watch& watch = *m_watch;
    if (m_host_error != 0 && watch.cancel.state().take_back(m_request)) {
        close(m_request);
    }
}

void session_transfer::hear(os::inet_handle /*handle*/, std::uintptr_t context, std::uint32_t notice,
                            const void* information, std::uint32_t /*length*/) {
    if (notice == os::k_notice_request_sent) {
        auto* const transfer =
            reinterpret_cast<session_transfer*>(context);  // NOLINT(performance-no-int-to-ptr)
        transfer->body_goes_out(*static_cast<const std::uint32_t*>(information));
    }
}

}  // namespace kro::tessel::http
