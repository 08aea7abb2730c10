// The list of live requests, and what the engine keeps beside each context while it is live.
#pragma once

#include "os/inet.h"

#include "tessel/http/session_context.h"

#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <unordered_map>

namespace kro::tessel::http {

/// The engine's side of one request. Whoever works on a context holds a reference to its slot, so that the
/// context's memory outlives a removal by another thread or by the host's own procedure.
struct request_slot {
    explicit request_slot(session_context* record) noexcept : context(record) {}
    ~request_slot();
    request_slot(const request_slot&) = delete;
    request_slot& operator=(const request_slot&) = delete;

    session_context* const context;

    /// Held while the engine works on the context, released around every call into the host. Recursive,
    /// because a trace sink may call the handle functions.
    std::recursive_mutex step;

    // Guarded by `step`.
    _buffer_content* next_chunk = nullptr;  ///< being read into; joins the chain when bytes have arrived
    std::uint64_t received = 0;             ///< bytes of the body so far
    std::uint64_t expected = 0;             ///< bytes that the system was told to expect

    // Guarded by the mutex of live_requests.
    bool live = false;
    bool ended = false;                 ///< removed or detached: never live again
    bool owns_context = false;          ///< the context is destroyed with the slot
    bool step_due = false;              ///< a posted message is to run a step
    std::uint32_t start = 0;            ///< counts the starts: a step of an earlier one does no more
    os::inet_handle request = nullptr;  ///< the handle whose completions count
    os::inet_handle closed = nullptr;   ///< closed by `remove`: not to be closed again
};

using request_ref = std::shared_ptr<request_slot>;

/// Live contexts in the order of their starts. Any thread; contexts are looked up by address and never
/// followed before they were found.
class live_requests {
public:
    /// Appends the request, which from then on owns its context; one that is live already stays where it is.
    /// False for one that was removed or detached meanwhile.
    bool add(const request_ref& slot);
    /// Whether it was removed or detached: then its context may be gone.
    bool has_ended(const request_slot& slot) const;

    bool contains(const session_context* context) const;
    request_ref find(const session_context* context) const;

    /// Takes a request off the list; null when it isn't on it.
    request_ref take(const session_context* context);

    /// Whether a step is due, which the caller runs now. With the slot's `step` held: a start that comes in
    /// between would have the step of the one before it run a second time.
    bool take_step(request_slot& slot);

    struct begun {
        os::inet_handle old_request;
        std::uint32_t start;
    };
    /// A new start: completions of earlier ones don't count any more.
    begun begin_start(request_slot& slot);

    /// Whether the request is live and hasn't been started again since `start`.
    bool is_current(const request_slot& slot, std::uint32_t start) const;
    bool is_live(const request_slot& slot) const;

    /// Calls `change(slot)` with the list locked when the context is live. It must not call out.
    /// Returns its answer, false when the context isn't live.
    template <class Change>
    bool change_live(const session_context* context, Change&& change) {
        const std::lock_guard lock(m_mutex);
        const auto found = m_index.find(context);
        return found != m_index.end() && change(**found->second);
    }

    /// Calls `change()` with the list locked.
    template <class Change>
    void change_locked(Change&& change) {
        const std::lock_guard lock(m_mutex);
        change();
    }

    /// Forgets all requests without destroying their contexts.
    void abandon_all();

private:
    using slot_list = std::list<request_ref>;

    mutable std::mutex m_mutex;  // guards all members and the slots' fields named above
    slot_list m_order;
    std::unordered_map<const session_context*, slot_list::iterator> m_index;
    slot_list m_abandoned;
};

}  // namespace kro::tessel::http
