// Which way a request takes, by proxies and scripts, and the accounts that it shows on it.
#include "os/linux/inet_request.h"
#include "os/thread.h"

#include <new>
#include <utility>

namespace kro::tessel::os {

bool inet_request::start_hop() {
    m_other_proxies.clear();
    const proxy_rules& rules = connection->session->proxies;
    if (const auto question = rules.script_question(m_outgoing.address)) {
        return ask_script(*question);
    }
    go_through(rules.route_to(m_outgoing.address));
    return start_exchange();
}

// The exchange starts when the script has answered, which it does within seconds.
bool inet_request::ask_script(const proxy_script_question& question) {
    if (process_was_forked()) {
        return false;
    }
    m_tag = ++m_last_tag;
    m_asks_script = true;
    const auto known = system_script_routes().find(
        question, [self = shared_from_this(), tag = m_tag](const script_routes::proxies& proxies) {
            self->script_answered(tag, proxies);
        });
    if (!known) {
        return true;
    }
    use_proxies(*known);
    return start_exchange();
}

void inet_request::script_answered(std::uint64_t tag, const script_routes::proxies& proxies) noexcept {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag) {
        return;
    }
    try {
        use_proxies(proxies);
        if (m_turned != nullptr) {
            m_changed.notify_all();  // whoever waits goes on
        } else if (!start_exchange()) {
            response_failed(k_error_inet_async_thread_failed);
            m_network.wake(shared_from_this());
        }
    } catch (const std::bad_alloc&) {
        m_asks_script = false;
        complete(k_error_not_enough_memory);
        m_changed.notify_all();
        m_network.wake(shared_from_this());
    }
}

// The first one now, the others if it is out of reach.
void inet_request::use_proxies(const script_routes::proxies& proxies) {
    m_asks_script = false;
    m_other_proxies.assign(proxies.begin(), proxies.end());
    std::string first;
    if (!m_other_proxies.empty()) {
        first = std::move(m_other_proxies.front());
        m_other_proxies.pop_front();
    }
    go_through({std::move(first), {}});
}

// Nothing has gone out yet, so that nobody gets the request twice.
bool inet_request::tries_next_proxy(std::uint32_t error) {
    const bool is_out_of_reach = error == k_error_inet_cannot_connect || error == k_error_inet_timeout ||
                                 error == k_error_inet_name_not_resolved;
    if (m_other_proxies.empty() || !is_out_of_reach || m_sent) {
        return false;
    }
    std::string next = std::move(m_other_proxies.front());
    m_other_proxies.pop_front();
    if (m_hops == 0) {
        m_own_proxy.clear();  // the caller's account is for the proxy that the request gets through
    }
    if (next.empty()) {
        m_outgoing.headers.remove("Proxy-Authorization");
    }
    go_through({std::move(next), {}});
    return start_exchange();
}

// What the caller says to one proxy is for no other, nor for a server.
void inet_request::go_through(proxy_rules::route route) {
    if (m_hops != 0 && route.proxy != m_route.proxy) {
        m_outgoing.headers.remove("Proxy-Authorization");
    }
    m_route = std::move(route);
    if (m_own_proxy.empty()) {
        m_own_proxy = m_route.proxy;
    }
}

void inet_request::wait_for_script(std::unique_lock<std::mutex>& lock) {
    m_changed.wait(lock, [this] { return m_closed || !m_asks_script; });
    if (!m_closed && !m_operation_done && !start_exchange()) {
        complete(k_error_inet_shutdown);
    }
}

void inet_request::fill_accounts(transfer_request& request) const {
    request.proxy = m_route.proxy;
    if (!request.proxy.empty()) {
        request.origin += '|' + request.proxy;
    }
    if ((m_flags & k_request_no_auth) != 0) {
        return;
    }
    const auto ansi = [](const wide_account& account) {
        return transfer_credentials{to_ansi(account.user), to_ansi(account.password)};
    };
    request.server = ansi(account_of(false));
    if (!request.proxy.empty()) {
        request.proxy_account = ansi(account_of(true));
        if (!request.proxy_account.given()) {
            const bool may_have_it = m_same_server && !m_route.account.given();
            request.proxy_account = may_have_it ? request.server : m_route.account;
        }
    }
}

bool inet_request::is_connections_own(bool proxy) const noexcept {
    return proxy ? m_route.proxy == m_own_proxy : m_same_server;
}

std::string inet_request::place_of(bool proxy) const {
    return proxy ? "proxy " + m_route.proxy : m_outgoing.address.origin();
}

wide_account inet_request::account_of(bool proxy) const {
    return is_connections_own(proxy)
               ? connection->account(proxy ? inet_credentials::proxy : inet_credentials::server)
               : m_others.at(place_of(proxy));
}

wide_account inet_request::account_in_question(bool for_proxy) const {
    const std::lock_guard lock(m_mutex);
    return account_of(for_proxy);
}

void inet_request::take_account(bool for_proxy, const wide_account& entered) {
    const std::lock_guard lock(m_mutex);
    if (is_connections_own(for_proxy)) {
        connection->set_account(for_proxy ? inet_credentials::proxy : inet_credentials::server, &entered.user,
                                &entered.password);
    } else {
        m_others.enter(place_of(for_proxy), entered);
    }
}

}  // namespace kro::tessel::os
