// The tree of handles: sessions, connections, requests, and the values that callers know them by.
#pragma once

#include "os/inet.h"
#include "os/linux/thread_shard.h"

#include <array>
#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace kro::tessel::os {

enum class handle_kind { session, connection, request };

/// What all handles have in common: their place in the tree, time-outs, and notices, one at a time.
///
/// Locks: a node's m_mutex is taken for a moment by every call on it, and never while the host's callback
/// runs; the table's mutex is never held together with it.
class inet_node {
public:
    inet_node(handle_kind kind, std::shared_ptr<inet_node> parent, std::uintptr_t context);
    inet_node(const inet_node&) = delete;
    inet_node& operator=(const inet_node&) = delete;
    virtual ~inet_node() = default;

    handle_kind kind() const noexcept { return m_kind; }
    inet_handle value() const noexcept { return m_value; }
    std::uintptr_t context() const noexcept { return m_context; }
    const std::shared_ptr<inet_node>& parent() const noexcept { return m_parent; }

    std::optional<std::uint32_t> timeout(inet_timeout kind) const;
    /// Takes the process's values for what was set nowhere above. Before the node can be found.
    void fill_timeouts(const std::atomic<std::uint32_t> (&process)[3]);
    void set_timeout(inet_timeout kind, std::uint32_t milliseconds);

    inet_callback callback() const noexcept { return m_callback.load(std::memory_order_acquire); }
    inet_callback set_callback(inet_callback next) noexcept { return m_callback.exchange(next); }

    /// Notice 60, on the calling thread. The node counts as being in its callback from before it can be
    /// found until this returns, so that a close from elsewhere waits. Without a context there is none.
    void begin_creation();
    void announce_creation();

    /// Ends the handle, which nobody finds any more: cancels what is under way, waits for its callback
    /// on another thread, and delivers what is left to say, notice 70 last.
    void close();

protected:
    /// Called by close with m_mutex held: forget the caller's memory, drop what is under way. Fills in
    /// what has to be said before notice 70.
    struct last_words {
        std::uintptr_t context = 0;  ///< of the operation that was pending, 0 for none
        bool connection_closes = false;
    };
    virtual last_words cease() = 0;
    /// Called by close without the lock.
    virtual void ceased() {}

    /// The time-out, 0 when none has been set; needs m_mutex held.
    std::uint32_t timeout_held(inet_timeout kind) const noexcept {
        return m_timeouts[static_cast<std::size_t>(kind)].value_or(0);
    }

    void notify(std::uintptr_t context, std::uint32_t notice, const void* information, std::uint32_t length);

    /// Marks the calling thread as being in this handle's callback; needs m_mutex held at both ends.
    void enter_callback() noexcept;
    void leave_callback() noexcept;
    bool in_callback() const noexcept { return m_callback_depth != 0; }

    mutable std::mutex m_mutex;  // guards what follows, and the derived classes' members unless they say so
    bool m_closed = false;
    std::condition_variable m_changed;  // the callback was left, or what a derived class waits for has come

private:
    friend class handle_table;

    const handle_kind m_kind;
    const std::shared_ptr<inet_node> m_parent;
    const std::uintptr_t m_context;
    inet_handle m_value = nullptr;  // set once, before the node can be found
    std::atomic<inet_callback> m_callback;

    std::optional<std::uint32_t> m_timeouts[3];
    std::thread::id m_callback_thread;
    unsigned m_callback_depth = 0;

    // The table's, guarded by its mutex: siblings in the order of their making.
    inet_node* m_older = nullptr;
    inet_node* m_younger = nullptr;
    inet_node* m_youngest_child = nullptr;
};

/// Values for nodes: small numbers that are never addresses, fit 32 bits, and don't come back soon.
///
/// A session lies in the shard of the thread that opens it, and all that is below it too.
class handle_table {
public:
    /// Gives the node its value. Returns 0, `without_parent` when its parent has been closed, or 12001 when
    /// all values are taken.
    std::uint32_t add(const std::shared_ptr<inet_node>& node, std::uint32_t without_parent);
    std::shared_ptr<inet_node> find(inet_handle value) const;
    /// Takes a node and everything below it out: children before parents, the youngest first. Empty when
    /// there is no such handle.
    std::vector<std::shared_ptr<inet_node>> take(inet_handle value);

private:
    struct slot {
        std::shared_ptr<inet_node> node;
        std::uint32_t generation = 0;
    };

    class alignas(k_processor_line) shard {
    public:
        std::uint32_t add(const std::shared_ptr<inet_node>& node, std::uint32_t number,
                          std::uint32_t without_parent);
        std::shared_ptr<inet_node> find(inet_handle value) const;
        std::vector<std::shared_ptr<inet_node>> take(inet_handle value);

    private:
        const slot* slot_of(inet_handle value) const noexcept;
        std::optional<std::uint32_t> free_place();
        void take_below(inet_node& node, std::vector<std::shared_ptr<inet_node>>& taken);
        static void unlink(inet_node& node) noexcept;

        mutable std::mutex m_mutex;  // guards all below, and the nodes' links
        std::vector<slot> m_slots;
        std::deque<std::uint32_t> m_free;  // longest free first, so that a value stays unused for long
    };

    std::array<shard, k_thread_shards> m_shards;
};

}  // namespace kro::tessel::os
