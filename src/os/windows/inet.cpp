// The HTTP service: the system's, with what this interface promises beyond it in the records.
#include "os/inet.h"

#include "os/system_services.h"
#include "os/thread.h"
#include "os/windows/inet_query.h"
#include "os/windows/inet_records.h"

#include <windows.h>
#include <wininet.h>

#include <atomic>
#include <new>

namespace kro::tessel::os {
namespace {

using wide_view = std::basic_string_view<wchar>;

static_assert(k_access_proxy == INTERNET_OPEN_TYPE_PROXY && k_access_direct == INTERNET_OPEN_TYPE_DIRECT);
static_assert(k_notice_request_complete == INTERNET_STATUS_REQUEST_COMPLETE);
static_assert(k_query_raw_headers_crlf == HTTP_QUERY_RAW_HEADERS_CRLF);

constexpr std::uint32_t k_no_limit = 0xFFFFFFFFU;

/// What the system documents for each kind of time-out, where it doesn't say itself.
constexpr std::uint32_t k_documented_timeouts[] = {60'000, 30'000, 3'600'000};

constexpr DWORD option_of(inet_timeout kind) {
    constexpr DWORD k_options[] = {INTERNET_OPTION_CONNECT_TIMEOUT, INTERNET_OPTION_SEND_TIMEOUT,
                                   INTERNET_OPTION_RECEIVE_TIMEOUT};
    return k_options[static_cast<std::size_t>(kind)];
}

struct credential_options {
    DWORD user;
    DWORD password;
};
constexpr credential_options options_of(inet_credentials whose) {
    return whose == inet_credentials::server
               ? credential_options{INTERNET_OPTION_USERNAME, INTERNET_OPTION_PASSWORD}
               : credential_options{INTERNET_OPTION_PROXY_USERNAME, INTERNET_OPTION_PROXY_PASSWORD};
}

template <class Status>
Status noted(Status status) noexcept {
    set_last_error(status.error);
    return status;
}
inet_read_status noted(inet_read_status result) noexcept {
    set_last_error(result.status.error);
    return result;
}

inet_handle refused(std::uint32_t error) noexcept {
    set_last_error(error);
    return nullptr;
}

// Zero-terminated, null for nothing.
class optional_text {
public:
    explicit optional_text(wide_view text) : m_text(text) {}
    const wchar* get() const noexcept { return m_text.empty() ? nullptr : m_text.c_str(); }

private:
    wide_string m_text;
};

/// Never destroyed: the system's threads may call back while the process ends.
inet_records& records() {
    static auto& all = *new inet_records;
    return all;
}

void CALLBACK on_notice(HINTERNET, DWORD_PTR id, DWORD notice, LPVOID information, DWORD length) {
    const auto record = records().announced(id);
    if (record == nullptr) {
        return;
    }
    if (notice == k_notice_handle_created) {
        const auto& made = *static_cast<const inet_handle*>(information);
        try {
            records().open(record, made);
        } catch (const std::bad_alloc&) {
            return;  // whoever makes the handle finds it without a place, and says so
        }
    }
    record->notify(notice, information, length);
    if (notice == k_notice_handle_closing) {
        records().forget(id);
    }
}

class windows_inet final : public inet_service {
public:
    inet_handle open(std::uint32_t access, wide_view proxy, wide_view bypass, wide_view agent,
                     bool async) override;
    inet_callback set_callback(inet_handle session, inet_callback callback) override;
    inet_handle connect(inet_handle session, wide_view host, std::uint16_t port, wide_view user,
                        wide_view password, std::uintptr_t context) override;
    inet_handle open_request(inet_handle connection, wide_view verb, wide_view object, std::uint32_t flags,
                             std::uintptr_t context) override;
    inet_status send(inet_handle request, wide_view headers, const void* body, std::uint32_t body_bytes,
                     inet_send_mode mode, std::uintptr_t context) override;
    inet_status end(inet_handle request, std::uintptr_t context) override;
    inet_read_status read(inet_handle request, void* destination, std::uint32_t capacity,
                          std::uintptr_t context) override;
    inet_read_status available(inet_handle request) override;
    inet_status query_text(inet_handle request, std::uint32_t what, std::uint32_t& index,
                           wide_string& text) override;
    inet_status query_number(inet_handle request, std::uint32_t what, std::uint32_t& number) override;
    inet_status set_timeout(inet_handle handle, inet_timeout kind, std::uint32_t milliseconds) override;
    inet_status get_timeout(inet_handle handle, inet_timeout kind, std::uint32_t& milliseconds) override;
    inet_status set_credentials(inet_handle handle, inet_credentials whose, const wide_string* user,
                                const wide_string* password) override;
    inet_status get_credentials(inet_handle handle, inet_credentials whose, wide_string& user,
                                wide_string& password) override;
    inet_status set_connection_limit(std::uint32_t count) override;
    std::uint32_t dialog(void* parent, inet_handle request, std::uint32_t error,
                         std::uint32_t flags) override;
    inet_status close(inet_handle handle) override;

private:
    inet_handle opened(const inet_records::pointer& record, HINTERNET handle);
    void apply_timeouts(inet_record& request);

    std::atomic<std::uint32_t> m_timeouts[3] = {k_documented_timeouts[0], k_documented_timeouts[1],
                                                k_documented_timeouts[2]};
};

// The outcome of a call that makes a handle.
inet_handle windows_inet::opened(const inet_records::pointer& record, HINTERNET handle) {
    if (handle == nullptr) {
        const std::uint32_t error = last_error();
        records().forget(record->id());
        return refused(error);
    }
    if (record->handle() == nullptr) {  // sessions are made without a notice
        records().open(record, handle);
    }
    set_last_error(0);
    return handle;
}

inet_handle windows_inet::open(std::uint32_t access, wide_view proxy, wide_view bypass, wide_view agent,
                               bool async) {
    if (access == k_access_proxy && proxy.empty()) {
        return refused(k_error_invalid_parameter);
    }
    const auto record = records().announce(inet_kind::session, nullptr, 0, async);
    const optional_text lists[] = {optional_text(proxy), optional_text(bypass)};
    const bool named = access == k_access_proxy;
    const HINTERNET handle =
        ::InternetOpenW(optional_text(agent).get(), access, named ? lists[0].get() : nullptr,
                        named ? lists[1].get() : nullptr, async ? INTERNET_FLAG_ASYNC : 0);
    if (handle != nullptr) {
        auto context = record->id();
        ::InternetSetOptionW(handle, INTERNET_OPTION_CONTEXT_VALUE, &context, sizeof context);
        ::InternetSetStatusCallbackW(handle, on_notice);
    }
    return opened(record, handle);
}

inet_callback windows_inet::set_callback(inet_handle session, inet_callback callback) {
    const auto record = records().find(session);
    if (record == nullptr) {
        set_last_error(k_error_invalid_handle);
        return nullptr;
    }
    const inet_callback before = record->set_callback(callback);
    set_last_error(0);
    return before;
}

inet_handle windows_inet::connect(inet_handle session, wide_view host, std::uint16_t port, wide_view user,
                                  wide_view password, std::uintptr_t context) {
    auto parent = records().find(session, inet_kind::session);
    if (parent == nullptr) {
        return refused(k_error_invalid_handle);
    }
    const HINTERNET parent_handle = parent->handle();
    const auto record = records().announce(inet_kind::connection, std::move(parent), context);
    return opened(
        record, ::InternetConnectW(parent_handle, wide_string(host).c_str(), port, optional_text(user).get(),
                                   optional_text(password).get(), INTERNET_SERVICE_HTTP, 0, record->id()));
}

inet_handle windows_inet::open_request(inet_handle connection, wide_view verb, wide_view object,
                                       std::uint32_t flags, std::uintptr_t context) {
    auto parent = records().find(connection, inet_kind::connection);
    if (parent == nullptr) {
        return refused(k_error_inet_incorrect_handle_type);
    }
    const HINTERNET parent_handle = parent->handle();
    const auto record = records().announce(inet_kind::request, std::move(parent), context);
    const inet_handle handle = opened(
        record, ::HttpOpenRequestW(parent_handle, optional_text(verb).get(), optional_text(object).get(),
                                   nullptr, nullptr, nullptr, flags, record->id()));
    if (handle != nullptr) {
        apply_timeouts(*record);
    }
    return handle;
}

// The system documents no inheritance of time-outs, so the request gets what counts for it.
void windows_inet::apply_timeouts(inet_record& request) {
    for (const auto kind : {inet_timeout::connect, inet_timeout::send, inet_timeout::receive}) {
        const std::uint32_t value =
            request.timeout(kind).value_or(m_timeouts[static_cast<std::size_t>(kind)].load());
        set_timeout(request.handle(), kind, value);
    }
}

inet_status windows_inet::send(inet_handle request, wide_view headers, const void* body,
                               std::uint32_t body_bytes, inet_send_mode mode, std::uintptr_t context) {
    const auto target = records().find(request, inet_kind::request);
    return noted(target == nullptr ? inet_status{k_error_inet_incorrect_handle_type}
                                   : target->send(headers, body, body_bytes, mode, context));
}

inet_status windows_inet::end(inet_handle request, std::uintptr_t context) {
    const auto target = records().find(request, inet_kind::request);
    return noted(target == nullptr ? inet_status{k_error_inet_incorrect_handle_type} : target->end(context));
}

inet_read_status windows_inet::read(inet_handle request, void* destination, std::uint32_t capacity,
                                    std::uintptr_t context) {
    const auto target = records().find(request, inet_kind::request);
    if (target == nullptr) {
        const auto error = request == nullptr ? k_error_invalid_handle : k_error_inet_incorrect_handle_type;
        return noted(inet_read_status{{error}});
    }
    return noted(target->read(destination, capacity, context));
}

inet_read_status windows_inet::available(inet_handle request) {
    const auto target = records().find(request, inet_kind::request);
    return noted(target == nullptr ? inet_read_status{{k_error_inet_incorrect_handle_type}}
                                   : target->available());
}

inet_status windows_inet::query_text(inet_handle request, std::uint32_t what, std::uint32_t& index,
                                     wide_string& text) {
    const auto target = records().find(request, inet_kind::request);
    return noted(target == nullptr ? inet_status{k_error_inet_incorrect_handle_type}
                                   : query_header_text(target->handle(), what, index, text));
}

inet_status windows_inet::query_number(inet_handle request, std::uint32_t what, std::uint32_t& number) {
    const auto target = records().find(request, inet_kind::request);
    return noted(target == nullptr ? inet_status{k_error_inet_incorrect_handle_type}
                                   : query_header_number(target->handle(), what, number));
}

inet_status windows_inet::set_timeout(inet_handle handle, inet_timeout kind, std::uint32_t milliseconds) {
    if (handle == nullptr) {
        m_timeouts[static_cast<std::size_t>(kind)] = milliseconds;
    } else {
        const auto record = records().find(handle);
        if (record == nullptr) {
            return noted(inet_status{k_error_invalid_handle});
        }
        record->set_timeout(kind, milliseconds);
    }
    return noted(set_option_number(handle, option_of(kind), milliseconds == 0 ? k_no_limit : milliseconds));
}

// What was set, and never the system's answer: it has none for some kinds of handle.
inet_status windows_inet::get_timeout(inet_handle handle, inet_timeout kind, std::uint32_t& milliseconds) {
    std::optional<std::uint32_t> own;
    if (handle != nullptr) {
        const auto record = records().find(handle);
        if (record == nullptr) {
            return noted(inet_status{k_error_invalid_handle});
        }
        own = record->timeout(kind);
    }
    milliseconds = own.value_or(m_timeouts[static_cast<std::size_t>(kind)].load());
    return noted(inet_status{});
}

// The error of a handle that has no credentials, 0 for one that has.
std::uint32_t credentials_error(inet_handle handle) {
    const auto record = records().find(handle);
    if (record == nullptr && handle != nullptr) {
        return k_error_invalid_handle;
    }
    return record == nullptr || record->kind() == inet_kind::session ? k_error_inet_invalid_option : 0;
}

inet_status windows_inet::set_credentials(inet_handle handle, inet_credentials whose, const wide_string* user,
                                          const wide_string* password) {
    inet_status status{credentials_error(handle)};
    const credential_options options = options_of(whose);
    if (status.ok() && user != nullptr) {
        status = set_option_text(handle, options.user, *user);
    }
    if (status.ok() && password != nullptr) {
        status = set_option_text(handle, options.password, *password);
    }
    return noted(status);
}

inet_status windows_inet::get_credentials(inet_handle handle, inet_credentials whose, wide_string& user,
                                          wide_string& password) {
    inet_status status{credentials_error(handle)};
    const credential_options options = options_of(whose);
    if (status.ok()) {
        status = query_option_text(handle, options.user, user);
    }
    if (status.ok()) {
        status = query_option_text(handle, options.password, password);
    }
    return noted(status);
}

inet_status windows_inet::set_connection_limit(std::uint32_t count) {
    if (count == 0) {
        return noted(inet_status{k_error_bad_arguments});
    }
    const inet_status status = set_option_number(nullptr, INTERNET_OPTION_MAX_CONNS_PER_SERVER, count);
    if (status.ok()) {
        set_option_number(nullptr, INTERNET_OPTION_MAX_CONNS_PER_1_0_SERVER, count);
    }
    return noted(status);
}

std::uint32_t windows_inet::dialog(void* parent, inet_handle request, std::uint32_t error,
                                   std::uint32_t flags) {
    const bool is_stale = request != nullptr && records().find(request) == nullptr;
    const std::uint32_t answer =
        is_stale ? k_error_invalid_handle
                 : ::InternetErrorDlg(static_cast<HWND>(parent), request, error, flags, nullptr);
    set_last_error(answer);
    return answer;
}

inet_status windows_inet::close(inet_handle handle) {
    const auto taken = records().take(handle);
    for (const auto& record : taken) {
        record->end_for_host();
    }
    if (taken.empty()) {
        return noted(inet_status{k_error_invalid_handle});
    }
    ::InternetCloseHandle(handle);
    return noted(inet_status{});
}

}  // namespace

inet_service& system_inet() {
    // Never freed: threads that run on while the process ends may still call it.
    static auto& service = *new windows_inet;
    return service;
}

}  // namespace kro::tessel::os
