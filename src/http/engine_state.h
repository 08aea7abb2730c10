// What the session manager holds.
#pragma once

#include "http/connection_cache.h"
#include "http/live_requests.h"

namespace kro::tessel::http {

class engine_state {
public:
    live_requests live;
    connection_cache connections;

    /// Ends everything: handles are closed, contexts forgotten but not destroyed.
    void shut_down(bool for_good) {
        connections.close_all(for_good);
        live.abandon_all();
    }
};

/// The state of the process's manager.
engine_state& engine();

/// Closes the process's session, connections and helper window, as if the engine had never been used.
void reset_engine_for_test();

}  // namespace kro::tessel::http
