// Makes sessions for synchronous transfers.
#pragma once

#include <tessel/base/string.h>

namespace kro::tessel::http {

class http_session;

/// What the sessions of a client have in common: the user agent.
/// Thread: one at a time.
class TESSEL_API http_client {
public:
    /// A new session, which belongs to the caller, until `close_session` or `delete`. It has the agent of
    /// this moment and doesn't refer to the client any more. Null when memory runs out.
    http_session* open_session();
    /// Destroys a session; null is accepted. Always true.
    bool close_session(http_session* session);

    const CTString& get_agent() const { return m_agent; }
    /// The User-Agent of `http_session::run`. Empty: "Mozilla/4.0 (compatible; MSIE 6.0; Win32)", as for
    /// uploads and downloads.
    void set_agent(const CTString& agent) { m_agent = agent; }

private:
    CTString m_agent;
};

}  // namespace kro::tessel::http
