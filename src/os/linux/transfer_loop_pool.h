// The loops of synchronous requests. libcurl's sets of connections can't be shared by threads, so each is
// lent, with its loop, to one request at a time.
#pragma once

#include "os/linux/thread_shard.h"
#include "os/linux/transfer_loop.h"

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace kro::tessel::os {

/// A loop with what it has connections to.
struct lent_loop {
    transfer_loop loop{transfer_loop::driver::caller};
    std::vector<std::string> origins;  ///< the latest last, a few
    std::thread::id user;              ///< the last
    std::chrono::steady_clock::time_point returned;

    bool knows(const std::string& origin) const;
    void remember(const std::string& origin);
};

/// All loops of the process; never destroyed, since threads may run on while the process ends.
class loop_pool {
public:
    static loop_pool& of_process();

    /// One with connections to the origin, or another. Null when the process is ending.
    std::unique_ptr<lent_loop> lend(const std::string& origin);
    void take_back(std::unique_ptr<lent_loop> loop);

private:
    using time_point = std::chrono::steady_clock::time_point;
    using loops = std::vector<std::unique_ptr<lent_loop>>;

    /// Where some of the threads leave loops. Others look here when they find none at their own.
    struct alignas(k_processor_line) shelf {
        std::mutex mutex;  // guards the rest
        loops idle;        // the longest idle first
    };

    static std::unique_ptr<lent_loop> take_known(shelf& from, const std::string& origin);
    static std::unique_ptr<lent_loop> take_oldest_of_many(shelf& from);
    std::unique_ptr<lent_loop> make();
    void retire(shelf& from, time_point now);
    static bool is_done(lent_loop& idle);
    loops::iterator forget(shelf& from, loops::iterator which);
    void tidy();
    void tidy_later(std::chrono::milliseconds wait);
    void stop() noexcept;

    std::array<shelf, k_thread_shards> m_shelves;
    std::atomic<bool> m_is_tidied_later{false};
    std::atomic<bool> m_stopping{false};  // set before stop looks at the shelves, so that none is used later
    std::mutex m_mutex;                   // guards the next; taken inside a shelf's
    std::vector<transfer_loop*> m_all;
};

}  // namespace kro::tessel::os
