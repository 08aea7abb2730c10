// Accounts of proxies: in the registry, and handed on to the finder.
#include "proxy/decimal.h"
#include "proxy/trace_proxy.h"
#include "tessel/base/trace.h"
#include "tessel/platform/registry.h"
#include "tessel/proxy/saved_accounts.h"

#include <algorithm>
#include <new>
#include <string>
#include <vector>

namespace {

using namespace kro::tessel;
using registry::reg_key;

constexpr const wchar* k_accounts_path = TESSEL_W("Software\\Halvik\\Bremora\\proxy");

bool is_valid(const http::proxy_info& account) {
    return !account.server.empty() && account.port != 0 &&
           (account.type == http::proxy_http || account.type == http::proxy_https);
}

// The proxy that a subkey's name says, "server:port"; port 0 when it says none.
http::proxy_info proxy_named(const wide_string& name) {
    http::proxy_info proxy;
    const std::size_t colon = name.find(':');
    if (colon != wide_string::npos) {
        proxy.server = CTString(name.substr(0, colon));
        proxy.port = static_cast<std::uint16_t>(proxy::decimal(name.substr(colon + 1), 0xFFFF));
    }
    return proxy;
}

void read_account(const reg_key& key, http::proxy_info& account) {
    unsigned long type = 0;
    static_cast<void>(key.read_value(TESSEL_W("type"), type));  // its result says nothing of use
    wide_string text;
    if (key.read_value(TESSEL_W("user"), text)) {
        account.user = CTString(text);
    }
    if (key.read_value(TESSEL_W("password"), text)) {
        account.password = CTString(text);
    }
    account.type = static_cast<http::proxy_type>(type);
}

// Calls `take` with each valid account of the registry. False: there is no key for them.
template <class Take>
bool each_saved_account(Take&& take) {
    const reg_key accounts(HKEY_CURRENT_USER, k_accounts_path, false);
    if (accounts.key == nullptr) {
        return false;
    }
    wide_string name;
    for (unsigned long index = 0; accounts.enum_subkey(index, name); ++index) {
        if (name.find(':') == wide_string::npos) {
            continue;
        }
        const reg_key key(accounts.open_subkey(name, false));
        if (key.key == nullptr) {
            break;  // the later ones aren't read (kept)
        }
        CLumProxyInfo account(proxy_named(name));
        read_account(key, account);
        proxy::trace_proxy_info(account);
        if (is_valid(account)) {
            take(account);
        }
    }
    return true;
}

bool can_name_a_key(const CTString& server) {
    const wchar not_in_a_name[] = {'\\', 0};  // the name would be a path, or end there
    return server.find_first_of(not_in_a_name, 0, 2) == wide_string::npos;
}

wide_string subkey_of(const http::proxy_info& account) {
    const std::string port = std::to_string(account.port);
    wide_string name(account.server.data(), account.server.size());
    name += wchar(':');
    return name.append(port.begin(), port.end());
}

bool write_account(reg_key& key, const http::proxy_info& account) {
    bool written = key.write_value(TESSEL_W("type"), static_cast<unsigned long>(account.type));
    if (!account.user.empty()) {
        written = key.write_value(TESSEL_W("user"), account.user) && written;
    }
    if (!account.password.empty()) {
        written = key.write_value(TESSEL_W("password"), account.password) && written;
    }
    return written;
}

}  // namespace

std::vector<CLumProxyInfo> kro::tessel::saved_proxy_accounts() {
    std::vector<CLumProxyInfo> saved;
    each_saved_account([&saved](const CLumProxyInfo& account) { saved.push_back(account); });
    return saved;
}

bool kro::tessel::forget_proxy_account(const CTString& server, std::uint16_t port) {
    reg_key accounts(HKEY_CURRENT_USER, k_accounts_path, false);
    const http::proxy_info proxy(http::proxy_http, server, port, CTString(), CTString());
    if (server.empty() || port == 0 || !can_name_a_key(server) || accounts.key == nullptr) {
        return false;
    }
    bool forgotten = accounts.delete_subkey(subkey_of(proxy));
    wide_string name;
    for (unsigned long index = 0; accounts.enum_subkey(index, name);) {
        const http::proxy_info other = proxy_named(name);  // written in another way, as "proxy:03128"
        if (other.port == port && other.server == server && accounts.delete_subkey(name)) {
            forgotten = true;
        } else {
            ++index;
        }
    }
    return forgotten;
}

int CLumProxyUtil::LoadProxyInfo() try {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::LoadProxyInfo()"));
    const bool opened = each_saved_account([this](const CLumProxyInfo& account) {
        const std::lock_guard lock(m_lock);
        add_account(account);
    });
    return opened ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}

int CLumProxyUtil::SaveProxyInfo(const proxy_info& account) try {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::SaveProxyInfo"));
    proxy::trace_proxy_info(account);
    if (!can_name_a_key(account.server)) {
        return 0;
    }
    const reg_key accounts(HKEY_CURRENT_USER, k_accounts_path, true);
    if (accounts.key == nullptr) {
        return 0;
    }
    reg_key key(accounts.open_subkey(subkey_of(account), true));
    return key.key != nullptr && write_account(key, account) ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}

bool CLumProxyUtil::BookExtProxyAccount(const proxy_info& account) try {
    trace_message(trace_debug) << TESSEL_W("CLumProxyUtil::BookExtProxyAccount()");
    if (!is_valid(account) || account.user.empty() || account.password.empty()) {
        return false;
    }
    proxy::trace_proxy_info(account);
    wide_string user = account.user;
    std::replace(user.begin(), user.end(), wchar('/'), wchar('\\'));
    const std::lock_guard lock(m_lock);
    IProxyFinder* const finder = m_finder;
    return finder != nullptr && finder->BookAccount(account.server.c_str(), account.port, user.c_str(),
                                                    account.password.c_str()) == 0;
} catch (const std::bad_alloc&) {
    return false;
}

int CLumProxyUtil::ShowInputDialog(CLumProxyInfo&, const CTString&) {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::ShowInputDialog()"));
    return 0;
}

// Without the lock: another thread may hold it in a query that the finder answers after this.
void CLumProxyUtil::OnErrorAccount(const wchar* server, unsigned short port) {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::OnErrorAccount()"));
    IProxyFinder* const finder = m_finder;
    if (finder == nullptr) {
        return;
    }
    CLumProxyInfo account;
    bool entered = false;
    try {
        account.server = CTString(server);
        account.port = port;
        entered = ShowInputDialog(account, CTString()) != 0;
    } catch (const std::bad_alloc&) {
        entered = false;
    }
    if (entered) {
        finder->SetAccount(account.user.c_str(), account.password.c_str());
    } else {
        finder->SetAccount(nullptr, nullptr);
    }
}
