#include "support/scripted_inet.h"

#include "os/thread.h"

#include "support/ascii.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <utility>

namespace tessel_test {
namespace {

using namespace kro::tessel::os;

std::string hexadecimal(std::uint32_t number) {
    char digits[9];
    std::snprintf(digits, sizeof digits, "%08x", number);
    return digits;
}

}  // namespace

scripted_inet::scripted_inet() {
    replace_inet_for_test(this);
}
scripted_inet::~scripted_inet() {
    replace_inet_for_test(nullptr);
}

void scripted_inet::note(const std::string& call) {
    const std::lock_guard lock(m_mutex);
    m_calls.push_back(call);
}

std::vector<std::string> scripted_inet::calls() const {
    const std::lock_guard lock(m_mutex);
    return m_calls;
}

std::size_t scripted_inet::count(std::string_view beginning) const {
    const std::lock_guard lock(m_mutex);
    return static_cast<std::size_t>(
        std::count_if(m_calls.begin(), m_calls.end(), [&](const std::string& call) {
            return std::string_view(call).substr(0, beginning.size()) == beginning;
        }));
}

scripted_inet::handle scripted_inet::last_request() const {
    const std::lock_guard lock(m_mutex);
    return m_last_request;
}

std::size_t scripted_inet::open_handles() const {
    const std::lock_guard lock(m_mutex);
    return m_open.size();
}

scripted_inet::handle scripted_inet::make_handle() {
    const std::lock_guard lock(m_mutex);
    const auto made = reinterpret_cast<handle>(m_next_handle++);  // NOLINT(performance-no-int-to-ptr)
    m_open.insert(made);
    return made;
}

std::uint32_t scripted_inet::answer(std::deque<std::uint32_t>& script, std::uint32_t otherwise) {
    std::uint32_t error = otherwise;
    {
        const std::lock_guard lock(m_mutex);
        if (!script.empty()) {
            error = script.front();
            script.pop_front();
        }
    }
    set_last_error(error);
    return error;
}

void scripted_inet::call_back(handle about, std::uintptr_t context, std::uint32_t number,
                              const void* information, std::uint32_t length) const {
    if (m_callback != nullptr && context != 0) {
        m_callback(about, context, number, information, length);
    }
}

scripted_inet::handle scripted_inet::answer_creation(std::deque<std::uint32_t>& script, handle parent,
                                                     std::uintptr_t context) {
    const std::uint32_t error = answer(script, 0);
    if (error != 0 && error != k_pending) {
        return nullptr;
    }
    const handle made = make_handle();
    m_announcement = {parent, made, context};
    if (error == 0 && announces_inside) {
        announce();
        set_last_error(0);
    }
    return error == 0 ? made : nullptr;
}

void scripted_inet::announce() {
    const announcement what = m_announcement;
    call_back(what.parent, what.context, k_notice_handle_created, &what.created, sizeof what.created);
}

scripted_inet::handle scripted_inet::open(std::uint32_t access, text_view proxy, text_view, text_view agent,
                                          bool async) {
    note("open " + std::to_string(access) + " " + plain(proxy) + " " + plain(agent) +
         (async ? " async" : ""));
    m_async = async;
    return answer(opens, 0) == 0 ? make_handle() : nullptr;
}

inet_callback scripted_inet::set_callback(handle, inet_callback callback) {
    return std::exchange(m_callback, callback);
}

scripted_inet::handle scripted_inet::connect(handle session, text_view host, std::uint16_t port,
                                             text_view user, text_view password, std::uintptr_t context) {
    note("connect " + plain(host) + ":" + std::to_string(port) + " " + plain(user) + " " + plain(password));
    return answer_creation(connects, session, context);
}

scripted_inet::handle scripted_inet::open_request(handle connection, text_view verb, text_view object,
                                                  std::uint32_t flags, std::uintptr_t context) {
    note("open_request " + plain(verb) + " " + plain(object) + " " + hexadecimal(flags));
    const handle made = answer_creation(open_requests, connection, context);
    const std::lock_guard lock(m_mutex);
    m_last_request = m_announcement.created;
    m_contexts[m_last_request] = context;
    return made;
}

inet_status scripted_inet::send(handle, text_view headers, const void* data, std::uint32_t data_bytes,
                                inet_send_mode, std::uintptr_t) {
    const auto* bytes = static_cast<const char*>(data);
    note("send " + plain(headers) + "|" + (bytes == nullptr ? "" : std::string(bytes, data_bytes)));
    return {answer(sends, m_async ? k_pending : 0)};
}

inet_status scripted_inet::end(handle, std::uintptr_t) {
    note("end");
    return {answer(ends, k_pending)};
}

std::uint32_t scripted_inet::take_body(void* destination, std::uint32_t capacity) {
    const std::size_t count = std::min({std::size_t{capacity}, body.size(), read_limit});
    std::memcpy(destination, body.data(), count);
    body.erase(0, count);
    return static_cast<std::uint32_t>(count);
}

inet_read_status scripted_inet::read(handle, void* destination, std::uint32_t capacity, std::uintptr_t) {
    note("read " + std::to_string(capacity));
    const std::uint32_t error = answer(reads, 0);
    const std::lock_guard lock(m_mutex);
    if (error == k_pending) {
        m_read = {destination, capacity};
    }
    return {{error}, error == 0 ? take_body(destination, capacity) : 0};
}

inet_read_status scripted_inet::available(handle) {
    return {{0}, static_cast<std::uint32_t>(std::min(body.size(), read_limit))};
}

void scripted_inet::complete(bool result, std::uint32_t error, std::uint32_t bytes) {
    inet_async_result information{result ? 1U : 0U, error, 0};
    handle request = nullptr;
    std::uintptr_t context = 0;
    {
        const std::lock_guard lock(m_mutex);
        request = m_last_request;
        context = m_contexts[request];
        if (m_read.destination != nullptr) {
            information.bytes = take_body(m_read.destination, std::min(bytes, m_read.capacity));
            m_read = {};
        }
    }
    call_back(request, context, k_notice_request_complete, &information, sizeof information);
}

void scripted_inet::complete_on(handle request, bool result, std::uint32_t error) {
    const inet_async_result information{result ? 1U : 0U, error, 0};
    call_back(request, m_contexts[request], k_notice_request_complete, &information, sizeof information);
}

void scripted_inet::notice(std::uint32_t number) {
    call_back(m_last_request, m_contexts[m_last_request], number, nullptr, 0);
}

inet_status scripted_inet::query_text(handle, std::uint32_t what, std::uint32_t&, text& value) {
    if (what != k_query_content_encoding || !content_encoding) {
        set_last_error(k_error_http_header_not_found);
        return {k_error_http_header_not_found};
    }
    value = *content_encoding;
    return {};
}

inet_status scripted_inet::query_number(handle, std::uint32_t what, std::uint32_t& number) {
    if (what == k_query_status_code) {
        const std::uint32_t error = answer(status_queries, 0);
        number = error == 0 ? status_code : number;
        return {error};
    }
    if (what != k_query_content_length || !content_length) {
        set_last_error(k_error_http_header_not_found);
        return {k_error_http_header_not_found};
    }
    number = *content_length;
    return {};
}

inet_status scripted_inet::set_timeout(handle of, inet_timeout kind, std::uint32_t milliseconds) {
    note("set_timeout " + std::string(of == nullptr ? "process " : "handle ") +
         std::to_string(static_cast<int>(kind)) + " " + std::to_string(milliseconds));
    return {};
}

inet_status scripted_inet::get_timeout(handle, inet_timeout, std::uint32_t& milliseconds) {
    milliseconds = receive_timeout.value_or(milliseconds);
    return {receive_timeout ? 0 : k_error_inet_invalid_option};
}

inet_status scripted_inet::set_credentials(handle, inet_credentials whose, const text* user,
                                           const text* password) {
    note("set_credentials " + std::string(whose == inet_credentials::proxy ? "proxy " : "server ") +
         (user == nullptr ? "-" : plain(*user)) + " " + (password == nullptr ? "-" : plain(*password)));
    return {};
}

inet_status scripted_inet::get_credentials(handle, inet_credentials, text& user, text& password) {
    user = proxy_user;
    password = proxy_password;
    return {};
}

inet_status scripted_inet::set_connection_limit(std::uint32_t) {
    return {};
}

std::uint32_t scripted_inet::dialog(void* parent, handle, std::uint32_t error, std::uint32_t flags) {
    note("dialog " + std::string(parent == nullptr ? "over nothing " : "") + std::to_string(error) + " " +
         std::to_string(flags));
    return answer(dialogs, 0);
}

inet_status scripted_inet::close(handle which) {
    const std::lock_guard lock(m_mutex);
    const bool known = m_open.erase(which) != 0;
    m_calls.push_back(known ? "close" : "close of a handle that isn't open");
    return {known ? 0 : k_error_invalid_handle};
}

}  // namespace tessel_test
