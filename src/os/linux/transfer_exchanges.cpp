#include "os/linux/transfer_exchanges.h"

#include "os/inet.h"

#include <sys/resource.h>

#include <algorithm>
#include <iterator>
#include <limits>
#include <new>
#include <utility>

namespace kro::tessel::os {
namespace {

constexpr std::uint64_t k_idle_ms = std::uint64_t{k_idle_connection_seconds} * 1000;
constexpr std::size_t k_max_idle_handles = 64;
constexpr std::size_t k_max_idle_origins = 256;
constexpr int k_rounds_a_turn = 4;

// "Sent" waits so long, less the begun millisecond, for the response's headers to come along: with a near
// server both are told at once, which saves waking whoever waits for them a second time. Nobody can do
// anything with it before.
constexpr std::uint64_t k_sent_delay_ms = 2;

// Descriptors that ran out come back from here, by idle connections that end, or from the host: nobody tells.
constexpr std::uint64_t k_starved_ms = 50;

// So many run without a look at the descriptors that the process may have.
constexpr std::size_t k_always_running = 64;

// More connections than this are of no use to anybody, and libcurl searches them one by one.
constexpr std::size_t k_most_connections = 2048;
constexpr std::size_t k_most_connections_of_a_caller = 4;

// Of each of the two sets, in use or kept: the rest of the descriptors is the host's.
std::size_t most_connections() noexcept {
    rlimit limit{};
    const bool is_known = ::getrlimit(RLIMIT_NOFILE, &limit) == 0;
    const rlim_t share = is_known ? limit.rlim_cur / 8 * 3 : k_most_connections;
    return static_cast<std::size_t>(std::clamp<rlim_t>(share, 1, k_most_connections));
}

}  // namespace

transfer_exchanges::transfer_exchanges(transfer_sockets& sockets, bool are_of_callers)
    : m_sockets(sockets), m_are_of_callers(are_of_callers) {
    socket_watcher& self = *this;
    sockets.tell(self);
    if (are_of_callers) {
        m_limit = std::numeric_limits<std::uint32_t>::max();  // each has its own thread, and this is one's
    }
}

transfer_exchanges::~transfer_exchanges() {
    for (const auto& exchange : m_running) {
        curl_multi_remove_handle(exchange->place.set->handle, exchange->easy());
    }
    m_running.clear();
    m_idle.clear();
    for (multi& set : m_multis) {
        curl_multi_cleanup(set.handle);
    }
}

void transfer_exchanges::begin_turn(std::uint64_t now) noexcept {
    m_now = now;
    ++m_turn;
}

void transfer_exchanges::advance() {
    drive();
    check_deadlines();
    start_starved();
    report_sent();
    close_idle();
}

std::uint64_t transfer_exchanges::due() const noexcept {
    return m_unfinished ? 0
                        : std::min({m_multis[0].timer_due, m_multis[1].timer_due, m_multis[0].idle_due,
                                    m_multis[1].idle_due, m_next_check, m_next_sent, m_next_start});
}

// ---- what waits, what runs

void transfer_exchanges::enqueue(std::shared_ptr<curl_transfer> what) {
    origin& to = m_origins[what->request.origin];
    to.waiting.push_back(std::move(what));
    line_up(to);
    start_waiting();
}

void transfer_exchanges::line_up(origin& from) {
    const bool may_start = from.running < m_limit.load(std::memory_order_relaxed) && !from.waiting.empty();
    if (may_start && !from.in_line) {
        m_line.push_back(&from);
        from.in_line = true;
    }
}

void transfer_exchanges::start_waiting() {
    while (m_next_start == k_never && !m_line.empty() && has_room()) {
        origin& next = *m_line.front();
        m_line.pop_front();
        next.in_line = false;
        start_next(next);
        line_up(next);
    }
}

bool transfer_exchanges::has_room() {
    if (m_running.size() >= k_always_running) {
        count_descriptors();
    }
    return m_running.size() < m_most_connections;
}

// The host may change how many there are. At that number libcurl closes the connection that has been idle for
// longest when it opens one.
void transfer_exchanges::count_descriptors() {
    const std::size_t most = most_connections();
    if (m_are_of_callers || most == m_most_connections) {
        return;
    }
    m_most_connections = most;
    for (const multi& set : m_multis) {
        if (set.handle != nullptr) {
            curl_multi_setopt(set.handle, CURLMOPT_MAX_TOTAL_CONNECTIONS, static_cast<long>(most));
        }
    }
}

void transfer_exchanges::start_next(origin& from) {
    while (!from.waiting.empty()) {
        const std::shared_ptr<curl_transfer> next = std::move(from.waiting.front());
        from.waiting.pop_front();
        if (next->sink != nullptr) {
            start(next, from);
            return;
        }
        --from.cancelled;
    }
}

void transfer_exchanges::start(const std::shared_ptr<curl_transfer>& what, origin& from) {
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
    ++set->running;
    set->idle_due = k_never;
    exchange->place.from = &from;
    ++from.running;
}

// libcurl's key for connections lacks the certificate rules that it can't see: a connection that was opened
// without a look at dates must not serve a request that wants one. Null when there is no memory.
transfer_exchanges::multi* transfer_exchanges::set_for(const transfer_request& request) {
    multi& set = m_multis[request.ignore_cert_dates ? 1 : 0];
    if (set.handle != nullptr) {
        return &set;
    }
    count_descriptors();
    set.owner = this;
    set.handle = curl_multi_init();
    if (set.handle == nullptr) {
        return nullptr;
    }
    m_sockets.adopt(set.handle);
    curl_multi_setopt(set.handle, CURLMOPT_TIMERFUNCTION, on_timer);
    curl_multi_setopt(set.handle, CURLMOPT_TIMERDATA, &set);
    curl_multi_setopt(set.handle, CURLMOPT_PIPELINING, static_cast<long>(CURLPIPE_NOTHING));
    if (m_are_of_callers) {
        curl_multi_setopt(set.handle, CURLMOPT_MAXCONNECTS,
                          static_cast<long>(k_most_connections_of_a_caller));
    } else {
        curl_multi_setopt(set.handle, CURLMOPT_MAXCONNECTS, static_cast<long>(k_most_connections));
        curl_multi_setopt(set.handle, CURLMOPT_MAX_TOTAL_CONNECTIONS, static_cast<long>(m_most_connections));
    }
    return &set;
}

// One that has served before, or a new one.
std::unique_ptr<curl_exchange> transfer_exchanges::idle_exchange() {
    if (m_idle.empty()) {
        exchange_host& self = *this;
        return std::make_unique<curl_exchange>(self);
    }
    auto taken = std::move(m_idle.back());
    m_idle.pop_back();
    return taken;
}

void transfer_exchanges::drop(const std::shared_ptr<curl_transfer>& what) {
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

void transfer_exchanges::resume(const curl_transfer& what) {
    if (what.exchange == nullptr) {
        return;
    }
    curl_exchange& which = *what.exchange;
    if (const CURLcode code = which.resume(); code != CURLE_OK) {
        which.end(code);
        curl_multi_remove_handle(which.place.set->handle, which.easy());
        release(which, false);
    }
}

void transfer_exchanges::restart_wait(const curl_transfer& what) noexcept {
    if (what.exchange != nullptr) {
        what.exchange->restart_wait();
    }
}

// The sink is gone already. A handle that is resolving stays where it is until the lookup ends, since
// libcurl would wait for it here, and with it every other exchange; on_open_socket ends it then.
void transfer_exchanges::abandon(curl_exchange& which) {
    if (which.resolving()) {
        free_place(which);
        return;
    }
    curl_multi_remove_handle(which.place.set->handle, which.easy());
    which.detach();
    release(which, false);
}

void transfer_exchanges::free_place(curl_exchange& which) {
    origin* const from = std::exchange(which.place.from, nullptr);
    if (from != nullptr) {
        --from->running;
        line_up(*from);
    }
    start_waiting();
    if (from != nullptr && from->running == 0 && m_origins.size() > k_max_idle_origins) {
        forget_idle_origins();
    }
}

void transfer_exchanges::forget_idle_origins() {
    for (auto at = m_origins.begin(); at != m_origins.end();) {
        const bool idle = at->second.running == 0 && at->second.waiting.empty() && !at->second.in_line;
        at = idle ? m_origins.erase(at) : std::next(at);
    }
}

void transfer_exchanges::release(curl_exchange& which, bool reusable) {
    if (which.place.sending) {
        which.place.sending = false;
        m_sending.erase(std::find(m_sending.begin(), m_sending.end(), &which));
    }
    multi& set = *which.place.set;
    if (--set.running == 0 && !m_are_of_callers) {
        set.idle_due = m_now + k_idle_ms;
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

// ---- a turn

// An exchange that ends makes room for the next one, which goes out at once and, with a fast server, may
// end at once as well.
void transfer_exchanges::drive() {
    m_unfinished = true;
    for (int round = 0; m_unfinished && round < k_rounds_a_turn; ++round) {
        run_timers();
        m_unfinished = collect_ended();
    }
}

void transfer_exchanges::run_timers() {
    for (multi& set : m_multis) {
        if (set.timer_due <= m_now) {
            transfer_sockets::handle_time(set.handle);
            // It doesn't tell again of a time that stays the next one.
            long milliseconds = -1;
            curl_multi_timeout(set.handle, &milliseconds);
            on_timer(set.handle, milliseconds, &set);
        }
    }
}

bool transfer_exchanges::collect_ended() {
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
            exchange.look_at_descriptors(message->data.result);
            if (exchange.wants_another_try() && message->data.result != CURLE_OK &&
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
void transfer_exchanges::put_back(curl_exchange& which) {
    if (which.starved()) {
        m_next_start = m_now + k_starved_ms;
        count_descriptors();
    }
    which.place.from->waiting.push_front(which.current());
    curl_multi_remove_handle(which.place.set->handle, which.easy());
    which.detach();
    release(which, which.reusable());
}

void transfer_exchanges::start_starved() {
    if (m_next_start <= m_now) {
        m_next_start = k_never;
        start_waiting();
    }
}

// libcurl looks at the age of its connections only when another request begins.
void transfer_exchanges::close_idle() {
    for (multi& set : m_multis) {
        if (set.idle_due <= m_now) {
            m_sockets.abandon(set.handle);
            curl_multi_cleanup(std::exchange(set.handle, nullptr));
            set.idle_due = set.timer_due = k_never;
        }
    }
}

void transfer_exchanges::check_deadlines() {
    if (m_now < m_next_check) {
        return;
    }
    std::vector<curl_exchange*> late;
    m_next_check = k_never;
    for (const auto& exchange : m_running) {
        const bool is_late =
            exchange->deadline() <= m_now && exchange->is_waited_for() && !exchange->still_sends();
        if (is_late) {
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

void transfer_exchanges::report_sent() {
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

// ---- what libcurl and the exchanges tell

int transfer_exchanges::on_timer(CURLM* /*handle*/, long milliseconds, void* set) {
    auto& from = *static_cast<multi*>(set);
    from.timer_due =
        milliseconds < 0 ? k_never : from.owner->m_now + static_cast<std::uint64_t>(milliseconds);
    return 0;
}

std::uint64_t transfer_exchanges::deadline_in(std::uint32_t milliseconds) noexcept {
    const std::uint64_t deadline = m_now + milliseconds;
    m_next_check = std::min(m_next_check, deadline);
    return deadline;
}

void transfer_exchanges::bytes_move(CURL* easy) noexcept {
    void* owner = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &owner);
    if (owner != nullptr) {  // libcurl has a handle of its own for closing
        static_cast<curl_exchange*>(owner)->bytes_move();
    }
}

void transfer_exchanges::told(curl_transfer& which) {
    if (which.told_in_turn != m_turn) {
        which.told_in_turn = m_turn;
        m_told.push_back(which.sink);
    }
}

void transfer_exchanges::sending(curl_exchange& which) {
    if (!which.place.sending) {
        which.place.sending = true;
        which.place.sent_due = m_now + k_sent_delay_ms;
        m_sending.push_back(&which);
    }
}

}  // namespace kro::tessel::os
