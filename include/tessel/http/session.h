// The session manager: what all asynchronous requests share.
#pragma once

#include <tessel/http/http_session.h>
#include <tessel/http/session_context.h>

#include <cstdint>
#include <memory>

namespace kro::tessel::http {

class engine_state;

/// Owns the live requests. One instance, reached through http_session::mgr(); every operation may be
/// called from any thread. A stale or foreign pointer is only compared, never followed.
class TESSEL_API http_session_mgr {
public:
    http_session_mgr();  ///< one without requests; hosts take that of http_session::mgr()
    http_session_mgr(const http_session_mgr&) = default;  ///< copies share everything with the source
    http_session_mgr& operator=(const http_session_mgr&) = default;
    ~http_session_mgr();

    /// Whether the context is live: started, and neither removed nor detached. False for null.
    bool is_session_valid(session_context* context) const;

    /// Ends a live request: cancels what is pending and destroys the context. Its completion procedure
    /// isn't called. A context whose step or procedure is running is destroyed when that returns.
    /// False, traced, when it isn't live.
    bool remove(session_context* context);

    /// Takes a live request out of the manager: no step of it runs any more and the caller owns the context.
    /// Waits for a step that is running on another thread. False, traced, when it isn't live.
    bool detach(session_context* context);

    engine_state& state() const { return *m_state; }  ///< the engine's own; opaque to hosts

private:
    std::shared_ptr<engine_state> m_state;
};

}  // namespace kro::tessel::http
