#include "os/linux/transfer_sockets.h"

#include <poll.h>
#include <sys/epoll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <new>
#include <vector>

namespace kro::tessel::os {
namespace {

static_assert(EPOLLIN == POLLIN && EPOLLOUT == POLLOUT && EPOLLERR == POLLERR && EPOLLHUP == POLLHUP);

class sockets_of_many final : public transfer_sockets {
public:
    bool prepare() override;
    void wait(int milliseconds) noexcept override;
    void skip_wait() noexcept override { m_event_count = 0; }
    void handle_events() override;
    void handle_all() override;
    int socket_of(CURL* easy) const noexcept override;
    int open(const curl_sockaddr& address) override;
    void close(int socket) noexcept override;

private:
    // What epoll and libcurl say about a descriptor.
    struct watched {
        CURLM* set = nullptr;
        CURL* easy = nullptr;  // whose socket it is while something is wanted
        std::uint32_t wanted = 0;
        std::uint32_t registered = 0;
        bool is_connection = false;     // opened by us, and its closing will be told
        bool unsure = false;            // `registered` may be out of date
        std::uint64_t unsure_turn = 0;  // since when
    };

    bool register_alarm() noexcept;
    void watch(CURLM* set, CURL* easy, int socket, int what) override;
    void handle_event(int socket, std::uint32_t events);
    watched& entry_of(int socket);
    void register_socket(int socket, watched& entry, std::uint32_t events);

    descriptor m_epoll;
    std::uint64_t m_turn = 1;  // counts the waits
    std::array<epoll_event, 128> m_events{};
    std::size_t m_event_count = 0;
    std::vector<watched> m_watched;  // by descriptor
};

bool sockets_of_many::prepare() {
    if (m_epoll.number() >= 0) {
        return true;
    }
    m_epoll.reset(::epoll_create1(EPOLL_CLOEXEC));
    if (m_epoll.number() >= 0 && prepare_alarm() && register_alarm()) {
        return true;
    }
    m_epoll.reset(-1);  // the next call tries again
    return false;
}

bool sockets_of_many::register_alarm() noexcept {
    epoll_event event{};
    event.events = EPOLLIN | EPOLLET;  // every write is an event, and none needs to be read
    event.data.fd = alarm();
    return ::epoll_ctl(m_epoll.number(), EPOLL_CTL_ADD, alarm(), &event) == 0;
}

void sockets_of_many::wait(int milliseconds) noexcept {
    const int count =
        ::epoll_wait(m_epoll.number(), m_events.data(), static_cast<int>(m_events.size()), milliseconds);
    m_event_count = static_cast<std::size_t>(std::max(count, 0));
    ++m_turn;
}

void sockets_of_many::handle_events() {
    for (std::size_t i = 0; i < m_event_count; ++i) {
        handle_event(m_events[i].data.fd, m_events[i].events);
    }
}

// Each wait begins with the sockets that weren't told for longest.
void sockets_of_many::handle_all() {
    for (std::size_t left = m_watched.size() / m_events.size() + 1; left != 0; --left) {
        wait(0);
        handle_events();
        if (m_event_count < m_events.size()) {
            return;
        }
    }
}

void sockets_of_many::handle_event(int socket, std::uint32_t events) {
    if (socket == alarm()) {
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
    hand_on(entry.set, entry.easy, socket, static_cast<int>(events));
}

sockets_of_many::watched& sockets_of_many::entry_of(int socket) {
    const auto index = static_cast<std::size_t>(socket);
    if (index >= m_watched.size()) {
        m_watched.resize(index + 64);
    }
    return m_watched[index];
}

void sockets_of_many::watch(CURLM* set, CURL* easy, int socket, int what) {
    const auto wanted = static_cast<std::uint32_t>(poll_events_of(what));
    watched& entry = entry_of(socket);
    entry.set = set;
    entry.easy = easy;
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

void sockets_of_many::register_socket(int socket, watched& entry, std::uint32_t events) {
    epoll_event event{};
    event.events = events;
    event.data.fd = socket;
    if (events == 0) {
        ::epoll_ctl(m_epoll.number(), EPOLL_CTL_DEL, socket, &event);
    } else if (entry.registered == 0 || ::epoll_ctl(m_epoll.number(), EPOLL_CTL_MOD, socket, &event) != 0) {
        ::epoll_ctl(m_epoll.number(), EPOLL_CTL_ADD, socket, &event);
    }
    entry.registered = events;
    entry.unsure = false;
}

int sockets_of_many::socket_of(CURL* easy) const noexcept {
    const auto found = std::find_if(m_watched.begin(), m_watched.end(), [easy](const watched& entry) {
        return entry.easy == easy && entry.wanted != 0;
    });
    return found == m_watched.end() ? -1 : static_cast<int>(found - m_watched.begin());
}

int sockets_of_many::open(const curl_sockaddr& address) {
    const int socket = transfer_sockets::open(address);
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

void sockets_of_many::close(int socket) noexcept {
    watched& entry = entry_of(socket);
    if (entry.registered != 0) {
        // Closing alone isn't enough: a child process may hold a copy.
        register_socket(socket, entry, 0);
    }
    entry = {};
    ::close(socket);
}

}  // namespace

std::unique_ptr<transfer_sockets> make_sockets_of_many() {
    return std::make_unique<sockets_of_many>();
}

}  // namespace kro::tessel::os
