#include "os/linux/transfer_sockets.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <vector>

namespace kro::tessel::os {
namespace {

short poll_events_of(int what) noexcept {
    switch (what) {
        case CURL_POLL_IN:
            return POLLIN;
        case CURL_POLL_OUT:
            return POLLOUT;
        case CURL_POLL_INOUT:
            return POLLIN | POLLOUT;
        default:
            return 0;
    }
}

int curl_events_of(int events) noexcept {
    int mask = 0;
    mask |= (events & (POLLIN | POLLHUP)) != 0 ? CURL_CSELECT_IN : 0;
    mask |= (events & POLLOUT) != 0 ? CURL_CSELECT_OUT : 0;
    mask |= (events & (POLLERR | POLLNVAL)) != 0 ? CURL_CSELECT_ERR : 0;
    return mask;
}

class sockets_of_few final : public transfer_sockets {
public:
    bool prepare() override;
    void wait(int milliseconds) noexcept override;
    void skip_wait() noexcept override { m_ready.clear(); }
    void handle_events() override;
    void handle_all() override;
    void watch(CURLM* set, int socket, int what) override;
    void close(int socket) noexcept override;

private:
    std::size_t index_of(int socket) const noexcept;
    void forget(std::size_t index) noexcept;

    std::vector<pollfd> m_watched;  // the alarm first
    std::vector<CURLM*> m_sets;     // whose the watched ones are
    std::vector<pollfd> m_ready;    // what the last wait found: handling one changes what is watched
};

bool sockets_of_few::prepare() {
    if (m_watched.empty() && prepare_alarm()) {
        m_ready.reserve(1);
        m_sets.push_back(nullptr);
        m_watched.push_back({alarm(), POLLIN, 0});
    }
    return !m_watched.empty();
}

void sockets_of_few::wait(int milliseconds) noexcept {
    m_ready.clear();
    if (::poll(m_watched.data(), m_watched.size(), milliseconds) <= 0) {
        return;
    }
    const pollfd& rung = m_watched.front();
    if (rung.revents != 0) {
        eventfd_t times = 0;
        ::eventfd_read(rung.fd, &times);
    }
    std::copy_if(m_watched.begin() + 1, m_watched.end(), std::back_inserter(m_ready),
                 [](const pollfd& one) { return one.revents != 0; });
}

void sockets_of_few::handle_events() {
    for (const pollfd& one : m_ready) {
        const std::size_t index = index_of(one.fd);
        if (index < m_watched.size()) {
            int running = 0;
            curl_multi_socket_action(m_sets[index], one.fd, curl_events_of(one.revents), &running);
        }
    }
}

void sockets_of_few::handle_all() {
    wait(0);
    handle_events();
}

void sockets_of_few::watch(CURLM* set, int socket, int what) {
    const short events = poll_events_of(what);
    const std::size_t index = index_of(socket);
    if (events == 0) {
        forget(index);
    } else if (index < m_watched.size()) {
        m_watched[index].events = events;
        m_sets[index] = set;
    } else {
        m_ready.reserve(m_watched.size() + 1);
        m_sets.push_back(set);
        m_watched.push_back({socket, events, 0});
    }
}

void sockets_of_few::close(int socket) noexcept {
    forget(index_of(socket));
    ::close(socket);
}

std::size_t sockets_of_few::index_of(int socket) const noexcept {
    const auto found = std::find_if(m_watched.begin(), m_watched.end(),
                                    [socket](const pollfd& one) { return one.fd == socket; });
    return static_cast<std::size_t>(found - m_watched.begin());
}

void sockets_of_few::forget(std::size_t index) noexcept {
    if (index < m_watched.size()) {
        m_watched[index] = m_watched.back();
        m_sets[index] = m_sets.back();
        m_watched.pop_back();
        m_sets.pop_back();
    }
}

}  // namespace

std::unique_ptr<transfer_sockets> make_sockets_of_few() {
    return std::make_unique<sockets_of_few>();
}

}  // namespace kro::tessel::os
