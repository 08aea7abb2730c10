#include "os/inet.h"
#include "os/system_services.h"
#include "os/thread.h"

#include "http/buffer_chain.h"
#include "http/engine_state.h"
#include "tessel/base/trace.h"
#include "tessel/http/session.h"

namespace kro::tessel::http {
namespace {

// Ends the requests in flight at exit. The manager itself is never freed: threads that still run then may
// go on calling it, and get refusals.
struct exit_guard {
    ~exit_guard() {
        if (!os::process_was_forked()) {
            engine().shut_down(true);
        }
    }
};

// Bytes may be read into the chunk that waits to join the chain, until the request is closed: the new
// owner has to get it, too.
void hand_over_next_chunk(request_slot& slot) {
    if (slot.next_chunk != nullptr && slot.context->current_chunk != nullptr) {
        slot.next_chunk->size = 0;
        slot.context->current_chunk->next = slot.next_chunk;
        slot.next_chunk = nullptr;
    }
}

}  // namespace

http_session_mgr::http_session_mgr() : m_state(std::make_shared<engine_state>()) {}
http_session_mgr::~http_session_mgr() = default;

bool http_session_mgr::is_session_valid(session_context* context) const {
    return context != nullptr && m_state->live.contains(context);
}

bool http_session_mgr::remove(session_context* context) {
    const request_ref slot = m_state->live.take(context);
    if (slot == nullptr) {
        trace_message(trace_debug) << TESSEL_W("pcontext not found! has been detached? ")
                                   << static_cast<const void*>(context);
        return false;
    }
    os::inet_handle request = nullptr;
    m_state->live.change_locked([&] { request = slot->closed = slot->request; });
    if (request != nullptr) {
        os::inet().close(request);
    }
    return true;  // the last reference destroys the context: this one, or that of a running step
}

bool http_session_mgr::detach(session_context* context) {
    const request_ref slot = m_state->live.take(context);
    if (slot == nullptr) {
        trace_message(trace_debug) << TESSEL_W("pcontext not found when try to detach!  ")
                                   << static_cast<const void*>(context);
        return false;
    }
    const std::lock_guard step(slot->step);  // a step on another thread ends first
    m_state->live.change_locked([&] { slot->owns_context = false; });
    hand_over_next_chunk(*slot);
    return true;
}

http_session_mgr& http_session::mgr() {
    static http_session_mgr* const manager = [] {
        os::system_inet();  // made before the guard below, so that it is still there when that runs
        return new http_session_mgr;
    }();
    return *manager;
}

engine_state& engine() {
    static engine_state& state = http_session::mgr().state();
    static const exit_guard guard;
    return state;
}

}  // namespace kro::tessel::http
