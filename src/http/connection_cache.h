// The internet session and the connection handles that all requests share.
#pragma once

#include "os/inet.h"

#include "tessel/http/session_context.h"

#include <cstdint>
#include <map>
#include <mutex>
#include <utility>
#include <vector>

namespace kro::tessel::http {

/// One connection handle per server, below one session. Any thread; the service is never called with the
/// lock held in a way that leads back here.
class connection_cache {
public:
    using server = std::pair<CTString, std::uint16_t>;  ///< host name and port

    /// The session, opened on first use with the proxy choice of that request: it holds for all later ones
    /// (kept). Returns 0 or the error number.
    std::uint32_t ensure_session(const session_context& context, os::inet_callback callback,
                                 os::inet_handle& session);

    /// The server's connection handle, null when there is none yet.
    os::inet_handle find(const server& key) const;

    /// Keeps a handle for the server. When two threads connected to it at once, the first one serves both
    /// and the other is only kept to be closed: requests may already have been opened on it.
    void store(const server& key, os::inet_handle connection);

    /// Closes all handles. for_good: no session is opened any more (12012).
    void close_all(bool for_good);

private:
    mutable std::mutex m_mutex;  // guards all members
    os::inet_handle m_session = nullptr;
    std::map<server, os::inet_handle> m_connections;
    std::vector<os::inet_handle> m_doubles;
    bool m_closed = false;
};

}  // namespace kro::tessel::http
