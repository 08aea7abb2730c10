// What libcurl is told of a request before it begins.
#include "os/linux/transfer_cookies.h"
#include "os/linux/transfer_curl.h"
#include "os/linux/transfer_header_lines.h"
#include "os/linux/transfer_logins.h"

#include <cstdlib>
#include <cstring>

namespace kro::tessel::os {
namespace {

// libcurl's own connection time-out must never come before ours; it also divides it among the addresses
// of a name, so it can't simply be switched off.
constexpr std::uint32_t k_connect_slack_ms = 10'000;
constexpr long k_no_connect_limit_ms = 1'000L * 60 * 60 * 24;

// libcurl's own 16 KiB cost two thirds of the bulk rate, and whether a body is large isn't known yet when
// the buffer is made. Small responses touch its first page only.
constexpr long k_buffer_bytes = 512L * 1024;

// libcurl has a buffer for sending only while a body goes out; this one costs as little as the other.
constexpr long k_upload_buffer_bytes = 512L * 1024;

template <class Value>
bool set(CURL* easy, CURLoption option, Value value) noexcept {
    return curl_easy_setopt(easy, option, value) == CURLE_OK;
}

long connect_limit(std::uint32_t milliseconds) noexcept {
    constexpr auto longest = static_cast<std::uint32_t>(k_no_connect_limit_ms);
    if (milliseconds == 0 || milliseconds > longest - k_connect_slack_ms) {
        return k_no_connect_limit_ms;
    }
    return static_cast<long>(milliseconds) + static_cast<long>(k_connect_slack_ms);
}

// What a handle keeps of a request that no option undoes: the host whose cookies go out, that a server
// refused to say when a body may come, and TLS sessions, which are resumed without another look at the
// certificate.
bool leaves_traces(const transfer_request& request) noexcept {
    const bool expects = header_in(request.header_lines, k_expect).size() > k_expect.size();
    return expects || names_header(request.header_lines, k_host) || request.ignore_cert_dates ||
           request.ignore_cert_name;
}

}  // namespace

const std::string& certificate_file() {
    static const std::string file = [] {
        const char* const named = std::getenv("SSL_CERT_FILE");
        return std::string(named == nullptr ? "" : named);
    }();
    return file;
}

void curl_exchange::set_constant_options() {
    set(m_easy, CURLOPT_PRIVATE, this);
    set(m_easy, CURLOPT_NOSIGNAL, 1L);
    set(m_easy, CURLOPT_BUFFERSIZE, k_buffer_bytes);
    set(m_easy, CURLOPT_UPLOAD_BUFFERSIZE, k_upload_buffer_bytes);
    set(m_easy, CURLOPT_NOPROGRESS, 1L);
    set(m_easy, CURLOPT_PROTOCOLS_STR, "http,https");
    // One request a connection: what the service's users expect, and a paused HTTP/2 stream would go on
    // filling its buffer.
    set(m_easy, CURLOPT_HTTP_VERSION, static_cast<long>(CURL_HTTP_VERSION_1_1));
    set(m_easy, CURLOPT_HTTP09_ALLOWED, 1L);
    set(m_easy, CURLOPT_HEADEROPT, static_cast<long>(CURLHEADER_SEPARATE));
    set(m_easy, CURLOPT_PROXY, "");  // never the environment behind our back
    set(m_easy, CURLOPT_NOPROXY, "");
    set(m_easy, CURLOPT_MAXAGE_CONN, k_idle_connection_seconds);
    set(m_easy, CURLOPT_QUICK_EXIT, 1L);  // a lookup is left behind, never waited for
    if (!certificate_file().empty()) {
        set(m_easy, CURLOPT_CAINFO, certificate_file().c_str());
    }
    m_header_guard.attach(m_easy);
    set(m_easy, CURLOPT_HEADERFUNCTION, on_header);
    set(m_easy, CURLOPT_HEADERDATA, this);
    set(m_easy, CURLOPT_WRITEFUNCTION, on_write);
    set(m_easy, CURLOPT_WRITEDATA, this);
    set(m_easy, CURLOPT_READFUNCTION, on_read);
    set(m_easy, CURLOPT_READDATA, this);
    set(m_easy, CURLOPT_SEEKFUNCTION, on_seek);
    set(m_easy, CURLOPT_SEEKDATA, this);
    set(m_easy, CURLOPT_PREREQFUNCTION, on_prerequest);
    set(m_easy, CURLOPT_PREREQDATA, this);
    set(m_easy, CURLOPT_RESOLVER_START_FUNCTION, on_resolver_start);
    set(m_easy, CURLOPT_RESOLVER_START_DATA, this);
    set(m_easy, CURLOPT_OPENSOCKETFUNCTION, on_open_socket);
    set(m_easy, CURLOPT_OPENSOCKETDATA, this);
    // Connections outlive the exchange that opened them, so their closing is told to the loop.
    set(m_easy, CURLOPT_CLOSESOCKETFUNCTION, on_close_socket);
    set(m_easy, CURLOPT_CLOSESOCKETDATA, &m_host);
}

void curl_exchange::set_text_option(CURLoption option, std::string& in_force, const std::string& wanted) {
    if (in_force != wanted) {
        set(m_easy, option, wanted.c_str());
        in_force = wanted;
    }
}

bool curl_exchange::set_request(const transfer_request& request) {
    m_reusable = m_reusable && !leaves_traces(request);
    if (!set(m_easy, CURLOPT_URL, request.url.c_str())) {
        return false;
    }
    const kind wanted = request.has_body ? kind::upload : request.verb == "HEAD" ? kind::head : kind::get;
    if (m_kind != wanted) {
        m_kind = wanted;
        set(m_easy, CURLOPT_HTTPGET, 1L);
        if (wanted == kind::upload) {
            set(m_easy, CURLOPT_UPLOAD, 1L);
        } else if (wanted == kind::head) {
            set(m_easy, CURLOPT_NOBODY, 1L);
        }
    }
    if (request.has_body) {
        set(m_easy, CURLOPT_INFILESIZE_LARGE, static_cast<curl_off_t>(request.body_bytes));
    }
    set_text_option(CURLOPT_CUSTOMREQUEST, m_verb, request.verb);
    set_text_option(CURLOPT_PROXY, m_proxy, request.proxy);
    if (m_closes_connection != request.closes_connection) {
        m_closes_connection = request.closes_connection;
        set(m_easy, CURLOPT_FORBID_REUSE, m_closes_connection ? 1L : 0L);
    }
    set_accounts(request);
    set_cookies(request.uses_cookies);
    set_headers(m_transfer->request.header_lines);
    set(m_easy, CURLOPT_CONNECTTIMEOUT_MS, connect_limit(request.limits.connect));
    if (request.ignore_cert_name) {
        set(m_easy, CURLOPT_SSL_VERIFYHOST, 0L);
    }
    if (request.ignore_cert_dates) {
        set(m_easy, CURLOPT_SSL_CTX_FUNCTION, on_tls_context);
    }
    return true;
}

void curl_exchange::set_cookies(bool uses_them) {
    if (m_has_cookies != uses_them) {
        m_has_cookies = uses_them;
        if (uses_them) {
            wake_cookie_engine();
        }
        set(m_easy, CURLOPT_SHARE, uses_them ? shared_cookies() : nullptr);
    }
    m_jar_has_cookie = false;
}

// libcurl minds cookies once it has read a file of them, of no name here. It would read that again before
// every request, with the jar locked for all threads, if it stayed set.
void curl_exchange::wake_cookie_engine() {
    set(m_easy, CURLOPT_COOKIEFILE, "");
    set(m_easy, CURLOPT_COOKIELIST, "RELOAD");
    set(m_easy, CURLOPT_COOKIEFILE, nullptr);
}

// libcurl would send the jar's cookies beside the caller's. Asked when the request is about to go out, since
// it may have waited for its connection, or answers a challenge that has brought a cookie.
void curl_exchange::choose_cookies() {
    std::string& lines = m_transfer->request.header_lines;
    if (!m_has_cookies || !names_header(lines, k_cookie)) {
        return;
    }
    const std::string_view host = header_in(lines, k_host);
    m_jar_has_cookie =
        has_cookie_for(m_easy, m_transfer->request.url, host.empty() ? host : host.substr(k_host.size()));
    set_headers(lines);
}

// libcurl takes a linked list of texts: ours lives in one array and points into the request's lines. What is
// for the proxy goes out when a tunnel is asked for: inside it the server would get it.
void curl_exchange::set_headers(std::string& lines) {
    const bool has_tunnel = !m_proxy.empty() && m_transfer->request.url.compare(0, 6, "https:") == 0;
    m_header_list.clear();
    m_tunnel_header = {};
    for (std::size_t at = 0; at < lines.size(); at += std::strlen(&lines[at]) + 1) {
        const bool is_replaced = (m_transfer->account_for_server && is_header(&lines[at], k_server_login)) ||
                                 (m_transfer->account_for_proxy && is_header(&lines[at], k_proxy_login)) ||
                                 (m_jar_has_cookie && is_header(&lines[at], k_cookie));
        if (!is_replaced && has_tunnel && is_header(&lines[at], k_proxy_login)) {
            m_tunnel_header.data = &lines[at];
        } else if (!is_replaced) {
            m_header_list.push_back({&lines[at], nullptr});
        }
    }
    for (std::size_t i = 1; i < m_header_list.size(); ++i) {
        m_header_list[i - 1].next = &m_header_list[i];
    }
    set(m_easy, CURLOPT_HTTPHEADER, m_header_list.empty() ? nullptr : m_header_list.data());
    set(m_easy, CURLOPT_PROXYHEADER, m_tunnel_header.data == nullptr ? nullptr : &m_tunnel_header);
}

// An account that was taken beats the caller's own header; another one waits until that is refused.
void curl_exchange::set_accounts(const transfer_request& request) {
    // libcurl would prefer Negotiate, which knows nothing but the user's ticket: there is none, mostly, and
    // the account that was given would never be tried.
    const auto schemes = [](bool by_ticket, bool is_known) {
        const unsigned long by_account = is_known ? CURLAUTH_BASIC : CURLAUTH_ANY & ~CURLAUTH_NEGOTIATE;
        return static_cast<long>(by_ticket ? CURLAUTH_NEGOTIATE : by_account);
    };
    if (request.server.given()) {
        m_reusable = false;
        const bool is_known = known_logins().knows(server_place(request), request.server);
        m_transfer->account_for_server = m_transfer->account_for_server || is_known;
        set(m_easy, CURLOPT_HTTPAUTH, schemes(m_transfer->ticket_for_server, is_known));
        set(m_easy, CURLOPT_USERNAME, request.server.user.c_str());
        set(m_easy, CURLOPT_PASSWORD, request.server.password.c_str());
    }
    if (request.proxy_account.given() && !request.proxy.empty()) {
        m_reusable = false;
        const bool is_known = known_logins().knows(proxy_place(request), request.proxy_account);
        m_transfer->account_for_proxy = m_transfer->account_for_proxy || is_known;
        set(m_easy, CURLOPT_PROXYAUTH, schemes(m_transfer->ticket_for_proxy, is_known));
        set(m_easy, CURLOPT_PROXYUSERNAME, request.proxy_account.user.c_str());
        set(m_easy, CURLOPT_PROXYPASSWORD, request.proxy_account.password.c_str());
    }
}

}  // namespace kro::tessel::os
