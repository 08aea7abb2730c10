#include "os/linux/transfer_curl.h"

#include "os/inet.h"
#include "os/linux/descriptor.h"
#include "os/linux/inet_errors.h"
#include "os/linux/transfer_cookies.h"
#include "os/linux/transfer_header_lines.h"
#include "os/linux/transfer_logins.h"

#include <arpa/inet.h>
#include <linux/tcp.h>  // the C library's own has a shorter tcp_info
#include <openssl/ssl.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <new>
#include <utility>

namespace kro::tessel::os {
namespace {

// A response head beyond this is an attack or a fault; browsers and newer libcurls draw the line here too.
// Below libcurl's own ceiling of 300 KiB, which looks like a broken connection.
constexpr std::size_t k_max_head_bytes = std::size_t{256} * 1024;

constexpr std::string_view k_head_of_headless_response = "HTTP/1.0 200 OK\r\n\r\n";

int status_of(std::string_view block) noexcept {
    const auto blank = block.find(' ');
    int status = 0;
    for (std::size_t at = blank; at != std::string_view::npos && ++at < block.size();) {
        const char digit = block[at];
        if (digit < '0' || digit > '9' || status > 999) {
            break;
        }
        status = status * 10 + (digit - '0');
    }
    return status;
}

std::string text_of(const sockaddr& address) {
    char text[INET6_ADDRSTRLEN] = "";
    if (address.sa_family == AF_INET) {
        sockaddr_in four{};
        std::memcpy(&four, &address, sizeof four);
        ::inet_ntop(AF_INET, &four.sin_addr, text, sizeof text);
    } else if (address.sa_family == AF_INET6) {
        sockaddr_in6 six{};
        std::memcpy(&six, &address, sizeof six);
        ::inet_ntop(AF_INET6, &six.sin6_addr, text, sizeof text);
    }
    return text;
}

// What the system says of a connection; zeros when there is none.
tcp_info state_of(int socket) noexcept {
    tcp_info state{};
    socklen_t size = sizeof state;
    const bool is_told = ::getsockopt(socket, IPPROTO_TCP, TCP_INFO, &state, &size) == 0;
    return is_told ? state : tcp_info{};
}

// As many as a look-up or a handshake needs at a time: they have given theirs back.
bool has_free_descriptors() noexcept {
    descriptor some[4];
    for (descriptor& one : some) {
        one.reset(::eventfd(0, EFD_CLOEXEC));
        if (one.number() < 0) {
            return errno != EMFILE && errno != ENFILE;
        }
    }
    return true;
}

}  // namespace

template <class Result, class Work>
Result curl_exchange::guarded(Result failed, Work&& work) noexcept {
    try {
        return work();
    } catch (const std::bad_alloc&) {
        m_out_of_memory = true;
        return failed;
    }
}

curl_exchange::curl_exchange(exchange_host& host) : m_host(host), m_easy(curl_easy_init()) {
    if (m_easy != nullptr) {
        set_constant_options();
    }
}

curl_exchange::~curl_exchange() {
    curl_easy_cleanup(m_easy);
}

bool curl_exchange::begin(std::shared_ptr<curl_transfer> what) {
    m_transfer = std::move(what);
    m_transfer->exchange = this;
    m_header_guard.begin();
    m_body_offset = m_acknowledged = 0;
    m_block.clear();
    m_head_bytes = 0;
    m_in_block = m_resolving = m_connecting_told = m_connected = false;
    m_stages_over = m_transfer->ticket_for_server || m_transfer->ticket_for_proxy;
    m_headers_told = m_paused = m_out_of_memory = m_starved = m_begins_anew = false;
    if (!set_request(m_transfer->request)) {
        return false;
    }
    begin_wait(wait::connection);
    return true;
}

// An account was taken in plain if nothing else was offered and the response isn't another challenge.
void curl_exchange::note_login(std::string_view where, const transfer_credentials& account, CURLINFO offered,
                               bool is_challenge) {
    long schemes = 0;
    curl_easy_getinfo(m_easy, offered, &schemes);
    if (is_challenge) {
        known_logins().refused(where, account);
    } else if (schemes == static_cast<long>(CURLAUTH_BASIC)) {
        known_logins().taken(where, account);
    }
}

void curl_exchange::note_logins(int status) {
    const transfer_request& request = m_transfer->request;
    if (request.server.given()) {
        note_login(server_place(request), request.server, CURLINFO_HTTPAUTH_AVAIL, status == 401);
    }
    if (request.proxy_account.given() && !request.proxy.empty()) {
        note_login(proxy_place(request), request.proxy_account, CURLINFO_PROXYAUTH_AVAIL, status == 407);
    }
}

void curl_exchange::begin_wait(wait what) noexcept {
    m_wait = what;
    const std::uint32_t limit = m_paused ? 0 : limit_of(what);
    m_deadline = limit == 0 ? k_never : m_host.deadline_in(limit);
}

std::uint32_t curl_exchange::limit_of(wait what) const noexcept {
    const transfer_limits& limits = m_transfer->request.limits;
    return what == wait::connection  ? limits.connect
           : what == wait::sending   ? limits.send
           : what == wait::receiving ? limits.receive
                                     : 0;
}

void curl_exchange::report_stage(transfer_stage stage, std::string_view text) {
    if (m_transfer->sink != nullptr && !m_stages_over && m_transfer->request.wants_stages) {
        m_transfer->sink->on_stage(m_transfer->request.tag, stage, text);
        m_host.told(*m_transfer);
    }
}

void curl_exchange::report_sent() {
    if (m_transfer->sent_told) {
        return;
    }
    m_transfer->sent_told = true;
    if (m_transfer->sink != nullptr) {
        long head = 0;
        curl_easy_getinfo(m_easy, CURLINFO_REQUEST_SIZE, &head);
        const auto bytes = static_cast<std::uint64_t>(head) + m_body_offset;
        m_transfer->sink->on_sent(m_transfer->request.tag, bytes);
        m_host.told(*m_transfer);
    }
}

void curl_exchange::report_headers() {
    report_sent();
    m_headers_told = true;
    m_in_block = false;
    begin_wait(wait::receiving);
    note_logins(status_of(m_block));
    if (m_transfer->sink != nullptr) {
        m_transfer->sink->on_headers(m_transfer->request.tag, std::move(m_block));
        m_host.told(*m_transfer);
    }
    m_block.clear();
}

bool curl_exchange::progress_sent() {
    if (m_transfer == nullptr || m_headers_told) {
        return true;
    }
    const transfer_request& request = m_transfer->request;
    if (request.has_body) {
        curl_off_t uploaded = 0;
        curl_easy_getinfo(m_easy, CURLINFO_SIZE_UPLOAD_T, &uploaded);
        if (static_cast<std::uint64_t>(uploaded) < request.body_bytes) {
            return false;
        }
    }
    report_sent();
    begin_wait(wait::receiving);
    return true;
}

bool curl_exchange::header_line(std::string_view line) {
    m_header_guard.line(line);
    if (m_headers_told) {
        return true;  // a trailer of a chunked body
    }
    m_head_bytes += line.size();  // of interim responses too: they may go on for ever
    if (m_head_bytes > k_max_head_bytes) {
        return false;
    }
    if (line.substr(0, 5) == "HTTP/") {
        m_block.assign(line);
        m_in_block = true;
    } else if (m_in_block) {
        if (m_has_cookies && line.size() > k_new_cookie.size() && is_header(line.data(), k_new_cookie)) {
            count_cookie(m_easy);
        }
        m_block.append(line);
        const bool is_complete = line == "\r\n" || line == "\n";
        if (is_complete && !header_block_complete()) {
            return false;
        }
    }
    if (m_connected) {
        begin_wait(wait::receiving);
    }
    return true;
}

// False ends the exchange.
bool curl_exchange::header_block_complete() {
    m_in_block = false;
    const int status = status_of(m_block);
    const bool interim = status >= 100 && status < 200 && status != 101;
    if (interim) {
        m_block.clear();
        return true;
    }
    if (wants_to_be_begun_anew(status)) {
        if (m_connected) {
            report_sent();
        }
        m_begins_anew = true;
        return false;
    }
    // Before the connection stands it is the proxy's answer to CONNECT, which counts only if it ends there.
    if (m_connected && !will_be_answered_by_libcurl(status)) {
        report_headers();
        return !awaits_head_only();
    }
    return true;
}

// libcurl knows of no HEAD with a body of its own, and would wait for the response's as after any other verb.
bool curl_exchange::awaits_head_only() const noexcept {
    return m_kind == kind::upload && m_verb == "HEAD";
}

// A challenge that is answered by what libcurl can't do in the middle of an exchange.
bool curl_exchange::wants_to_be_begun_anew(int status) {
    if (!will_be_answered_by_libcurl(status)) {
        return false;
    }
    const bool by_server = status == 401;
    bool& has_account = by_server ? m_transfer->account_for_server : m_transfer->account_for_proxy;
    const bool callers_was_sent =
        !std::exchange(has_account, true) &&
        names_header(m_transfer->request.header_lines, by_server ? k_server_login : k_proxy_login);
    return callers_was_sent || asks_for_ticket(by_server);
}

// A challenge that offers Negotiate and nothing else, the first time.
bool curl_exchange::asks_for_ticket(bool by_server) {
    bool& has_it = by_server ? m_transfer->ticket_for_server : m_transfer->ticket_for_proxy;
    if (has_it) {
        return false;
    }
    long offered = 0;
    curl_easy_getinfo(m_easy, by_server ? CURLINFO_HTTPAUTH_AVAIL : CURLINFO_PROXYAUTH_AVAIL, &offered);
    has_it = offered == static_cast<long>(CURLAUTH_NEGOTIATE);
    return has_it;
}

// Whether libcurl may answer this challenge itself. If it doesn't after all, body bytes or the end follow
// instead of another status line.
bool curl_exchange::will_be_answered_by_libcurl(int status) const noexcept {
    const transfer_request& request = m_transfer->request;
    return (status == 401 && request.server.given()) || (status == 407 && request.proxy_account.given());
}

data_verdict curl_exchange::take_data(const char* data, std::size_t bytes) {
    if (!m_headers_told) {
        if (m_block.empty()) {
            m_block = k_head_of_headless_response;
        }
        report_headers();
    }
    if (m_transfer->sink == nullptr || awaits_head_only()) {
        return data_verdict::unwanted;
    }
    const data_verdict verdict = m_transfer->sink->on_data(m_transfer->request.tag, data, bytes);
    m_paused = verdict == data_verdict::full;
    begin_wait(wait::receiving);
    m_host.told(*m_transfer);
    return verdict;
}

// libcurl repeats a request whose kept connection had died, or answers a challenge that closed it: what a
// proxy says to its CONNECT isn't the response.
void curl_exchange::connects_again() {
    if (m_connected) {
        m_connected = m_in_block = false;
        m_block.clear();
        begin_wait(wait::connection);
    }
}

void curl_exchange::connected() {
    m_connected = true;
    m_resolving = false;
    m_block.clear();
    choose_cookies();
    if (!m_stages_over) {
        if (m_connecting_told) {
            report_stage(transfer_stage::connected, {});
        }
        m_stages_over = true;
    }
    const transfer_request& request = m_transfer->request;
    if (request.has_body || request.wants_sent) {
        m_host.sending(*this);
    }
    begin_wait(request.has_body ? wait::sending : wait::receiving);
}

void curl_exchange::end(CURLcode code) {
    const bool refused_by_proxy =
        !m_connected && code != CURLE_OK && !m_block.empty() && !m_in_block && status_of(m_block) / 100 != 2;
    if (!m_headers_told && !m_block.empty() && !m_in_block && (code == CURLE_OK || refused_by_proxy)) {
        report_headers();
        if (refused_by_proxy) {
            code = CURLE_OK;  // its status is the response; libcurl drops the body
        }
    }
    failure_facts facts;
    facts.answered = m_headers_told;
    if (code != CURLE_OK) {
        m_reusable = false;
        long head = 0;
        curl_easy_getinfo(m_easy, CURLINFO_REQUEST_SIZE, &head);
        facts.sent = head != 0;
        curl_easy_getinfo(m_easy, CURLINFO_OS_ERRNO, &facts.system_error);
        curl_easy_getinfo(m_easy, CURLINFO_SSL_VERIFYRESULT, &facts.verify_result);
    }
    if (code == CURLE_PARTIAL_FILE && !m_headers_told) {
        code = CURLE_GOT_NOTHING;
    }
    if (code == CURLE_WRITE_ERROR && m_headers_told && awaits_head_only()) {
        code = CURLE_OK;  // we broke it off, and its connection with it
    }
    const bool head_too_long = code == CURLE_WRITE_ERROR && !m_headers_told;
    const std::uint32_t error = inet_error_of(head_too_long ? CURLE_WEIRD_SERVER_REPLY : code, facts);
    end_with(m_out_of_memory ? k_error_not_enough_memory : error);
    detach();
}

void curl_exchange::end_with(std::uint32_t error) {
    if (m_transfer->sink == nullptr) {
        return;
    }
    if (error == 0) {
        report_sent();
    }
    m_host.told(*m_transfer);
    m_transfer->sink->on_end(m_transfer->request.tag, error);
    m_transfer->sink = nullptr;
}

void curl_exchange::time_out() {
    end_with(k_error_inet_timeout);
    m_deadline = k_never;
}

void curl_exchange::detach() noexcept {
    m_transfer->exchange = nullptr;
    m_transfer = nullptr;
    m_deadline = k_never;
}

void curl_exchange::restart_wait() noexcept {
    if (m_transfer != nullptr) {
        begin_wait(m_wait);
    }
}

CURLcode curl_exchange::resume() {
    if (!m_paused) {
        return CURLE_OK;
    }
    m_paused = false;
    begin_wait(wait::receiving);
    return curl_easy_pause(m_easy, CURLPAUSE_CONT);
}

void curl_exchange::bytes_move() noexcept {
    if (m_wait == wait::sending || m_wait == wait::receiving) {
        begin_wait(m_wait);
    }
}

bool curl_exchange::is_waited_for() {
    if (m_transfer->sink == nullptr) {
        return true;  // left to its look-up
    }
    const auto waited = m_transfer->sink->waited_for(m_transfer->request.tag);
    const std::uint32_t limit = limit_of(m_wait);
    if (waited && *waited >= limit) {
        return true;
    }
    m_deadline = waited ? m_host.deadline_in(limit - static_cast<std::uint32_t>(*waited)) : k_never;
    return false;
}

// A socket can be written again when much of what it holds has gone out, and holds the last of a body for
// long: on a slow line nothing is heard of it in the meantime, though bytes arrive at the server.
bool curl_exchange::still_sends() noexcept {
    const transfer_request& request = m_transfer->request;
    const bool may_have_some = request.has_body && !m_headers_told && m_wait != wait::connection;
    if (!may_have_some) {
        return false;
    }
    const std::uint32_t limit = m_wait == wait::sending ? request.limits.send : request.limits.receive;
    const tcp_info state = state_of(m_host.socket_of(m_easy));
    const bool moves = state.tcpi_bytes_acked != m_acknowledged && state.tcpi_last_ack_recv < limit;
    m_acknowledged = state.tcpi_bytes_acked;
    if (moves) {
        m_deadline = m_host.deadline_in(limit - state.tcpi_last_ack_recv);
    }
    return moves;
}

void curl_exchange::look_at_descriptors(CURLcode code) {
    const bool needs_some = code == CURLE_COULDNT_RESOLVE_HOST || code == CURLE_COULDNT_RESOLVE_PROXY ||
                            code == CURLE_SSL_CACERT_BADFILE;
    m_starved = m_starved || (needs_some && !has_free_descriptors());
}

// ---- libcurl's callbacks: no exception may pass through it

std::size_t curl_exchange::on_header(char* data, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<curl_exchange*>(self);
    const std::size_t bytes = size * count;
    return exchange.guarded<std::size_t>(0, [&] { return exchange.header_line({data, bytes}) ? bytes : 0; });
}

std::size_t curl_exchange::on_write(char* data, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<curl_exchange*>(self);
    const std::size_t bytes = size * count;
    return exchange.guarded<std::size_t>(0, [&]() -> std::size_t {
        switch (exchange.take_data(data, bytes)) {
            case data_verdict::taken:
                return bytes;
            case data_verdict::full:
                return CURL_WRITEFUNC_PAUSE;
            case data_verdict::unwanted:
                break;
        }
        return 0;
    });
}

std::size_t curl_exchange::on_read(char* out, std::size_t size, std::size_t count, void* self) {
    auto& exchange = *static_cast<curl_exchange*>(self);
    const curl_transfer& what = *exchange.m_transfer;
    exchange.begin_wait(wait::sending);
    if (what.sink == nullptr) {
        return CURL_READFUNC_ABORT;
    }
    const std::size_t copied =
        what.sink->on_body(what.request.tag, exchange.m_body_offset, out, size * count);
    if (copied == k_body_withdrawn) {
        return CURL_READFUNC_ABORT;
    }
    exchange.m_body_offset += copied;
    return copied;
}

int curl_exchange::on_seek(void* self, curl_off_t offset, int origin) {
    if (origin != SEEK_SET || offset < 0) {
        return CURL_SEEKFUNC_FAIL;
    }
    static_cast<curl_exchange*>(self)->m_body_offset = static_cast<std::uint64_t>(offset);
    return CURL_SEEKFUNC_OK;
}

int curl_exchange::on_prerequest(void* self, char* /*address*/, char* /*local*/, int /*port*/,
                                 int /*local_port*/) {
    auto& exchange = *static_cast<curl_exchange*>(self);
    return exchange.guarded<int>(CURL_PREREQFUNC_ABORT, [&] {
        exchange.connected();
        return exchange.m_transfer->sink == nullptr ? CURL_PREREQFUNC_ABORT : CURL_PREREQFUNC_OK;
    });
}

int curl_exchange::on_resolver_start(void* /*resolver*/, void* /*reserved*/, void* self) {
    auto& exchange = *static_cast<curl_exchange*>(self);
    return exchange.guarded<int>(1, [&] {
        exchange.m_resolving = true;
        exchange.report_stage(transfer_stage::resolving, {});
        return 0;
    });
}

curl_socket_t curl_exchange::on_open_socket(void* self, curlsocktype /*purpose*/, curl_sockaddr* address) {
    auto& exchange = *static_cast<curl_exchange*>(self);
    exchange.m_resolving = false;
    if (exchange.m_transfer->sink == nullptr) {
        return CURL_SOCKET_BAD;
    }
    exchange.connects_again();
    return exchange.guarded<curl_socket_t>(CURL_SOCKET_BAD, [&] {
        if (!exchange.m_connecting_told) {
            exchange.m_connecting_told = true;
            const bool is_heard = exchange.m_transfer->request.wants_stages;
            exchange.report_stage(transfer_stage::connecting,
                                  is_heard ? text_of(address->addr) : std::string());
        }
        const int socket = exchange.m_host.open_socket(*address);
        exchange.m_starved = socket < 0 && (errno == EMFILE || errno == ENFILE);
        return socket;
    });
}

int curl_exchange::on_close_socket(void* host, curl_socket_t socket) {
    static_cast<exchange_host*>(host)->close_socket(socket);
    return 0;
}

CURLcode curl_exchange::on_tls_context(CURL* /*easy*/, void* context, void* /*self*/) {
    X509_VERIFY_PARAM* const rules = SSL_CTX_get0_param(static_cast<SSL_CTX*>(context));
    X509_VERIFY_PARAM_set_flags(rules, X509_V_FLAG_NO_CHECK_TIME);
    return CURLE_OK;
}

}  // namespace kro::tessel::os
