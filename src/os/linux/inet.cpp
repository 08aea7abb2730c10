// The HTTP service: finds the handle that a call is about, checks its kind, and sets the last error.
#include "os/inet.h"

#include "os/linux/inet_dialog.h"
#include "os/linux/inet_request.h"
#include "os/linux/inet_service.h"
#include "os/linux/inet_session.h"
#include "os/system_services.h"
#include "os/thread.h"

#include <new>

namespace kro::tessel::os {
namespace {

constexpr std::uint32_t k_default_connect_ms = 60'000;
constexpr std::uint32_t k_default_send_ms = 30'000;
constexpr std::uint32_t k_default_receive_ms = 3'600'000;

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

class linux_inet final : public inet_service {
public:
    linux_inet(transfer_service& network, std::unique_ptr<turned_transfers> (*make_turned)())
        : m_network(network), m_make_turned(make_turned) {}

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
    std::shared_ptr<inet_request> request_of(inet_handle handle) const;
    std::shared_ptr<inet_connection> connection_of(inet_handle handle) const;
    std::uint32_t credentials_error(inet_handle handle) const;
    std::uint32_t process_timeout(inet_timeout kind) const noexcept {
        return m_timeouts[static_cast<std::size_t>(kind)].load(std::memory_order_relaxed);
    }

    transfer_service& m_network;
    std::unique_ptr<turned_transfers> (*const m_make_turned)();
    handle_table m_handles;
    std::atomic<std::uint32_t> m_timeouts[3] = {k_default_connect_ms, k_default_send_ms,
                                                k_default_receive_ms};
};

std::shared_ptr<inet_request> linux_inet::request_of(inet_handle handle) const {
    auto node = m_handles.find(handle);
    if (node == nullptr || node->kind() != handle_kind::request) {
        return nullptr;
    }
    return std::static_pointer_cast<inet_request>(node);
}

// The connection itself, or the one that a request belongs to.
std::shared_ptr<inet_connection> linux_inet::connection_of(inet_handle handle) const {
    auto node = m_handles.find(handle);
    if (node == nullptr || node->kind() == handle_kind::session) {
        return nullptr;
    }
    if (node->kind() == handle_kind::request) {
        return static_cast<const inet_request&>(*node).connection;
    }
    return std::static_pointer_cast<inet_connection>(node);
}

inet_handle linux_inet::open(std::uint32_t access, wide_view proxy, wide_view bypass, wide_view agent,
                             bool async) {
    const bool known =
        access == k_access_preconfigured || access == k_access_direct || access == k_access_proxy;
    if (!known || (access == k_access_proxy && proxy.empty())) {
        return refused(k_error_invalid_parameter);
    }
    proxy_rules rules;
    if (access == k_access_proxy) {
        rules = proxy_rules::explicit_ones(narrow(proxy), narrow(bypass));
    } else if (access == k_access_preconfigured) {
        rules = proxy_rules::preconfigured();
    }
    const auto session = std::make_shared<inet_session>(std::move(rules), narrow(agent), async);
    if (const std::uint32_t error = m_handles.add(session, k_error_invalid_handle); error != 0) {
        return refused(error);
    }
    set_last_error(0);
    return session->value();
}

inet_callback linux_inet::set_callback(inet_handle session, inet_callback callback) {
    const auto node = m_handles.find(session);
    if (node == nullptr) {
        set_last_error(k_error_invalid_handle);
        return nullptr;
    }
    const inet_callback before = node->set_callback(callback);
    set_last_error(0);
    return before;
}

inet_handle linux_inet::connect(inet_handle session, wide_view host, std::uint16_t port, wide_view user,
                                wide_view password, std::uintptr_t context) {
    const auto node = m_handles.find(session);
    if (node == nullptr || node->kind() != handle_kind::session) {
        return refused(k_error_invalid_handle);
    }
    if (host.empty()) {
        return refused(k_error_invalid_parameter);
    }
    wide_account account{wide_string(user), wide_string(password)};
    const auto connection = std::make_shared<inet_connection>(std::static_pointer_cast<inet_session>(node),
                                                              host, port, std::move(account), context);
    connection->begin_creation();
    if (const std::uint32_t error = m_handles.add(connection, k_error_invalid_handle); error != 0) {
        return refused(error);
    }
    connection->announce_creation();
    set_last_error(0);
    return connection->value();
}

inet_handle linux_inet::open_request(inet_handle connection, wide_view verb, wide_view object,
                                     std::uint32_t flags, std::uintptr_t context) {
    const auto node = m_handles.find(connection);
    if (node == nullptr || node->kind() != handle_kind::connection) {
        return refused(k_error_inet_incorrect_handle_type);
    }
    auto parent = std::static_pointer_cast<inet_connection>(node);
    auto turned = parent->session->async ? nullptr : m_make_turned();
    const auto request =
        std::make_shared<inet_request>(std::move(parent), m_network, std::move(turned),
                                       verb.empty() ? "GET" : narrow(verb), object, flags, context);
    request->fill_timeouts(m_timeouts);
    request->begin_creation();
    const std::uint32_t error = m_handles.add(request, k_error_inet_incorrect_handle_type);
    if (error != 0) {
        return refused(error);
    }
    request->announce_creation();
    request->creation_announced();
    set_last_error(0);
    return request->value();
}

inet_status linux_inet::send(inet_handle request, wide_view headers, const void* body,
                             std::uint32_t body_bytes, inet_send_mode mode, std::uintptr_t context) {
    const auto target = request_of(request);
    if (target == nullptr) {
        return noted(inet_status{k_error_inet_incorrect_handle_type});
    }
    return noted(target->send(headers, body, body_bytes, mode, context));
}

inet_status linux_inet::end(inet_handle request, std::uintptr_t context) {
    const auto target = request_of(request);
    return noted(target == nullptr ? inet_status{k_error_inet_incorrect_handle_type} : target->end(context));
}

inet_read_status linux_inet::read(inet_handle request, void* destination, std::uint32_t capacity,
                                  std::uintptr_t context) {
    const auto target = request_of(request);
    if (target == nullptr) {
        const auto error = request == nullptr ? k_error_invalid_handle : k_error_inet_incorrect_handle_type;
        return noted(inet_read_status{{error}});
    }
    return noted(target->read(destination, capacity, context));
}

inet_read_status linux_inet::available(inet_handle request) {
    const auto target = request_of(request);
    if (target == nullptr) {
        return noted(inet_read_status{{k_error_inet_incorrect_handle_type}});
    }
    return noted(target->available());
}

inet_status linux_inet::query_text(inet_handle request, std::uint32_t what, std::uint32_t& index,
                                   wide_string& text) {
    const auto target = request_of(request);
    if (target == nullptr) {
        return noted(inet_status{k_error_inet_incorrect_handle_type});
    }
    return noted(target->query_text(what, index, text));
}

inet_status linux_inet::query_number(inet_handle request, std::uint32_t what, std::uint32_t& number) {
    const auto target = request_of(request);
    if (target == nullptr) {
        return noted(inet_status{k_error_inet_incorrect_handle_type});
    }
    return noted(target->query_number(what, number));
}

inet_status linux_inet::set_timeout(inet_handle handle, inet_timeout kind, std::uint32_t milliseconds) {
    if (handle == nullptr) {
        m_timeouts[static_cast<std::size_t>(kind)].store(milliseconds, std::memory_order_relaxed);
        return noted(inet_status{});
    }
    const auto node = m_handles.find(handle);
    if (node == nullptr) {
        return noted(inet_status{k_error_invalid_handle});
    }
    node->set_timeout(kind, milliseconds);
    return noted(inet_status{});
}

inet_status linux_inet::get_timeout(inet_handle handle, inet_timeout kind, std::uint32_t& milliseconds) {
    std::optional<std::uint32_t> own;
    if (handle != nullptr) {
        const auto node = m_handles.find(handle);
        if (node == nullptr) {
            return noted(inet_status{k_error_invalid_handle});
        }
        own = node->timeout(kind);
    }
    milliseconds = own.value_or(process_timeout(kind));
    return noted(inet_status{});
}

inet_status linux_inet::set_credentials(inet_handle handle, inet_credentials whose, const wide_string* user,
                                        const wide_string* password) {
    const auto connection = connection_of(handle);
    if (connection == nullptr) {
        return noted(inet_status{credentials_error(handle)});
    }
    connection->set_account(whose, user, password);
    return noted(inet_status{});
}

inet_status linux_inet::get_credentials(inet_handle handle, inet_credentials whose, wide_string& user,
                                        wide_string& password) {
    const auto connection = connection_of(handle);
    if (connection == nullptr) {
        return noted(inet_status{credentials_error(handle)});
    }
    wide_account account = connection->account(whose);
    user = std::move(account.user);
    password = std::move(account.password);
    return noted(inet_status{});
}

// Null and sessions know no such option; any other value is no handle.
std::uint32_t linux_inet::credentials_error(inet_handle handle) const {
    return handle == nullptr || m_handles.find(handle) != nullptr ? k_error_inet_invalid_option
                                                                  : k_error_invalid_handle;
}

inet_status linux_inet::set_connection_limit(std::uint32_t count) {
    if (count == 0) {
        return noted(inet_status{k_error_bad_arguments});
    }
    m_network.set_connection_limit(count);
    return noted(inet_status{});
}

std::uint32_t linux_inet::dialog(void* parent, inet_handle request, std::uint32_t error,
                                 std::uint32_t flags) {
    const auto answer = [](std::uint32_t number) {
        set_last_error(number);
        return number;
    };
    if (parent == nullptr && (flags & k_dialog_no_ui) == 0) {
        return answer(k_error_invalid_handle);
    }
    if (request == nullptr) {
        return answer(k_error_invalid_parameter);
    }
    const auto target = request_of(request);
    if (target == nullptr) {
        const bool is_other_kind = m_handles.find(request) != nullptr;
        return answer(is_other_kind ? 0 : k_error_invalid_handle);
    }
    return answer(show_dialog(*target, error, flags));
}

inet_status linux_inet::close(inet_handle handle) {
    const auto taken = m_handles.take(handle);
    for (const auto& node : taken) {
        node->close();
    }
    return noted(inet_status{taken.empty() ? k_error_invalid_handle : 0});
}

}  // namespace

std::unique_ptr<inet_service> make_inet_service(transfer_service& network,
                                                std::unique_ptr<turned_transfers> (*make_turned)()) {
    return std::make_unique<linux_inet>(network, make_turned);
}

inet_service& system_inet() {
    // Never freed: threads that run on while the process ends may still call it.
    static inet_service* const service = make_inet_service(system_transfers()).release();
    return *service;
}

}  // namespace kro::tessel::os
