// Accounts of proxies: in the registry, and handed on to the finder.
#include "proxy/decimal.h"
#include "proxy/trace_proxy.h"
#include "tessel/base/trace.h"
#include "tessel/platform/registry.h"
#include "tessel/proxy/proxy_util.h"

#include <algorithm>
#include <new>
#include <string>

namespace {

using namespace kro::tessel;
using registry::reg_key;

constexpr const wchar* k_accounts_path = TESSEL_W("Software\\Halvik\\Bremora\\proxy");

bool is_valid(const http::proxy_info& account) {
    return !account.server.empty() && account.port != 0 &&
           (account.type == http::proxy_http || account.type == http::proxy_https);
}

// `colon`: where the server ends in the subkey's name.
CLumProxyInfo read_account(const reg_key& key, const wide_string& name, std::size_t colon) {
    CLumProxyInfo account;
    account.server = CTString(name.substr(0, colon));
    account.port = static_cast<std::uint16_t>(proxy::decimal(name.substr(colon + 1), 0xFFFF));
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
    return account;
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

int CLumProxyUtil::LoadProxyInfo() try {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::LoadProxyInfo()"));
    const reg_key accounts(HKEY_CURRENT_USER, k_accounts_path, false);
    if (accounts.key == nullptr) {
        return 0;
    }
    wide_string name;
    for (unsigned long index = 0; accounts.enum_subkey(index, name); ++index) {
        const std::size_t colon = name.find(':');
        if (colon == wide_string::npos) {
            continue;
        }
        const reg_key key(accounts.open_subkey(name, false));
        if (key.key == nullptr) {
            return 1;  // the later ones aren't read (kept)
        }
        const CLumProxyInfo account = read_account(key, name, colon);
        proxy::trace_proxy_info(account);
        if (is_valid(account)) {
            const std::lock_guard lock(m_lock);
            add_account(account);
        }
    }
    return 1;
} catch (const std::bad_alloc&) {
    return 0;
}

int CLumProxyUtil::SaveProxyInfo(const proxy_info& account) try {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::SaveProxyInfo"));
    proxy::trace_proxy_info(account);
    const wchar not_in_a_name[] = {'\\', 0};
    if (account.server.find_first_of(not_in_a_name, 0, 2) != wide_string::npos) {
        return 0;  // the name would end there, or be a path
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
