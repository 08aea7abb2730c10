#include "os/linux/transfer_loop_pool.h"

#include "os/thread.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_max_idle_loops = 4;  // on a shelf
constexpr std::size_t k_max_remembered_origins = 4;
constexpr auto k_idle_limit = std::chrono::milliseconds(1000 * k_idle_connection_seconds);

transfer_loop& service_loop() {
    return static_cast<transfer_loop&>(system_transfers());
}

}  // namespace

bool lent_loop::knows(const std::string& origin) const {
    return std::find(origins.begin(), origins.end(), origin) != origins.end();
}

void lent_loop::remember(const std::string& origin) {
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

loop_pool& loop_pool::of_process() {
    static loop_pool* const all = [] {
        static_cast<void>(system_transfers());  // whose exit handler has to come after OpenSSL's
        auto* const made = new loop_pool;
        std::atexit([] {
            if (!process_was_forked()) {
                of_process().stop();
            }
        });
        return made;
    }();
    return *all;
}

std::unique_ptr<lent_loop> loop_pool::lend(const std::string& origin) {
    const std::uint32_t own = own_shard();
    std::unique_ptr<lent_loop> loop;
    for (std::uint32_t i = 0; loop == nullptr && i < k_thread_shards; ++i) {
        loop = take_known(m_shelves[(own + i) % k_thread_shards], origin);
    }
    if (loop == nullptr) {
        loop = take_oldest_of_many(m_shelves[own]);
    }
    if (loop == nullptr) {
        loop = make();
    }
    if (loop != nullptr) {
        loop->user = std::this_thread::get_id();
    }
    return loop;
}

// The thread's own, whose memory its processor mostly has at hand, or the last used.
std::unique_ptr<lent_loop> loop_pool::take_known(shelf& from, const std::string& origin) {
    const std::lock_guard lock(from.mutex);
    const auto knows = [&origin](const auto& idle) { return idle->knows(origin); };
    const auto is_own = [&](const auto& idle) {
        return idle->user == std::this_thread::get_id() && knows(idle);
    };
    auto match = std::find_if(from.idle.rbegin(), from.idle.rend(), is_own);
    if (match == from.idle.rend()) {
        match = std::find_if(from.idle.rbegin(), from.idle.rend(), knows);
    }
    if (match == from.idle.rend()) {
        return nullptr;
    }
    auto taken = std::move(*match);
    from.idle.erase(std::prev(match.base()));
    return taken;
}

std::unique_ptr<lent_loop> loop_pool::take_oldest_of_many(shelf& from) {
    const std::lock_guard lock(from.mutex);
    if (from.idle.size() < k_max_idle_loops) {
        return nullptr;
    }
    auto taken = std::move(from.idle.front());
    from.idle.erase(from.idle.begin());
    return taken;
}

std::unique_ptr<lent_loop> loop_pool::make() {
    const std::lock_guard lock(m_mutex);
    if (m_stopping) {
        return nullptr;
    }
    auto made = std::make_unique<lent_loop>();
    m_all.push_back(&made->loop);
    return made;
}

void loop_pool::take_back(std::unique_ptr<lent_loop> loop) {
    shelf& own = m_shelves[own_shard()];
    {
        const std::lock_guard lock(own.mutex);
        if (m_stopping) {
            static_cast<void>(loop.release());  // the libraries below may have said their last word
            return;
        }
        loop->returned = std::chrono::steady_clock::now();
        retire(own, loop->returned);
        own.idle.push_back(std::move(loop));
    }
    if (!m_is_tidied_later.load(std::memory_order_relaxed)) {
        tidy_later(k_idle_limit);
    }
}

// Those that were idle for long, and the oldest of too many.
void loop_pool::retire(shelf& from, time_point now) {
    for (auto at = from.idle.begin(); at != from.idle.end();) {
        const bool is_due = now - (*at)->returned > k_idle_limit || from.idle.size() > k_max_idle_loops;
        at = is_due && is_done(**at) ? forget(from, at) : std::next(at);
    }
}

// A loop with a lookup in it that nobody waits for stays until that has ended.
bool loop_pool::is_done(lent_loop& idle) {
    if (!idle.loop.is_empty()) {
        idle.loop.turn(transfer_loop::patience::none);
    }
    return idle.loop.is_empty();
}

loop_pool::loops::iterator loop_pool::forget(shelf& from, loops::iterator which) {
    const std::lock_guard lock(m_mutex);
    m_all.erase(std::find(m_all.begin(), m_all.end(), &(*which)->loop));
    return from.idle.erase(which);
}

// Nobody may ever make another call, so the service thread looks after idle loops, when there is one.
void loop_pool::tidy_later(std::chrono::milliseconds wait) {
    if (!m_is_tidied_later.exchange(true)) {
        const auto due = std::max(wait + std::chrono::milliseconds(1), std::chrono::milliseconds(1000));
        service_loop().call_later(static_cast<std::uint64_t>(due.count()), [] { of_process().tidy(); });
    }
}

void loop_pool::tidy() {
    const time_point now = std::chrono::steady_clock::now();
    time_point oldest = time_point::max();
    for (shelf& each : m_shelves) {
        const std::lock_guard lock(each.mutex);
        if (m_stopping) {
            return;
        }
        retire(each, now);
        if (!each.idle.empty()) {
            oldest = std::min(oldest, each.idle.front()->returned);
        }
    }
    m_is_tidied_later = false;
    if (oldest != time_point::max()) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(oldest + k_idle_limit - now);
        tidy_later(left);
    }
}

// Ends whatever is under way; nobody is inside a loop any more afterwards.
void loop_pool::stop() noexcept {
    m_stopping = true;
    for (shelf& each : m_shelves) {
        const std::lock_guard lock(each.mutex);  // whoever has looked at m_stopping before is done now
    }
    const std::lock_guard lock(m_mutex);
    for (transfer_loop* const loop : m_all) {
        loop->stop();
    }
}

}  // namespace kro::tessel::os
