#include "os/linux/transfer_loop.h"

#include "os/inet.h"
#include "os/linux/signals_blocked.h"
#include "os/thread.h"

#include <openssl/ssl.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <new>
#include <system_error>
#include <utility>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_max_idle_handles = 64;
constexpr std::size_t k_max_idle_origins = 256;
constexpr long k_max_idle_connections = 256;
constexpr long k_max_idle_connections_of_callers = 4;
constexpr int k_rounds_a_turn = 4;

// "Sent" waits so long for the response's headers to come along: with a near server both are told at once,
// which saves waking whoever waits for them a second time. Nobody can do anything with it before.
constexpr std::uint64_t k_sent_delay_ms = 1;

// Descriptors that ran out come back from here, by idle connections that end, or from the host: nobody tells.
constexpr std::uint64_t k_starved_ms = 50;

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

std::uint32_t epoll_events_of(int what) noexcept {
    const bool in = (static_cast<unsigned>(what) & CURL_POLL_IN) != 0 && what != CURL_POLL_REMOVE;
    const bool out = (static_cast<unsigned>(what) & CURL_POLL_OUT) != 0 && what != CURL_POLL_REMOVE;
    return (in ? std::uint32_t{EPOLLIN} : 0U) | (out ? std::uint32_t{EPOLLOUT} : 0U);
}

int curl_events_of(std::uint32_t events) noexcept {
    int mask = 0;
    mask |= (events & (EPOLLIN | EPOLLHUP)) != 0 ? CURL_CSELECT_IN : 0;
    mask |= (events & EPOLLOUT) != 0 ? CURL_CSELECT_OUT : 0;
    mask |= (events & EPOLLERR) != 0 ? CURL_CSELECT_ERR : 0;
    return mask;
}

}  // namespace

transfer_loop::transfer_loop(driver turned_by) : m_driver(turned_by) {
    prepare_libraries();
    if (turned_by == driver::caller) {
        m_limit = 0xFFFFFFFFU;
    }
}

transfer_loop::~transfer_loop() {
    stop();
    for (const auto& exchange : m_running) {
        curl_multi_remove_handle(exchange->place.set->handle, exchange->easy());
    }
    m_running.clear();
    m_idle.clear();
    for (multi& set : m_multis) {
        curl_multi_cleanup(set.handle);
    }
    for (const int descriptor : {m_epoll, m_alarm}) {
        if (descriptor >= 0) {
            ::close(descriptor);
        }
    }
}

// ---- from any thread

std::shared_ptr<transfer> transfer_loop::submit(std::shared_ptr<transfer_sink> sink,
                                                transfer_request request) {
    auto what = std::make_shared<curl_transfer>(std::move(sink), std::move(request));
    return post({command_kind::submit, what, nullptr}) ? what : nullptr;
}

void transfer_loop::grant_window(const std::shared_ptr<transfer>& which) {
    post({command_kind::grant, std::static_pointer_cast<curl_transfer>(which), nullptr});
}

void transfer_loop::cancel(const std::shared_ptr<transfer>& which) {
    post({command_kind::cancel, std::static_pointer_cast<curl_transfer>(which), nullptr});
}

bool transfer_loop::wake(std::shared_ptr<transfer_sink> sink) {
    return post({command_kind::wake, nullptr, std::move(sink)});
}

void transfer_loop::set_connection_limit(std::uint32_t count) {
    m_limit.store(count, std::memory_order_relaxed);
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
        ::eventfd_write(m_alarm, 1);
    }
    return true;
}

bool transfer_loop::prepare() {
    if (m_epoll < 0 && !open_descriptors()) {
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

bool transfer_loop::open_descriptors() {
    m_epoll = ::epoll_create1(EPOLL_CLOEXEC);
    m_alarm = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;  // every write is an event, and none needs to be read
    event.data.fd = m_alarm;
    return m_epoll >= 0 && m_alarm >= 0 && ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, m_alarm, &event) == 0;
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
            ::eventfd_write(m_alarm, 1);
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
    }
}

bool transfer_loop::turn(patience how) {
    {
        const std::lock_guard lock(m_mutex);
        m_in_turn = !m_stopping && m_started;
        if (!m_in_turn) {
            return false;
        }
    }
    if (wait_for_events(how)) {
        work();
        m_told.clear();  // whoever waits for the events is the one who called
    }
    const std::lock_guard lock(m_mutex);
    m_in_turn = false;
    if (m_stopping) {
        m_turn_left.notify_all();
    }
    return !m_stopping;
}

void transfer_loop::restart_waits() noexcept {
    read_clock();
    for (const auto& exchange : m_running) {
        exchange->restart_wait();
    }
}

void transfer_loop::work() {
    take_inbox();  // first: what was cancelled shall not go on because of an event that came with it
    handle_events();
    drive();
    check_deadlines();
    start_starved();
    report_sent();
}

// An exchange that ends makes room for the next one, which goes out at once and, with a fast server, may
// end at once as well.
void transfer_loop::drive() {
    m_unfinished = true;
    for (int round = 0; m_unfinished && round < k_rounds_a_turn; ++round) {
        run_timers();
        m_unfinished = collect_ended();
    }
}

void transfer_loop::read_clock() noexcept {
    const auto since_start = std::chrono::steady_clock::now().time_since_epoch();
    m_now = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::milliseconds>(since_start).count());
}

int transfer_loop::sleep_limit() const noexcept {
    if (m_unfinished) {
        return 0;
    }
    const std::uint64_t due =
        std::min({m_multis[0].timer_due, m_multis[1].timer_due, m_next_check, m_next_sent, m_next_start});
    if (due == k_never) {
        return -1;
    }
    constexpr std::uint64_t longest = 60'000;
    return due <= m_now ? 0 : static_cast<int>(std::min(due - m_now, longest));
}

bool transfer_loop::wait_for_events(patience how) {
    read_clock();
    int limit = how == patience::none ? 0 : sleep_limit();
    {
        const std::lock_guard lock(m_mutex);
        if (m_stopping) {
            return false;
        }
        limit = m_inbox.empty() ? limit : 0;
        m_sleeping = limit != 0;
    }
    const int count = ::epoll_wait(m_epoll, m_events.data(), static_cast<int>(m_events.size()), limit);
    m_event_count = static_cast<std::size_t>(std::max(count, 0));
    read_clock();
    ++m_turn;
    return true;
}

void transfer_loop::handle_events() {
    for (std::size_t i = 0; i < m_event_count; ++i) {
        handle_event(m_events[i].data.fd, m_events[i].events);
    }
}

void transfer_loop::handle_event(int socket, std::uint32_t events) {
    if (socket == m_alarm) {
        return;
    }
    watched& entry = entry_of(socket);
    if (entry.wanted == 0) {
        // An idle connection that the server closed, or a paused one with bytes waiting. What was let go of
        // in this very turn may be somebody else's by now; if it isn't, its event comes again.
        const bool is_ours = entry.unsure ? entry.unsure_turn != m_turn : entry.registered != 0;
        if (is_ours) {
            register_socket(socket, entry, 0);
        }
        return;
    }
    int running = 0;
    curl_multi_socket_action(entry.set->handle, socket, curl_events_of(events), &running);
}

transfer_loop::watched& transfer_loop::entry_of(int socket) {
    const auto index = static_cast<std::size_t>(socket);
    if (index >= m_watched.size()) {
        m_watched.resize(index + 64);
    }
    return m_watched[index];
}

int transfer_loop::on_socket(CURL* /*easy*/, curl_socket_t socket, int what, void* set, void* /*unused*/) {
    auto& from = *static_cast<multi*>(set);
    from.loop->watch(from, socket, epoll_events_of(what));
    return 0;
}

void transfer_loop::watch(multi& set, int socket, std::uint32_t wanted) {
    watched& entry = entry_of(socket);
    entry.set = &set;
    entry.wanted = wanted;
    if (wanted == 0 && entry.is_connection) {
        // A kept connection stays registered between two requests: that saves two system calls for each.
        // If anything arrives meanwhile it is taken out then.
        if (entry.registered != EPOLLIN) {
            // It may have been connecting still: libcurl has closed such a socket already, without a word,
            // and the number can be another thread's by now.
            entry.is_connection = false;
            entry.unsure = true;
            entry.unsure_turn = m_turn;
        }
    } else if (entry.unsure || entry.registered != wanted) {
        register_socket(socket, entry, wanted);
    }
}

void transfer_loop::register_socket(int socket, watched& entry, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = socket;
    if (events == 0) {
        ::epoll_ctl(m_epoll, EPOLL_CTL_DEL, socket, &event);
    } else if (entry.registered == 0 || ::epoll_ctl(m_epoll, EPOLL_CTL_MOD, socket, &event) != 0) {
        ::epoll_ctl(m_epoll, EPOLL_CTL_ADD, socket, &event);
    }
    entry.registered = events;
    entry.unsure = false;
}

int transfer_loop::on_timer(CURLM* /*handle*/, long milliseconds, void* set) {
    auto& from = *static_cast<multi*>(set);
    from.timer_due = milliseconds < 0 ? k_never : from.loop->m_now + static_cast<std::uint64_t>(milliseconds);
    return 0;
}

void transfer_loop::run_timers() {
    for (multi& set : m_multis) {
        if (set.timer_due <= m_now) {
            set.timer_due = k_never;
            int running = 0;
            curl_multi_socket_action(set.handle, CURL_SOCKET_TIMEOUT, 0, &running);
        }
    }
}

int transfer_loop::open_socket(const curl_sockaddr& address) {
    const int type = address.socktype | SOCK_CLOEXEC | SOCK_NONBLOCK;
    const int socket = ::socket(address.family, type, address.protocol);
    if (socket < 0) {
        return socket;
    }
    try {
        watched fresh;
        fresh.is_connection = true;
        entry_of(socket) = fresh;
    } catch (const std::bad_alloc&) {
        ::close(socket);
        throw;
    }
    return socket;
}

void transfer_loop::close_socket(int socket) noexcept {
    watched& entry = entry_of(socket);
    if (entry.registered != 0) {
        // Closing alone isn't enough: a child process may hold a copy.
        register_socket(socket, entry, 0);
    }
    entry = {};
    ::close(socket);
}

std::uint64_t transfer_loop::deadline_in(std::uint32_t milliseconds) noexcept {
    const std::uint64_t deadline = m_now + milliseconds;
    m_next_check = std::min(m_next_check, deadline);
    return deadline;
}

void transfer_loop::told(curl_transfer& which) {
    if (which.told_in_turn != m_turn) {
        which.told_in_turn = m_turn;
        m_told.push_back(which.sink);
    }
}

void transfer_loop::sending(curl_exchange& which) {
    if (!which.place.sending) {
        which.place.sending = true;
        which.place.sent_due = m_now + k_sent_delay_ms;
        m_sending.push_back(&which);
    }
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
            enqueue(std::move(what.which));
            break;
        case command_kind::grant:
            if (what.which->exchange != nullptr) {
                what.which->exchange->resume();
            }
            break;
        case command_kind::cancel:
            drop(what.which);
            break;
        case command_kind::wake:
            m_told.push_back(std::move(what.sink));
            break;
    }
}

void transfer_loop::enqueue(std::shared_ptr<curl_transfer> what) {
    origin& to = m_origins[what->request.origin];
    to.waiting.push_back(std::move(what));
    start_waiting(to);
}

void transfer_loop::start_waiting(origin& from) {
    const std::uint32_t limit = m_limit.load(std::memory_order_relaxed);
    while (m_next_start == k_never && from.running < limit && !from.waiting.empty()) {
        const std::shared_ptr<curl_transfer> next = std::move(from.waiting.front());
        from.waiting.pop_front();
        if (next->sink == nullptr) {
            --from.cancelled;
        } else {
            start(next, from);
        }
    }
}

void transfer_loop::start(const std::shared_ptr<curl_transfer>& what, origin& from) {
    multi* const set = set_for(what->request);
    curl_exchange* exchange = nullptr;
    try {
        m_running.push_back(idle_exchange());
        exchange = m_running.back().get();
    } catch (const std::bad_alloc&) {
        exchange = nullptr;  // told below
    }
    const bool begun = set != nullptr && exchange != nullptr && exchange->easy() != nullptr &&
                       exchange->begin(what) &&
                       curl_multi_add_handle(set->handle, exchange->easy()) == CURLM_OK;
    if (!begun) {
        if (exchange != nullptr) {
            m_running.pop_back();
        }
        what->exchange = nullptr;
        told(*what);
        what->sink->on_end(what->request.tag, k_error_not_enough_memory);
        what->sink = nullptr;
        return;
    }
    exchange->place.index = m_running.size() - 1;
    exchange->place.set = set;
    exchange->place.from = &from;
    ++from.running;
}

// libcurl's key for connections lacks the certificate rules that it can't see: a connection that was opened
// without a look at dates must not serve a request that wants one. Null when there is no memory.
transfer_loop::multi* transfer_loop::set_for(const transfer_request& request) {
    multi& set = m_multis[request.ignore_cert_dates ? 1 : 0];
    if (set.handle != nullptr) {
        return &set;
    }
    set.loop = this;
    set.handle = curl_multi_init();
    if (set.handle == nullptr) {
        return nullptr;
    }
    curl_multi_setopt(set.handle, CURLMOPT_SOCKETFUNCTION, on_socket);
    curl_multi_setopt(set.handle, CURLMOPT_SOCKETDATA, &set);
    curl_multi_setopt(set.handle, CURLMOPT_TIMERFUNCTION, on_timer);
    curl_multi_setopt(set.handle, CURLMOPT_TIMERDATA, &set);
    curl_multi_setopt(set.handle, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_NOTHING));
    curl_multi_setopt(
        set.handle, CURLMOPT_MAXCONNECTS,
        m_driver == driver::caller ? k_max_idle_connections_of_callers : k_max_idle_connections);
    return &set;
}

// One that has served before, or a new one.
std::unique_ptr<curl_exchange> transfer_loop::idle_exchange() {
    if (m_idle.empty()) {
        exchange_host& self = *this;
        return std::make_unique<curl_exchange>(self);
    }
    auto taken = std::move(m_idle.back());
    m_idle.pop_back();
    return taken;
}

void transfer_loop::drop(const std::shared_ptr<curl_transfer>& what) {
    if (what->sink == nullptr) {
        return;
    }
    what->sink = nullptr;
    if (what->exchange != nullptr) {
        abandon(*what->exchange);
        return;
    }
    const auto found = m_origins.find(what->request.origin);
    if (found == m_origins.end()) {
        return;
    }
    origin& from = found->second;
    ++from.cancelled;
    if (from.cancelled > 32 && from.cancelled * 2 > from.waiting.size()) {
        const auto is_cancelled = [](const auto& waiting) { return waiting->sink == nullptr; };
        from.waiting.erase(std::remove_if(from.waiting.begin(), from.waiting.end(), is_cancelled),
                           from.waiting.end());
        from.cancelled = 0;
    }
}

// The sink is gone already. A handle that is resolving stays where it is until the lookup ends, since
// libcurl would wait for it here, and with it every other exchange; on_open_socket ends it then.
void transfer_loop::abandon(curl_exchange& which) {
    if (which.resolving()) {
        free_place(which);
        return;
    }
    curl_multi_remove_handle(which.place.set->handle, which.easy());
    which.detach();
    release(which, false);
}

void transfer_loop::free_place(curl_exchange& which) {
    origin* const from = std::exchange(which.place.from, nullptr);
    if (from == nullptr) {
        return;
    }
    --from->running;
    start_waiting(*from);
    if (from->running == 0 && m_origins.size() > k_max_idle_origins) {
        forget_idle_origins();
    }
}

void transfer_loop::forget_idle_origins() {
    for (auto at = m_origins.begin(); at != m_origins.end();) {
        const bool idle = at->second.running == 0 && at->second.waiting.empty();
        at = idle ? m_origins.erase(at) : std::next(at);
    }
}

void transfer_loop::release(curl_exchange& which, bool reusable) {
    if (which.place.sending) {
        which.place.sending = false;
        m_sending.erase(std::find(m_sending.begin(), m_sending.end(), &which));
    }
    const std::size_t index = which.place.index;
    std::unique_ptr<curl_exchange> released = std::move(m_running[index]);
    if (index + 1 != m_running.size()) {
        m_running[index] = std::move(m_running.back());
        m_running[index]->place.index = index;
    }
    m_running.pop_back();
    curl_exchange& ended = *released;
    if (reusable && m_idle.size() < k_max_idle_handles) {
        m_idle.push_back(std::move(released));
    }
    free_place(ended);
}

bool transfer_loop::collect_ended() {
    bool any = false;
    int left = 0;
    for (multi& set : m_multis) {
        while (const CURLMsg* const message = curl_multi_info_read(set.handle, &left)) {
            if (message->msg != CURLMSG_DONE) {
                continue;
            }
            any = true;
            void* owner = nullptr;
            curl_easy_getinfo(message->easy_handle, CURLINFO_PRIVATE, &owner);
            auto& exchange = *static_cast<curl_exchange*>(owner);
            if (exchange.starved() && message->data.result != CURLE_OK &&
                exchange.current()->sink != nullptr) {
                put_back(exchange);
                continue;
            }
            exchange.end(message->data.result);
            curl_multi_remove_handle(set.handle, exchange.easy());
            release(exchange, exchange.reusable());
        }
    }
    return any;
}

// It waits again, in front of those that came after it.
void transfer_loop::put_back(curl_exchange& which) {
    m_next_start = m_now + k_starved_ms;
    which.place.from->waiting.push_front(which.current());
    curl_multi_remove_handle(which.place.set->handle, which.easy());
    which.detach();
    release(which, which.reusable());
}

void transfer_loop::start_starved() {
    if (m_next_start <= m_now) {
        m_next_start = k_never;
        for (auto& [name, from] : m_origins) {
            start_waiting(from);
        }
    }
}

void transfer_loop::check_deadlines() {
    if (m_now < m_next_check) {
        return;
    }
    std::vector<curl_exchange*> late;
    m_next_check = k_never;
    for (const auto& exchange : m_running) {
        if (exchange->deadline() <= m_now) {
            late.push_back(exchange.get());
        } else {
            m_next_check = std::min(m_next_check, exchange->deadline());
        }
    }
    for (curl_exchange* const exchange : late) {
        exchange->time_out();
        abandon(*exchange);
    }
}

void transfer_loop::report_sent() {
    m_next_sent = k_never;
    const auto sent = [this](curl_exchange* exchange) {
        exchange_place& place = exchange->place;
        const bool waits = !exchange->sent_told() && m_now < place.sent_due;
        if (waits) {
            m_next_sent = std::min(m_next_sent, place.sent_due);
        }
        place.sending = waits || !exchange->progress_sent();
        return !place.sending;
    };
    m_sending.erase(std::remove_if(m_sending.begin(), m_sending.end(), sent), m_sending.end());
}

void transfer_loop::hand_over() {
    m_handing_over.swap(m_told);
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
