#include "os/linux/soap_post.h"

#include "os/inet.h"
#include "os/linux/inet_text.h"
#include "os/linux/soap_answer_screen.h"
#include "os/linux/soap_deadline.h"
#include "os/linux/soap_text.h"
#include "os/soap_toolkit.h"
#include "os/thread.h"
#include "os/url.h"

#include <algorithm>
#include <limits>

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_error_invalid_data = 13;
constexpr std::uint32_t k_error_file_too_large = 223;
constexpr std::uint32_t k_status_proxy_account = 407;
constexpr std::uint32_t k_status_fault = 500;
constexpr std::size_t k_first_read = std::size_t{16} << 10U;
constexpr std::size_t k_largest_read = std::size_t{1} << 20U;

[[noreturn]] void fail_with(std::uint32_t number) {
    throw soap_error{k_soap_error_number | number};
}

inet_handle made(inet_handle handle) {
    if (handle == nullptr) {
        fail_with(last_error());
    }
    return handle;
}

// A session, closed when the exchange is over or its time is.
class timed_session {
public:
    timed_session(inet_handle session, std::uint32_t milliseconds)
        : m_session(made(session)), m_deadline(m_session, milliseconds) {}
    timed_session(const timed_session&) = delete;
    timed_session& operator=(const timed_session&) = delete;
    ~timed_session() {
        if (!m_deadline.stop()) {
            inet().close(m_session);
        }
    }

    inet_handle get() const noexcept { return m_session; }

    /// What became of a call; one that the deadline has ended took too long.
    void check(inet_status status) {
        if (!status.ok()) {
            fail_with(m_deadline.stop() ? k_error_inet_timeout : status.error);
        }
    }

    inet_handle made_in_time(inet_handle handle) {
        check({handle == nullptr ? last_error() : 0});
        return handle;
    }

private:
    inet_handle m_session;
    closing_deadline m_deadline;
};

wide_string proxy_of(const soap_route& route) {
    return route.proxy_server + widen(":" + std::to_string(route.proxy_port));
}

inet_handle open_session(const soap_route& route) {
    const wide_view agent = TESSEL_W("tessel.soap");
    if (!route.uses_proxy) {
        return inet().open(k_access_direct, {}, {}, agent, false);
    }
    if (route.proxy_server.empty()) {
        return inet().open(k_access_preconfigured, {}, {}, agent, false);
    }
    return inet().open(k_access_proxy, proxy_of(route), {}, agent, false);
}

// The action between double quotes; what isn't ASCII escaped as in a URI.
std::string quoted_action(wide_view action) {
    std::string utf8;
    append_as_markup(utf8, action);
    std::string quoted = "\"";
    for (const char byte : utf8) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < 0x20 || value == 0x7F || byte == '"') {
            throw soap_error{k_soap_invalid_argument};
        }
        if (value > 0x7F) {
            append_escaped(quoted, byte);
        } else {
            quoted += byte;
        }
    }
    return quoted + '"';
}

wide_string headers_of(const soap_route& route) {
    return widen("Content-Type: text/xml; charset=\"utf-8\"\r\nSOAPAction: " + quoted_action(route.action) +
                 "\r\n");
}

// The request, made with all that is above it; closed with its session.
inet_handle open_request(timed_session& session, const soap_route& route, const url_pieces& url) {
    if (route.milliseconds != 0) {
        for (const inet_timeout kind : {inet_timeout::connect, inet_timeout::send, inet_timeout::receive}) {
            session.check(inet().set_timeout(session.get(), kind, route.milliseconds));
        }
    }
    const inet_handle connection =
        session.made_in_time(inet().connect(session.get(), url.host, url.port, url.user, url.password, 0));
    if (!route.proxy_user.empty() || !route.proxy_password.empty()) {
        session.check(inet().set_credentials(connection, inet_credentials::proxy, &route.proxy_user,
                                             &route.proxy_password));
    }
    wide_string object(url.path);
    object += url.extra;
    const std::uint32_t flags = k_request_reload | k_request_no_cache_write | k_request_keep_connection |
                                k_request_no_auto_redirect |
                                (url.scheme_number == k_scheme_https ? k_request_secure : 0);
    return session.made_in_time(inet().open_request(connection, TESSEL_W("POST"), object, flags, 0));
}

url_pieces web_url(const wide_string& text) {
    url_pieces url;
    const std::uint32_t error = crack_url(text, url);
    if (error != 0) {
        fail_with(error);
    }
    if (url.scheme_number != k_scheme_http && url.scheme_number != k_scheme_https) {
        fail_with(k_error_inet_unrecognized_scheme);
    }
    return url;
}

// A header of the response, in lower case; empty when there is none.
std::string header(inet_handle request, std::uint32_t what) {
    wide_string value;
    std::uint32_t index = 0;
    return inet().query_text(request, what, index, value).ok() ? lowered(trimmed(narrow(value)))
                                                               : std::string();
}

void check_status(timed_session& session, inet_handle request, std::string_view content_type) {
    std::uint32_t status = 0;
    session.check(inet().query_number(request, k_query_status_code, status));
    if (status == k_status_proxy_account) {
        throw soap_error{k_soap_proxy_account};
    }
    const bool is_fault =
        status == k_status_fault &&
        content_type.substr(0, content_type.find(';')).find("xml") != std::string_view::npos;
    if (status / 100 != 2 && !is_fault) {
        throw soap_error{k_soap_http_status | status};
    }
}

std::string charset_of(std::string_view content_type) {
    constexpr std::string_view k_name = "charset=";
    const std::size_t at = content_type.find(k_name);
    if (at == std::string_view::npos) {
        return {};
    }
    std::string_view value = content_type.substr(at + k_name.size());
    value.remove_prefix(std::min(value.find_first_not_of('"'), value.size()));
    return std::string(trimmed(value.substr(0, value.find_first_of("\";"))));
}

std::string read_body(timed_session& session, inet_handle request) {
    std::string body;
    std::size_t room = k_first_read;
    for (;;) {
        const std::size_t before = body.size();
        body.resize(before + room);
        const inet_read_status read =
            inet().read(request, body.data() + before, static_cast<std::uint32_t>(room), 0);
        session.check(read.status);
        body.resize(before + read.bytes);
        if (body.size() > k_max_answer_bytes) {
            fail_with(k_error_file_too_large);
        }
        if (read.bytes < room) {
            return body;
        }
        room = std::min(body.size(), k_largest_read);
    }
}

}  // namespace

soap_post_answer post_soap_message(const soap_route& route, std::string_view message) {
    if (message.size() > std::numeric_limits<std::uint32_t>::max()) {
        throw soap_error{k_soap_no_memory};
    }
    const url_pieces url = web_url(route.url);
    const wide_string headers = headers_of(route);
    timed_session session(open_session(route), route.milliseconds);
    const inet_handle request = open_request(session, route, url);
    session.check(inet().send(request, headers, message.data(), static_cast<std::uint32_t>(message.size()),
                              inet_send_mode::whole, 0));
    const std::string content_type = header(request, k_query_content_type);
    check_status(session, request, content_type);
    const std::string coding = header(request, k_query_content_encoding);
    if (!coding.empty() && coding != "identity") {
        fail_with(k_error_invalid_data);
    }
    soap_post_answer answer;
    answer.charset = charset_of(content_type);
    answer.bytes = read_body(session, request);
    return answer;
}

}  // namespace kro::tessel::os
