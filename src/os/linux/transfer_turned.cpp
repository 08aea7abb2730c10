// Exchanges on the threads that wait for them.
#include "os/linux/transfer_loop_pool.h"
#include "os/thread.h"

#include <memory>
#include <mutex>
#include <utility>

namespace kro::tessel::os {
namespace {

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
    // Guards all below where others than the one user change or read it. The loop itself is guarded by being
    // turned by one thread.
    std::mutex m_mutex;
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
        m_lease = loop_pool::of_process().lend(request.origin);
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

bool leased_transfers::turn() {
    return m_lease != nullptr && !process_was_forked() && m_lease->loop.turn(transfer_loop::patience::wait);
}

void leased_transfers::release() {
    if (m_lease == nullptr || process_was_forked()) {
        return;  // nothing, or the parent's connections
    }
    std::unique_ptr<lent_loop> lease;
    std::shared_ptr<transfer> current;
    {
        const std::lock_guard lock(m_mutex);
        lease = std::move(m_lease);
        current = std::move(m_current);
    }
    const bool is_under_way = current != nullptr && static_cast<curl_transfer&>(*current).sink != nullptr;
    if (is_under_way) {
        lease->loop.cancel(current);
        lease->loop.turn(transfer_loop::patience::none);
    }
    loop_pool::of_process().take_back(std::move(lease));
}

}  // namespace

std::unique_ptr<turned_transfers> make_turned_transfers() {
    return std::make_unique<leased_transfers>();
}

}  // namespace kro::tessel::os
