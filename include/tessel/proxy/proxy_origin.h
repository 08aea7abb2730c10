// Whose word the routes to a server are: for whoever wonders why a request goes where it goes.
#pragma once

#include <tessel/base/string.h>
#include <tessel/base/types.h>

namespace kro::tessel {

enum class proxy_origin {
    nothing,      ///< no proxy is configured for the server: a direct connection
    environment,  ///< variables of the process; not on Windows
    desktop,      ///< fixed settings of the user's desktop
    script,       ///< a script that the desktop's settings name, or that has to be looked for
    host,         ///< the finder of set_proxy_finder_factory (tessel/platform/host.h)
};

/// Which of them decides about a URL's server, as the settings are now; an answer that CLumProxyUtil holds
/// already may be from before. Asks no other machine. With `script` and no routes from CLumProxyUtil the
/// script couldn't be evaluated here, or not in time.
/// script:  out: the script's URL without an account in it; empty when it has to be looked for, or when none
///          decides.
/// Returns: `nothing` for a URL that has no server, too.
/// Thread:  any. Throws std::bad_alloc.
TESSEL_API proxy_origin find_proxy_origin(const CTString& url, CTString& script);

}  // namespace kro::tessel
