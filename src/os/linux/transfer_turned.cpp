// Exchanges on the threads that wait for them. libcurl's sets of connections can't be shared by threads, so
// each is lent, with its loop, to one request at a time.
#include "os/linux/transfer_loop.h"
#include "os/thread.h"

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_max_idle_loops = 16;
constexpr std::size_t k_max_remembered_origins = 4;
constexpr auto k_idle_limit = std::chrono::milliseconds(1000 * k_idle_connection_seconds);

/// A loop with what it has connections to.
struct lent_loop {
    transfer_loop loop{transfer_loop::driver::caller};
    std::vector<std::string> origins;  ///< the latest last
    std::thread::id user;              ///< the last
    std::chrono::steady_clock::time_point returned;

    bool knows(const std::string& origin) const {
        return std::find(origins.begin(), origins.end(), origin) != origins.end();
    }
    void remember(const std::string& origin) {
        const auto known = std::find(origins.begin(), origins.end(), origin);
        if (known != origins.end()) {
            std::rotate(known, known + 1, origins.end());
            return;
        }
        if (origins.size() == k_max_remembered_origins) {
            origins.erase(origins.begin());
        }
        origins.push_back(origin);
    }
};

/// All loops of the process; never destroyed, since threads may run on while the process ends.
class loop_pool {
public:
    /// Null when the process is ending.
    std::unique_ptr<lent_loop> lend(const std::string& origin);
    void take_back(std::unique_ptr<lent_loop> loop);
    /// Lets go of loops that have been idle for long.
    void tidy();
    /// Ends whatever is under way; nobody is inside a loop any more afterwards.
    void stop() noexcept;

private:
    std::unique_ptr<lent_loop> take_idle(const std::string& origin);
    void retire(std::chrono::steady_clock::time_point now);
    void tidy_later(std::chrono::steady_clock::time_point now);

    std::mutex m_mutex;                              // guards all below
    std::vector<std::unique_ptr<lent_loop>> m_idle;  // the longest idle first
    std::vector<transfer_loop*> m_lent;
    bool m_is_tidied_later = false;
    bool m_stopping = false;
};

transfer_loop& service_loop() {
    return static_cast<transfer_loop&>(system_transfers());
}

// One with a connection to the origin: the thread's own, whose memory its processor mostly has at hand, or
// the last used. Another only when there are plenty.
std::unique_ptr<lent_loop> loop_pool::take_idle(const std::string& origin) {
    const auto is_own = [&origin](const auto& idle) {
        return idle->user == std::this_thread::get_id() && idle->knows(origin);
    };
    auto match = std::find_if(m_idle.rbegin(), m_idle.rend(), is_own);
    if (match == m_idle.rend()) {
        match = std::find_if(m_idle.rbegin(), m_idle.rend(),
                             [&origin](const auto& idle) { return idle->knows(origin); });
    }
    if (match == m_idle.rend() && m_idle.size() < k_max_idle_loops) {
        return nullptr;
    }
    const auto at = match == m_idle.rend() ? m_idle.begin() : std::prev(match.base());
    auto taken = std::move(*at);
    m_idle.erase(at);
    return taken;
}

std::unique_ptr<lent_loop> loop_pool::lend(const std::string& origin) {
    const std::lock_guard lock(m_mutex);
    if (m_stopping) {
        return nullptr;
    }
    m_lent.reserve(m_lent.size() + 1);
    auto loop = take_idle(origin);
    if (loop == nullptr) {
        loop = std::make_unique<lent_loop>();
    }
    m_lent.push_back(&loop->loop);
    loop->user = std::this_thread::get_id();
    return loop;
}

void loop_pool::take_back(std::unique_ptr<lent_loop> loop) {
    const std::lock_guard lock(m_mutex);
    if (m_stopping) {
        static_cast<void>(loop.release());  // the libraries below may have said their last word
        return;
    }
    m_lent.erase(std::find(m_lent.begin(), m_lent.end(), &loop->loop));
    loop->returned = std::chrono::steady_clock::now();
    retire(loop->returned);
    m_idle.push_back(std::move(loop));
    tidy_later(m_idle.back()->returned);
}

// A loop with a lookup in it that nobody waits for stays until that has ended.
void loop_pool::retire(std::chrono::steady_clock::time_point now) {
    const auto is_to_go = [&](const std::unique_ptr<lent_loop>& idle) {
        const bool is_due = now - idle->returned > k_idle_limit || m_idle.size() > k_max_idle_loops;
        if (is_due && !idle->loop.is_empty()) {
            idle->loop.turn(transfer_loop::patience::none);
        }
        return is_due && idle->loop.is_empty();
    };
    m_idle.erase(std::remove_if(m_idle.begin(), m_idle.end(), is_to_go), m_idle.end());
}

loop_pool& pool();

// Nobody may ever make another call, so the service thread looks after them, when there is one.
void loop_pool::tidy_later(std::chrono::steady_clock::time_point now) {
    if (m_idle.empty() || std::exchange(m_is_tidied_later, true)) {
        return;
    }
    using std::chrono::milliseconds;
    const auto left = k_idle_limit - std::chrono::duration_cast<milliseconds>(now - m_idle.front()->returned);
    const auto wait = std::max(left + milliseconds(1), milliseconds(1000));
    service_loop().call_later(static_cast<std::uint64_t>(wait.count()), [] { pool().tidy(); });
}

void loop_pool::tidy() {
    const std::lock_guard lock(m_mutex);
    if (!m_stopping) {
        const auto now = std::chrono::steady_clock::now();
        retire(now);
        m_is_tidied_later = false;
        tidy_later(now);
    }
}

void loop_pool::stop() noexcept {
    const std::lock_guard lock(m_mutex);
    m_stopping = true;
    for (transfer_loop* const loop : m_lent) {
        loop->stop();
    }
}

loop_pool& pool() {
    static loop_pool* const all = [] {
        static_cast<void>(system_transfers());  // whose exit handler has to come after OpenSSL's
        auto* const made = new loop_pool;
        std::atexit([] {
            if (!process_was_forked()) {
                pool().stop();
            }
        });
        return made;
    }();
    return *all;
}

/// The exchanges of one request: has a loop while one is under way.
class leased_transfers final : public turned_transfers {
public:
    leased_transfers() = default;
    leased_transfers(const leased_transfers&) = delete;
    leased_transfers& operator=(const leased_transfers&) = delete;
    ~leased_transfers() override { release(); }

    std::shared_ptr<transfer> submit(std::shared_ptr<transfer_sink> sink,
                                     transfer_request&& request) override;
    void grant_window(const std::shared_ptr<transfer>& which) override;
    void cancel(const std::shared_ptr<transfer>& which) override;
    void limits_begin_anew(const std::shared_ptr<transfer>& which) override;
    bool wake(std::shared_ptr<transfer_sink> sink) override;
    void set_connection_limit(std::uint32_t /*count*/) override {}

    bool turn() override;
    void release() override;

private:
    transfer_loop* leased();

    std::mutex m_mutex;  // guards all below; the loop itself is guarded by being turned by one thread
    std::unique_ptr<lent_loop> m_lease;
    std::shared_ptr<transfer> m_current;
};

std::shared_ptr<transfer> leased_transfers::submit(std::shared_ptr<transfer_sink> sink,
                                                   transfer_request&& request) {
    if (process_was_forked()) {
        return nullptr;
    }
    const std::lock_guard lock(m_mutex);
    if (m_lease == nullptr) {
        m_lease = pool().lend(request.origin);
    }
    if (m_lease == nullptr) {
        return nullptr;
    }
    m_lease->remember(request.origin);
    m_current = m_lease->loop.submit(std::move(sink), std::move(request));
    return m_current;
}

void leased_transfers::grant_window(const std::shared_ptr<transfer>& which) {
    const std::lock_guard lock(m_mutex);
    if (m_lease != nullptr) {
        m_lease->loop.grant_window(which);
    }
}

void leased_transfers::cancel(const std::shared_ptr<transfer>& which) {
    const std::lock_guard lock(m_mutex);
    if (m_lease != nullptr) {
        m_lease->loop.cancel(which);
    }
}

void leased_transfers::limits_begin_anew(const std::shared_ptr<transfer>& which) {
    const std::lock_guard lock(m_mutex);
    if (m_lease != nullptr) {
        m_lease->loop.limits_begin_anew(which);
    }
}

bool leased_transfers::wake(std::shared_ptr<transfer_sink> sink) {
    const std::lock_guard lock(m_mutex);
    return m_lease != nullptr && m_lease->loop.wake(std::move(sink));
}

transfer_loop* leased_transfers::leased() {
    const std::lock_guard lock(m_mutex);
    return m_lease == nullptr ? nullptr : &m_lease->loop;
}

bool leased_transfers::turn() {
    transfer_loop* const loop = leased();
    return loop != nullptr && !process_was_forked() && loop->turn(transfer_loop::patience::wait);
}

void leased_transfers::release() {
    if (process_was_forked()) {
        return;  // the parent's connections
    }
    std::unique_ptr<lent_loop> lease;
    std::shared_ptr<transfer> current;
    {
        const std::lock_guard lock(m_mutex);
        lease = std::move(m_lease);
        current = std::move(m_current);
    }
    if (lease == nullptr) {
        return;
    }
    const bool is_under_way = current != nullptr && static_cast<curl_transfer&>(*current).sink != nullptr;
    if (is_under_way) {
        lease->loop.cancel(current);
        lease->loop.turn(transfer_loop::patience::none);
    }
    pool().take_back(std::move(lease));
}

}  // namespace

std::unique_ptr<turned_transfers> make_turned_transfers() {
    return std::make_unique<leased_transfers>();
}

}  // namespace kro::tessel::os
