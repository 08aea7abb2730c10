#include "tessel/http/lum_http_client.h"

#include "os/inet.h"
#include "os/thread.h"

#include "http/helper_window.h"
#include "proxy/trace_proxy.h"
#include "tessel/base/trace.h"
#include "tessel/platform/last_error.h"
#include "tessel/proxy/proxy_util.h"

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <limits>
#include <list>
#include <new>

namespace kro::tessel::http {
namespace {

constexpr std::uint32_t k_error_invalid_data = 13;
constexpr unsigned short k_status_proxy_login = 407;
constexpr std::uint32_t k_longest_doubled_ms = 120000;
constexpr unsigned long k_action_mask = k_client_upload | k_client_download;

bool fits(unsigned long bytes) {
    return bytes <= std::numeric_limits<std::uint32_t>::max();
}

unsigned long bytes_of(const wchar* text) {
    return text == nullptr
               ? 0UL
               : static_cast<unsigned long>(std::char_traits<wchar>::length(text) * sizeof(wchar));
}

// Null where there is nothing, so that no pointer without a size is handed on.
template <class Pointer>
Pointer unless_empty(Pointer data, unsigned long bytes) {
    return bytes == 0 ? nullptr : data;
}

// Directly where discovery knows no route.
std::list<proxy_info> routes_to(const CTString& url) {
    std::list<proxy_info> routes;
    GetProxyUtil().GetProxyInfo(url, routes);
    if (routes.empty()) {
        routes.emplace_back();
    }
    return routes;
}

void trace_route(const proxy_info& route) {
    if (route.server.empty()) {
        trace_message(trace_debug) << TESSEL_W("CLumHttpClient use direct connection");
    } else {
        proxy::trace_proxy(TESSEL_W("CLumHttpClient use proxy: "), route);
    }
}

}  // namespace

CLumHttpClient::CLumHttpClient() {
    m_session.set_sink(this);
    m_session.set_sync(true);
}

CLumHttpClient::~CLumHttpClient() = default;

unsigned long CLumHttpClient::Invoke(http_method_t method, const CTString& url, const void* body,
                                     unsigned long bodyBytes, const void* headers, unsigned long headerBytes,
                                     unsigned long flags) try {
    const trace_scope scope(TESSEL_W("CLumHttpClient::Invoke()"));
    trace_message(trace_debug) << TESSEL_W("url: ") << url;
    m_session.set_method(method);
    m_session.set_url(url);
    // What the session refuses would leave the body of an earlier call in it.
    if (!fits(bodyBytes) || !fits(headerBytes)) {
        return refuse(os::k_error_invalid_parameter);
    }
    if (!m_session.set_data_to_post(body, static_cast<unsigned>(bodyBytes)) ||
        !m_session.set_data_to_header(headers, static_cast<unsigned>(headerBytes))) {
        return os::last_error();
    }
    m_session.set_accept_gzip_header((flags & (k_client_accept_gzip | k_client_decode_gzip)) != 0);
    m_session.set_auto_decode_gzip((flags & k_client_decode_gzip) != 0);
    m_session.set_raw_data((flags & k_client_raw_data) != 0);
    m_view.m_raw = static_cast<std::uint32_t>(flags & k_client_raw_data);
    m_session.set_action_data(flags & k_action_mask);
    return m_sync != 0 ? _InvokeWithProxyUtil() : 0;
} catch (const std::bad_alloc&) {
    return refuse(os::k_error_not_enough_memory);
}

unsigned long CLumHttpClient::_InvokeWithProxyUtil() try {
    const trace_scope scope(TESSEL_W("CLumHttpClient::_InvokeWithProxyUtil()"));
    m_session.set_preconfig(false);
    std::uint32_t error = 0;
    for (const proxy_info& route : routes_to(m_session.get_url())) {
        trace_route(route);
        m_session.set_proxy_info(route);
        const bool ok = m_session.invoke();
        error = ok ? 0 : os::last_error();  // at once: a trace sink may call what sets another
        trace_message(trace_debug) << TESSEL_W("CLumHttpClient invoke ")
                                   << (ok ? TESSEL_W("OK") : TESSEL_W("FAILED"));
        if (ok) {
            break;
        }
        trace_message(trace_debug) << TESSEL_W("Error: ") << error;
        if (error == os::k_error_inet_operation_cancelled) {
            break;
        }
    }
    if (error != 0) {
        os::set_last_error(error);
    }
    return error;
} catch (const std::bad_alloc&) {
    return refuse(os::k_error_not_enough_memory);
}

int CLumHttpClient::Request(const wchar* url, http_method_t method, wchar* body, wchar* headers,
                            unsigned long flags) {
    return Request(url, method, body, bytes_of(body), headers, bytes_of(headers), flags);
}

int CLumHttpClient::Request(const wchar* url, http_method_t method, void* body, unsigned long bodyBytes,
                            const wchar* headers, unsigned long headerBytes, unsigned long flags) try {
    const unsigned long error = Invoke(method, url, unless_empty(body, bodyBytes), bodyBytes,
                                       unless_empty(headers, headerBytes), headerBytes, flags);
    const ILumHttpResponse* const response = error == 0 ? GetResponse() : nullptr;
    return response == nullptr ? 0 : response->GetStatusCode();
} catch (const std::bad_alloc&) {
    return 0;
}

CTString CLumHttpClient::ResponseContent() {
    const ILumHttpResponse* const response = GetResponse();
    return response == nullptr ? CTString() : response->GetContent();
}

const ILumHttpResponse* CLumHttpClient::GetResponse() {
    m_view.m_response = m_session.get_response(0);
    return m_view.m_response == nullptr ? nullptr : &m_view;
}

// A time-out isn't the route's fault: the server may only be slow.
void CLumHttpClient::on_send_data_error(http_session* /*session*/, void* request, unsigned long error,
                                        error_resolvent& resolvent) {
    const trace_scope scope(TESSEL_W("CLumHttpClient::on_send_data_error()"));
    if (error != os::k_error_inet_timeout) {
        return;
    }
    std::uint32_t timeout = 0;
    os::inet().get_timeout(request, os::inet_timeout::receive, timeout);
    resolvent = default_;
    // 0 stands for no limit, and for a handle that can't be asked; twice that would change nothing.
    if (timeout != 0 && timeout <= k_longest_doubled_ms) {
        os::inet().set_timeout(request, os::inet_timeout::receive, timeout * 2);
        os::inet().get_timeout(request, os::inet_timeout::receive, timeout);
        resolvent = retry;
    }
}

void CLumHttpClient::on_response_error(http_session* session, void* /*request*/, unsigned long /*error*/,
                                       error_resolvent& resolvent) {
    const trace_scope scope(TESSEL_W("CLumHttpClient::on_response_error()"));
    const http_response* const response = session->get_response(0);
    if (response == nullptr || response->get_status_code() != k_status_proxy_login ||
        session->is_preconfig()) {
        return;
    }
    if (session->get_proxy_info().server.empty()) {
        resolvent = failed;
    }
}

void CLumHttpClient::on_completed(http_session* /*session*/, unsigned long /*action*/,
                                  const http_response* /*response*/) {}

void CLumHttpClient::on_send_error(session_context* /*context*/) {}

void CLumHttpClient::on_recv_error(session_context* /*context*/) {}

void CLumHttpClient::on_data_recv(unsigned long /*userContext*/, session_context* context) {
    context->auto_delete = true;
    post_data_received(context);
}

unsigned long CLumHttpClient::refuse(std::uint32_t error) {
    os::set_last_error(error);
    return error;
}

unsigned short CLumHttpClient::response_view::GetStatusCode() const {
    return m_response == nullptr ? static_cast<unsigned short>(0) : m_response->get_status_code();
}

CTString CLumHttpClient::response_view::GetContent() const try {
    const _buffer_content* const content = m_response == nullptr ? nullptr : m_response->get_buffer_content();
    return buffer_content_to_string(content, m_raw != 0);
} catch (const std::bad_alloc&) {
    return {};
}

unsigned long CLumHttpClient::response_view::GetRawContent(void* buffer, unsigned long* size) const {
    if (size == nullptr) {
        return os::k_error_invalid_parameter;
    }
    const _buffer_content* chunk = m_response == nullptr ? nullptr : m_response->get_buffer_content();
    if (chunk == nullptr) {
        return k_error_invalid_data;
    }
    const unsigned long total = get_buffer_content_count(chunk);
    const unsigned long room = *size;
    unsigned long left = buffer == nullptr ? 0 : std::min(total, room);
    for (auto* to = static_cast<unsigned char*>(buffer); left != 0; chunk = chunk->next) {
        const auto part = static_cast<std::uint32_t>(std::min<unsigned long>(left, chunk->size));
        std::memcpy(to, chunk->data, part);
        to += part;
        left -= part;
    }
    *size = total;
    return total > room ? os::k_error_insufficient_buffer : 0;
}

}  // namespace kro::tessel::http
