#include "os/linux/transfer_sockets.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <utility>
#include <vector>

namespace kro::tessel::os {
namespace {

class sockets_of_few final : public transfer_sockets {
public:
    bool prepare() override;
    void wait(int milliseconds) noexcept override;
    void skip_wait() noexcept override { m_some_came = false; }
    void handle_events() override;
    void handle_all() override;
    int socket_of(CURL* easy) const noexcept override;
    void close(int socket) noexcept override;

private:
    struct user {
        CURLM* set = nullptr;
        CURL* easy = nullptr;
    };

    void watch(CURLM* set, CURL* easy, int socket, int what) override;
    std::size_t place_of(int socket) const noexcept;
    void forget(std::size_t place) noexcept;

    std::vector<pollfd> m_polled;  // the alarm, and behind it the sockets
    std::vector<user> m_users;     // of each of them
    bool m_some_came = false;
};

bool sockets_of_few::prepare() {
    if (m_polled.empty() && prepare_alarm()) {
        m_users.resize(1);
        m_polled.push_back({alarm(), POLLIN, 0});
    }
    return !m_polled.empty();
}

std::size_t sockets_of_few::place_of(int socket) const noexcept {
    const auto found = std::find_if(m_polled.begin(), m_polled.end(),
                                    [socket](const pollfd& one) { return one.fd == socket; });
    return static_cast<std::size_t>(found - m_polled.begin());
}

void sockets_of_few::watch(CURLM* set, CURL* easy, int socket, int what) {
    const std::size_t place = place_of(socket);
    const bool is_known = place != m_polled.size();
    const short wanted = poll_events_of(what);
    if (wanted == 0) {
        if (is_known) {
            forget(place);
        }
        return;
    }
    if (!is_known) {
        m_users.reserve(place + 1);
        m_polled.push_back({socket, 0, 0});
        m_users.emplace_back();
    }
    m_polled[place].events = wanted;
    m_users[place] = {set, easy};
}

void sockets_of_few::forget(std::size_t place) noexcept {
    m_polled[place] = m_polled.back();
    m_polled.pop_back();
    m_users[place] = m_users.back();
    m_users.pop_back();
}

void sockets_of_few::wait(int milliseconds) noexcept {
    int count = std::max(::poll(m_polled.data(), m_polled.size(), milliseconds), 0);
    if (count > 0 && m_polled.front().revents != 0) {
        eventfd_t times = 0;
        ::eventfd_read(alarm(), &times);
        --count;
    }
    m_some_came = count > 0;
}

// Looked for anew each time, since what is watched may change with each.
void sockets_of_few::handle_events() {
    const auto is_ready = [](const pollfd& one) { return one.revents != 0; };
    while (m_some_came) {
        const auto next = std::find_if(m_polled.begin() + 1, m_polled.end(), is_ready);
        m_some_came = next != m_polled.end();
        if (m_some_came) {
            const user whose = m_users[static_cast<std::size_t>(next - m_polled.begin())];
            hand_on(whose.set, whose.easy, next->fd, std::exchange(next->revents, short{0}));
        }
    }
}

void sockets_of_few::handle_all() {
    wait(0);
    handle_events();
}

int sockets_of_few::socket_of(CURL* easy) const noexcept {
    const auto found =
        std::find_if(m_users.begin(), m_users.end(), [easy](const user& one) { return one.easy == easy; });
    return found == m_users.end() ? -1 : m_polled[static_cast<std::size_t>(found - m_users.begin())].fd;
}

void sockets_of_few::close(int socket) noexcept {
    if (const std::size_t place = place_of(socket); place != m_polled.size()) {
        forget(place);
    }
    ::close(socket);
}

}  // namespace

std::unique_ptr<transfer_sockets> make_sockets_of_few() {
    return std::make_unique<sockets_of_few>();
}

}  // namespace kro::tessel::os
