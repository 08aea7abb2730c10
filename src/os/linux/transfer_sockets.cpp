#include "os/linux/transfer_sockets.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>

#include <algorithm>
#include <new>

namespace kro::tessel::os {

bool transfer_sockets::prepare_alarm() noexcept {
    if (m_alarm.number() < 0) {
        m_alarm.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    }
    return m_alarm.number() >= 0;
}

void transfer_sockets::ring() noexcept {
    ::eventfd_write(m_alarm.number(), 1);
}

int transfer_sockets::open(const curl_sockaddr& address) {
    return ::socket(address.family, address.socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address.protocol);
}

void transfer_sockets::adopt(CURLM* set) {
    const auto is_free = [](const adopted& one) { return one.set == nullptr; };
    auto entry = std::find_if(m_adopted.begin(), m_adopted.end(), is_free);
    if (entry == m_adopted.end()) {
        entry = m_adopted.insert(m_adopted.end(), {this, nullptr});
    }
    entry->set = set;
    curl_multi_setopt(set, CURLMOPT_SOCKETFUNCTION, on_socket);
    curl_multi_setopt(set, CURLMOPT_SOCKETDATA, &*entry);
}

void transfer_sockets::abandon(CURLM* set) noexcept {
    curl_multi_setopt(set, CURLMOPT_SOCKETFUNCTION, nullptr);
    const auto entry = std::find_if(m_adopted.begin(), m_adopted.end(),
                                    [set](const adopted& one) { return one.set == set; });
    if (entry != m_adopted.end()) {
        entry->set = nullptr;
    }
}

int transfer_sockets::on_socket(CURL* easy, curl_socket_t socket, int what, void* from, void* /*unused*/) {
    const auto& adopted_set = *static_cast<const adopted*>(from);
    try {
        adopted_set.by->watch(adopted_set.set, easy, socket, what);
    } catch (const std::bad_alloc&) {
        // An error from here would end the whole set for good; this way one exchange runs into its time-out.
    }
    return 0;
}

short transfer_sockets::poll_events_of(int what) noexcept {
    const bool in = what == CURL_POLL_IN || what == CURL_POLL_INOUT;
    const bool out = what == CURL_POLL_OUT || what == CURL_POLL_INOUT;
    return static_cast<short>((in ? POLLIN : 0) | (out ? POLLOUT : 0));
}

void transfer_sockets::hand_on(CURLM* set, CURL* easy, int socket, int events) const {
    int mask = 0;
    mask |= (events & (POLLIN | POLLHUP)) != 0 ? CURL_CSELECT_IN : 0;
    mask |= (events & POLLOUT) != 0 ? CURL_CSELECT_OUT : 0;
    mask |= (events & (POLLERR | POLLNVAL)) != 0 ? CURL_CSELECT_ERR : 0;
    m_watcher->bytes_move(easy);
    int running = 0;
    curl_multi_socket_action(set, socket, mask, &running);
}

void transfer_sockets::handle_time(CURLM* set) {
    int running = 0;
    curl_multi_socket_action(set, CURL_SOCKET_TIMEOUT, 0, &running);
}

}  // namespace kro::tessel::os
