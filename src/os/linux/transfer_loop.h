// Who turns the exchanges of libcurl: for all asynchronous ones of the process the service thread, for those
// of a synchronous request whichever thread waits for them.
#pragma once

#include "os/linux/transfer_exchanges.h"
#include "os/linux/transfer_sockets.h"

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

namespace kro::tessel::os {

class transfer_loop final : public transfer_service {
public:
    enum class driver {
        own_thread,
        caller,  ///< whoever calls `turn`; no limit of connections, since each belongs to a waiting thread
    };

    explicit transfer_loop(driver turned_by = driver::own_thread);
    transfer_loop(const transfer_loop&) = delete;
    transfer_loop& operator=(const transfer_loop&) = delete;
    ~transfer_loop() override;

    std::shared_ptr<transfer> submit(std::shared_ptr<transfer_sink> sink,
                                     transfer_request&& request) override;
    void grant_window(const std::shared_ptr<transfer>& which) override;
    void cancel(const std::shared_ptr<transfer>& which) override;
    void limits_begin_anew(const std::shared_ptr<transfer>& which) override;
    bool wake(std::shared_ptr<transfer_sink> sink) override;
    void set_connection_limit(std::uint32_t count) override;

    /// Has the service thread call `chore` in so many milliseconds, or once it runs: it isn't started for
    /// this. One at a time.
    void call_later(std::uint64_t milliseconds, void (*chore)());

    /// Ends the thread, whatever is under way, and refuses everything from now on. Never waits for the
    /// network. From the service thread itself it only marks the end. A loop turned by callers: none is
    /// inside it any more afterwards.
    void stop() noexcept;

    // Of a loop turned by its caller, one thread at a time.

    enum class patience { wait, none };
    /// Does what there is to do, waiting for it first if wanted. False once the loop has been stopped.
    bool turn(patience how);
    /// Whether nothing runs in it, abandoned exchanges included.
    bool is_empty() const noexcept { return m_exchanges.is_empty(); }

private:
    enum class command_kind { submit, grant, cancel, limit, wake };
    struct command {
        command_kind kind;
        std::shared_ptr<curl_transfer> which;
        std::shared_ptr<transfer_sink> sink;
    };

    bool prepare();
    bool start_thread();
    bool post(command what);

    void run();
    void work();
    static int time_left(std::uint64_t due) noexcept;
    bool wait_for_events(patience how);
    void take_inbox();
    void obey(command& what);
    void hand_over();
    void do_chore();

    const driver m_driver;

    std::mutex m_mutex;  // guards all down to m_thread
    std::vector<command> m_inbox;
    bool m_sleeping = false;
    bool m_stopping = false;
    bool m_started = false;
    bool m_in_turn = false;  // a caller turns the loop
    std::uint64_t m_chore_due = k_never;
    void (*m_chore)() = nullptr;
    std::condition_variable m_turn_left;
    std::thread m_thread;

    // Of the thread that turns the loop.
    const std::unique_ptr<transfer_sockets> m_sockets;
    transfer_exchanges m_exchanges;
    bool m_chore_is_due = false;
    std::vector<command> m_commands;
    std::vector<std::shared_ptr<transfer_sink>> m_handing_over;
};

}  // namespace kro::tessel::os
