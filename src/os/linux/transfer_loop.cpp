#include "os/linux/transfer_loop.h"

#include "os/linux/signals_blocked.h"
#include "os/thread.h"

#include <openssl/ssl.h>

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <system_error>
#include <utility>

namespace kro::tessel::os {
namespace {

// The C library returns free memory at the end of its heap to the system. With a 512 KiB buffer for each
// exchange it would do so at every turn, which costs as much as a whole request; freeing one block of
// several MiB tells it that such blocks come and go here (mallopt(3), M_MMAP_THRESHOLD).
void keep_freed_buffers() noexcept {
    void* volatile block = std::malloc(std::size_t{4} << 20U);
    std::free(block);
}

void prepare_libraries() {
    static const bool prepared = [] {
        // OpenSSL's own exit handler has to be registered before ours, so that it runs after it.
        OPENSSL_init_ssl(0, nullptr);
        keep_freed_buffers();
        certificate_file();  // the environment is read here, on a thread of the host's
        return curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
    }();
    static_cast<void>(prepared);
}

std::uint64_t clock() noexcept {
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    return static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count());
}

}  // namespace

transfer_loop::transfer_loop(driver turned_by)
    : m_driver(turned_by),
      m_sockets(turned_by == driver::caller ? make_sockets_of_few() : make_sockets_of_many()),
      m_exchanges(*m_sockets, turned_by == driver::caller) {
    prepare_libraries();
}

transfer_loop::~transfer_loop() {
    stop();
}

// ---- from any thread

std::shared_ptr<transfer> transfer_loop::submit(std::shared_ptr<transfer_sink> sink,
                                                transfer_request&& request) {
    auto what = std::make_shared<curl_transfer>(std::move(sink), std::move(request));
    return post({command_kind::submit, what, nullptr}) ? what : nullptr;
}

void transfer_loop::grant_window(const std::shared_ptr<transfer>& which) {
    post({command_kind::grant, std::static_pointer_cast<curl_transfer>(which), nullptr});
}

void transfer_loop::cancel(const std::shared_ptr<transfer>& which) {
    post({command_kind::cancel, std::static_pointer_cast<curl_transfer>(which), nullptr});
}

void transfer_loop::limits_begin_anew(const std::shared_ptr<transfer>& which) {
    post({command_kind::limit, std::static_pointer_cast<curl_transfer>(which), nullptr});
}

bool transfer_loop::wake(std::shared_ptr<transfer_sink> sink) {
    return post({command_kind::wake, nullptr, std::move(sink)});
}

void transfer_loop::set_connection_limit(std::uint32_t count) {
    m_exchanges.set_limit(count);
}

bool transfer_loop::post(command what) {
    if (process_was_forked()) {
        return false;
    }
    std::unique_lock lock(m_mutex);
    if (m_stopping || (!m_started && !prepare())) {
        return false;
    }
    m_inbox.push_back(std::move(what));
    if (m_sleeping) {
        m_sleeping = false;
        lock.unlock();
        m_sockets->ring();
    }
    return true;
}

void transfer_loop::call_later(std::uint64_t milliseconds, void (*chore)()) {
    const std::lock_guard lock(m_mutex);
    m_chore_due = clock() + milliseconds;
    m_chore = chore;
    if (std::exchange(m_sleeping, false)) {
        m_sockets->ring();
    }
}

bool transfer_loop::prepare() {
    if (!m_sockets->prepare()) {
        return false;
    }
    m_started = m_driver == driver::caller || start_thread();
    return m_started;
}

bool transfer_loop::start_thread() {
    try {
        const all_signals_blocked blocked;
        m_thread = std::thread([this] { run(); });
    } catch (const std::system_error&) {
        return false;
    }
    return true;
}

void transfer_loop::stop() noexcept {
    if (process_was_forked()) {
        return;
    }
    std::thread ending;
    {
        std::unique_lock lock(m_mutex);
        m_stopping = true;
        ending.swap(m_thread);
        if (m_started) {
            m_sockets->ring();
        }
        m_turn_left.wait(lock, [this] { return !m_in_turn; });
    }
    if (ending.joinable()) {
        if (ending.get_id() == std::this_thread::get_id()) {
            ending.detach();  // the process ends from a notice
        } else {
            ending.join();
        }
    }
}

// ---- the thread that turns the loop

void transfer_loop::run() {
    pthread_setname_np(pthread_self(), "tessel-inet");
    while (wait_for_events(patience::wait)) {
        work();
        hand_over();
        if (m_chore_is_due) {
            do_chore();
        }
    }
}

void transfer_loop::do_chore() {
    void (*chore)() = nullptr;
    {
        const std::lock_guard lock(m_mutex);
        m_chore_due = k_never;
        chore = m_chore;
    }
    chore();
}

bool transfer_loop::turn(patience how) {
    if (!wait_for_events(how)) {
        return false;
    }
    work();
    m_exchanges.take_told(m_handing_over);
    m_handing_over.clear();  // whoever waits for the events is the one who called
    const std::lock_guard lock(m_mutex);
    m_in_turn = false;
    if (m_stopping) {
        m_turn_left.notify_all();
    }
    return !m_stopping;
}

void transfer_loop::work() {
    take_inbox();  // first: what was cancelled shall not go on because of an event that came with it
    m_sockets->handle_events();
    if (m_exchanges.may_be_late()) {
        // What has come counts, however late it is noticed: this process may have been stopped.
        m_sockets->handle_all();
    }
    m_exchanges.advance();
}

int transfer_loop::time_left(std::uint64_t due) noexcept {
    if (due == k_never) {
        return -1;
    }
    constexpr std::uint64_t longest = 60'000;
    const std::uint64_t now = due == 0 ? 0 : clock();
    return due <= now ? 0 : static_cast<int>(std::min(due - now, longest));
}

bool transfer_loop::wait_for_events(patience how) {
    int limit = 0;
    bool has_work = false;
    std::uint64_t chore_due = k_never;
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping || !m_started) {
            return false;
        }
        m_in_turn = m_driver == driver::caller;
        has_work = !m_inbox.empty();
        chore_due = m_chore_due;
        if (!has_work && how == patience::wait) {
            limit = time_left(std::min(m_exchanges.due(), chore_due));
        }
        m_sleeping = limit != 0;
    }
    if (has_work && m_exchanges.is_empty()) {
        m_sockets->skip_wait();  // nothing runs that anything could come for
    } else {
        m_sockets->wait(limit);
    }
    const std::uint64_t now = clock();
    m_exchanges.begin_turn(now);
    m_chore_is_due = chore_due <= now;
    return true;
}

void transfer_loop::take_inbox() {
    {
        const std::lock_guard lock(m_mutex);
        m_sleeping = false;
        m_commands.swap(m_inbox);
    }
    for (command& one : m_commands) {
        obey(one);
    }
    m_commands.clear();
}

void transfer_loop::obey(command& what) {
    switch (what.kind) {
        case command_kind::submit:
            m_exchanges.enqueue(std::move(what.which));
            break;
        case command_kind::grant:
            m_exchanges.resume(*what.which);
            break;
        case command_kind::cancel:
            m_exchanges.drop(what.which);
            break;
        case command_kind::limit:
            m_exchanges.restart_wait(*what.which);
            break;
        case command_kind::wake:
            m_exchanges.tell(std::move(what.sink));
            break;
    }
}

void transfer_loop::hand_over() {
    m_exchanges.take_told(m_handing_over);
    for (const auto& sink : m_handing_over) {
        sink->on_turn_end();
    }
    m_handing_over.clear();
}

transfer_service& system_transfers() {
    static transfer_loop* const loop = [] {
        auto* const made = new transfer_loop;
        std::atexit([] { static_cast<transfer_loop&>(system_transfers()).stop(); });
        return made;
    }();
    return *loop;
}

}  // namespace kro::tessel::os
