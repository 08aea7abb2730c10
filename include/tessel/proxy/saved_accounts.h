// The accounts of proxies that outlive the process: what lies in the registry, whatever this process has
// learned since. CLumProxyUtil::SaveProxyInfo writes them; every new process begins with them.
#pragma once

#include <tessel/proxy/proxy_util.h>

#include <cstdint>
#include <vector>

namespace kro::tessel {

/// The accounts that a new process would begin with, in the registry's order, passwords in clear. What isn't
/// a valid account is left out. Empty without any, or where the registry can't be read.
/// Thread: any. Throws std::bad_alloc.
TESSEL_API std::vector<CLumProxyInfo> saved_proxy_accounts();

/// Deletes the account of a proxy from the registry. This process goes on with what it has in memory.
/// server:  without regard to case, as the registry compares names.
/// Returns: false when there is none, or the registry refuses.
/// Thread:  any. Throws std::bad_alloc.
TESSEL_API bool forget_proxy_account(const CTString& server, std::uint16_t port);

}  // namespace kro::tessel
