// The transfers that a cancel flag ends.
#pragma once

#include "os/inet.h"

#include <atomic>
#include <mutex>
#include <vector>

namespace kro::tessel::http {

/// Closes requests from other threads, which ends whatever call waits on them. The value of a handle that is
/// closed may come back as another's, so each request is closed either here or by its run.
class cancel_state {
public:
    /// From here on `cancel` closes the request. False when the flag is set: then it won't.
    bool enter(os::inet_handle request);
    /// Whether the request is still the run's to close; when it isn't, it has been closed. Waits for a
    /// `cancel` that is under way.
    bool leave(os::inet_handle request) noexcept;

    void cancel();
    void reset() noexcept { m_cancelled.store(false); }
    bool is_cancelled() const noexcept { return m_cancelled.load(); }

private:
    std::atomic<bool> m_cancelled{false};
    std::mutex m_mutex;  // guards the list, and is held while its handles are closed; no callback takes it
    std::vector<os::inet_handle> m_requests;
};

}  // namespace kro::tessel::http
