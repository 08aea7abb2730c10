// Session and connection handles: settings for the requests below them.
#pragma once

#include "os/linux/inet_handles.h"
#include "os/linux/inet_proxy.h"
#include "os/linux/transfer.h"

#include <optional>
#include <string>

namespace kro::tessel::os {

class inet_session final : public inet_node {
public:
    inet_session(proxy_rules rules, std::string user_agent, bool asynchronous)
        : inet_node(handle_kind::session, nullptr, 0),
          proxies(std::move(rules)),
          agent(std::move(user_agent)),
          async(asynchronous) {}

    const proxy_rules proxies;
    const std::string agent;
    const bool async;

private:
    last_words cease() override { return {}; }
};

struct wide_account {
    wide_string user;
    wide_string password;
};

class inet_connection final : public inet_node {
public:
    inet_connection(std::shared_ptr<inet_session> parent, wide_view to, std::uint16_t to_port,
                    wide_account account, std::uintptr_t context)
        : inet_node(handle_kind::connection, parent, context),
          session(std::move(parent)),
          ascii_host(os::ascii_host(to)),
          port(to_port) {
        m_accounts[static_cast<std::size_t>(inet_credentials::server)] = std::move(account);
    }

    wide_account account(inet_credentials whose) const {
        const std::lock_guard lock(m_mutex);
        return m_accounts[static_cast<std::size_t>(whose)];
    }
    /// A null half stays as it is.
    void set_account(inet_credentials whose, const wide_string* user, const wide_string* password) {
        const std::lock_guard lock(m_mutex);
        wide_account& account = m_accounts[static_cast<std::size_t>(whose)];
        if (user != nullptr) {
            account.user = *user;
        }
        if (password != nullptr) {
            account.password = *password;
        }
    }

    const std::shared_ptr<inet_session> session;
    const std::optional<std::string> ascii_host;  ///< nothing when the name can't be looked up
    const std::uint16_t port;

private:
    last_words cease() override { return {}; }

    wide_account m_accounts[2];
};

}  // namespace kro::tessel::os
