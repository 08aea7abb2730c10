// The exchanges of one loop: which of them run and which wait for a place at their server, what libcurl makes
// of those that run, their deadlines and their ends. Used by the thread that turns the loop.
#pragma once

#include "os/linux/transfer_curl.h"
#include "os/linux/transfer_sockets.h"

#include <atomic>
#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>
#include <vector>

namespace kro::tessel::os {

class transfer_exchanges;

/// One of libcurl's sets of exchanges and connections.
struct exchange_multi {
    transfer_exchanges* owner = nullptr;
    CURLM* handle = nullptr;
    std::uint64_t timer_due = k_never;
    std::size_t running = 0;           ///< exchanges
    std::uint64_t idle_due = k_never;  ///< when its connections have served nobody for long
};

/// Exchanges of one scheme, server, port and proxy.
struct exchange_origin {
    std::uint32_t running = 0;
    bool in_line = false;       ///< for the next place that comes free, whoever had it
    std::size_t cancelled = 0;  ///< of those that wait: each keeps its place until its turn comes
    std::deque<std::shared_ptr<curl_transfer>> waiting;
};

class transfer_exchanges final : private exchange_host, private socket_watcher {
public:
    /// sockets: has to live longer. are_of_callers: one at a time, for whoever turns the loop.
    transfer_exchanges(transfer_sockets& sockets, bool are_of_callers);
    transfer_exchanges(const transfer_exchanges&) = delete;
    transfer_exchanges& operator=(const transfer_exchanges&) = delete;
    ~transfer_exchanges() override;

    /// How many of one origin run at a time. From any thread; counts for those that start later.
    void set_limit(std::uint32_t count) noexcept { m_limit.store(count, std::memory_order_relaxed); }

    void enqueue(std::shared_ptr<curl_transfer> what);
    void drop(const std::shared_ptr<curl_transfer>& what);
    /// Its window has room again.
    void resume(const curl_transfer& what);
    /// Somebody waits for it again.
    void restart_wait(const curl_transfer& what) noexcept;
    /// Has the sink's turn end told.
    void tell(std::shared_ptr<transfer_sink> sink) { m_told.push_back(std::move(sink)); }

    /// A turn begins, at this time in milliseconds.
    void begin_turn(std::uint64_t now) noexcept;
    /// Whether a time-out may be over. What came on the sockets until now has to be handled before `advance`,
    /// which ends such an exchange.
    bool may_be_late() const noexcept { return m_next_check <= m_now; }
    /// Does what is due, after the events of the sockets.
    void advance();
    /// When `advance` has to be called again even if no event comes: 0 at once, k_never never.
    std::uint64_t due() const noexcept;
    /// Swaps the sinks that had events with `sinks`, which is empty.
    void take_told(std::vector<std::shared_ptr<transfer_sink>>& sinks) noexcept { sinks.swap(m_told); }

    /// Whether nothing runs, abandoned exchanges included.
    bool is_empty() const noexcept { return m_running.empty(); }

private:
    using multi = exchange_multi;
    using origin = exchange_origin;

    // exchange_host
    std::uint64_t deadline_in(std::uint32_t milliseconds) noexcept override;
    void told(curl_transfer& which) override;
    void sending(curl_exchange& which) override;
    int socket_of(CURL* easy) noexcept override { return m_sockets.socket_of(easy); }
    int open_socket(const curl_sockaddr& address) override { return m_sockets.open(address); }
    void close_socket(int socket) noexcept override { m_sockets.close(socket); }

    // socket_watcher
    void bytes_move(CURL* easy) noexcept override;

    static int on_timer(CURLM* handle, long milliseconds, void* set);

    multi* set_for(const transfer_request& request);
    std::unique_ptr<curl_exchange> idle_exchange();
    void line_up(origin& from);
    void start_waiting();
    bool has_room();
    void count_descriptors();
    void start_next(origin& from);
    void start(const std::shared_ptr<curl_transfer>& what, origin& from);
    void abandon(curl_exchange& which);
    void free_place(curl_exchange& which);
    void forget_idle_origins();
    void release(curl_exchange& which, bool reusable);
    void drive();
    void run_timers();
    bool collect_ended();
    void put_back(curl_exchange& which);
    void start_starved();
    void close_idle();
    void check_deadlines();
    void report_sent();

    transfer_sockets& m_sockets;
    const bool m_are_of_callers;
    std::atomic<std::uint32_t> m_limit{6};

    std::size_t m_most_connections = 64;  // of a set; not more exchanges run in all
    std::uint64_t m_now = 0;
    std::uint64_t m_turn = 1;
    multi m_multis[2];  // certificates' dates checked, and not
    std::unordered_map<std::string, origin> m_origins;
    std::deque<origin*>
        m_line;  // those with an exchange that may start: each starts one, and goes to the end
    std::vector<std::unique_ptr<curl_exchange>> m_running;
    std::vector<std::unique_ptr<curl_exchange>> m_idle;
    std::vector<curl_exchange*> m_sending;
    std::vector<std::shared_ptr<transfer_sink>> m_told;
    std::uint64_t m_next_check = k_never;
    std::uint64_t m_next_sent = k_never;
    std::uint64_t m_next_start = k_never;  // nothing starts before: there were no descriptors
    bool m_unfinished = false;             // the turn ended with exchanges to be looked after
};

}  // namespace kro::tessel::os
