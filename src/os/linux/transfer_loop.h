// Exchanges on libcurl's multi interface and epoll: all asynchronous ones of the process on the service
// thread, those of a synchronous request on whichever thread waits for them.
#pragma once

#include "os/linux/transfer_curl.h"

#include <sys/epoll.h>

#include <array>
#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

namespace kro::tessel::os {

class transfer_loop;

/// One of libcurl's sets of exchanges and connections.
struct exchange_multi {
    transfer_loop* loop = nullptr;
    CURLM* handle = nullptr;
    std::uint64_t timer_due = k_never;
};

/// Exchanges of one scheme, server, port and proxy.
struct exchange_origin {
    std::uint32_t running = 0;
    std::size_t cancelled = 0;  ///< of those that wait: each keeps its place until its turn comes
    std::deque<std::shared_ptr<curl_transfer>> waiting;
};

class transfer_loop final : public transfer_service, private exchange_host {
public:
    enum class driver {
        own_thread,
        caller,  ///< whoever calls `turn`; no limit of connections, since each belongs to a waiting thread
    };

    explicit transfer_loop(driver turned_by = driver::own_thread);
    transfer_loop(const transfer_loop&) = delete;
    transfer_loop& operator=(const transfer_loop&) = delete;
    ~transfer_loop() override;

    std::shared_ptr<transfer> submit(std::shared_ptr<transfer_sink> sink, transfer_request request) override;
    void grant_window(const std::shared_ptr<transfer>& which) override;
    void cancel(const std::shared_ptr<transfer>& which) override;
    bool wake(std::shared_ptr<transfer_sink> sink) override;
    void set_connection_limit(std::uint32_t count) override;

    /// Ends the thread, whatever is under way, and refuses everything from now on. Never waits for the
    /// network. From the service thread itself it only marks the end. A loop turned by callers: none is
    /// inside it any more afterwards.
    void stop() noexcept;

    // Of a loop turned by its caller, one thread at a time.

    enum class patience { wait, none };
    /// Does what there is to do, waiting for it first if wanted. False once the loop has been stopped.
    bool turn(patience how);
    /// The waits of all that is under way begin anew.
    void restart_waits() noexcept;
    /// Whether nothing runs in it, abandoned exchanges included.
    bool is_empty() const noexcept { return m_running.empty(); }

private:
    enum class command_kind { submit, grant, cancel, wake };
    struct command {
        command_kind kind;
        std::shared_ptr<curl_transfer> which;
        std::shared_ptr<transfer_sink> sink;
    };

    using multi = exchange_multi;
    using origin = exchange_origin;

    // What epoll and libcurl say about a descriptor.
    struct watched {
        multi* set = nullptr;
        std::uint32_t wanted = 0;
        std::uint32_t registered = 0;
        bool is_connection = false;     // opened by us, and its closing will be told
        bool unsure = false;            // `registered` may be out of date
        std::uint64_t unsure_turn = 0;  // since when
    };

    // exchange_host
    std::uint64_t deadline_in(std::uint32_t milliseconds) noexcept override;
    void told(curl_transfer& which) override;
    void sending(curl_exchange& which) override;
    int open_socket(const curl_sockaddr& address) override;
    void close_socket(int socket) noexcept override;

    static int on_socket(CURL* easy, curl_socket_t socket, int what, void* set, void* unused);
    static int on_timer(CURLM* handle, long milliseconds, void* set);

    bool prepare();
    bool start_thread();
    bool open_descriptors();
    bool post(command what);

    void run();
    void work();
    multi* set_for(const transfer_request& request);
    void read_clock() noexcept;
    int sleep_limit() const noexcept;
    bool wait_for_events(patience how);
    void handle_events();
    void handle_event(int socket, std::uint32_t events);
    watched& entry_of(int socket);
    void watch(multi& set, int socket, std::uint32_t wanted);
    void register_socket(int socket, watched& entry, std::uint32_t events);
    void run_timers();
    void take_inbox();
    void obey(command& what);
    void enqueue(std::shared_ptr<curl_transfer> what);
    void start_waiting(origin& from);
    std::unique_ptr<curl_exchange> idle_exchange();
    void start(const std::shared_ptr<curl_transfer>& what, origin& from);
    void drop(const std::shared_ptr<curl_transfer>& what);
    void abandon(curl_exchange& which);
    void free_place(curl_exchange& which);
    void forget_idle_origins();
    void release(curl_exchange& which, bool reusable);
    void drive();
    bool collect_ended();
    void put_back(curl_exchange& which);
    void start_starved();
    void check_deadlines();
    void report_sent();
    void hand_over();

    const driver m_driver;

    std::mutex m_mutex;  // guards m_inbox, m_sleeping, m_stopping, m_thread, m_started, m_in_turn
    std::vector<command> m_inbox;
    bool m_sleeping = false;
    bool m_stopping = false;
    bool m_started = false;
    bool m_in_turn = false;  // a caller turns the loop
    std::condition_variable m_turn_left;
    std::thread m_thread;
    std::atomic<std::uint32_t> m_limit{6};

    // Set before the first turn.
    int m_epoll = -1;
    int m_alarm = -1;

    // Of the thread that turns the loop.
    std::uint64_t m_now = 0;
    multi m_multis[2];  // certificates' dates checked, and not
    std::array<epoll_event, 128> m_events{};
    std::size_t m_event_count = 0;
    std::vector<watched> m_watched;  // by descriptor
    std::vector<command> m_commands;
    std::unordered_map<std::string, origin> m_origins;
    std::vector<std::unique_ptr<curl_exchange>> m_running;
    std::vector<std::unique_ptr<curl_exchange>> m_idle;
    std::vector<curl_exchange*> m_sending;
    std::vector<std::shared_ptr<transfer_sink>> m_told;
    std::vector<std::shared_ptr<transfer_sink>> m_handing_over;
    std::uint64_t m_turn = 1;
    std::uint64_t m_next_check = k_never;
    std::uint64_t m_next_sent = k_never;
    std::uint64_t m_next_start = k_never;  // nothing starts before: there were no descriptors
    bool m_unfinished = false;             // the turn ended with exchanges to be looked after
};

}  // namespace kro::tessel::os
