// The server that HTTP benchmarks talk to, or many servers that are one: one thread, to be run in a process
// of its own. /known/N and /chunked/N answer with N bytes, everything else with 100; bodies of requests are
// read past.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

namespace tessel_bench {

inline constexpr std::size_t k_piece = std::size_t{256} * 1024;

struct peer {
    std::string in;
    std::string out;
    std::size_t sent = 0;
    std::uint64_t body_left = 0;
    std::uint64_t body_expected = 0;  // of the request
    std::string line;                 // of that request
    bool chunked = false;
    bool closes = false;
};

class bench_server {
public:
    /// listeners: as how many servers it is seen. Their sockets are those of whoever makes it.
    explicit bench_server(std::size_t listeners = 1) : m_fill(k_piece, 'x') {
        for (std::size_t i = 0; i < listeners; ++i) {
            listen_on_loopback();
        }
    }

    const std::vector<std::uint16_t>& ports() const { return m_ports; }

    /// In the process that doesn't run it.
    void close_listeners() {
        std::for_each(m_listeners.begin(), m_listeners.end(), ::close);
        m_listeners.clear();
    }

    [[noreturn]] void run() {
        m_epoll = ::epoll_create1(0);
        for (const int listener : m_listeners) {
            watch(listener, EPOLL_CTL_ADD, EPOLLIN);
        }
        for (;;) {
            epoll_event events[256];
            const int count = ::epoll_wait(m_epoll, events, 256, -1);
            for (int i = 0; i < count; ++i) {
                handle(events[i].data.fd, events[i].events);
            }
        }
    }

private:
    void listen_on_loopback() {
        const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        if (::bind(listener, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            ::listen(listener, 4096) != 0 ||
            ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            std::abort();
        }
        m_ports.push_back(ntohs(address.sin_port));
        m_listeners.insert(std::upper_bound(m_listeners.begin(), m_listeners.end(), listener), listener);
    }

    void watch(int socket, int operation, std::uint32_t events) {
        epoll_event event{};
        event.events = events;
        event.data.fd = socket;
        ::epoll_ctl(m_epoll, operation, socket, &event);
    }

    void handle(int socket, std::uint32_t events) {
        if (std::binary_search(m_listeners.begin(), m_listeners.end(), socket)) {
            const int client = ::accept4(socket, nullptr, nullptr, SOCK_NONBLOCK);
            const int on = 1;
            ::setsockopt(client, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
            m_peers[client] = std::make_unique<peer>();
            watch(client, EPOLL_CTL_ADD, EPOLLIN);
            return;
        }
        peer& one = *m_peers[socket];
        const bool is_there = (events & EPOLLIN) == 0 || receive(socket, one);
        if (is_there) {
            flush(socket, one);
        }
        if (!is_there || (one.closes && one.out.empty() && one.body_left + one.body_expected == 0)) {
            m_peers.erase(socket);
            ::close(socket);
        }
    }

    bool receive(int socket, peer& one) {
        char bytes[65536];
        const ssize_t count = ::recv(socket, bytes, sizeof bytes, 0);
        if (count <= 0) {
            return false;
        }
        const auto skipped = std::min(one.body_expected, static_cast<std::uint64_t>(count));
        one.in.append(bytes + skipped, static_cast<std::size_t>(count) - skipped);
        pass_over_body(one, skipped);
        std::size_t end = 0;
        while (one.body_expected == 0 && (end = one.in.find("\r\n\r\n")) != std::string::npos) {
            const std::string head = one.in.substr(0, end + 4);
            one.in.erase(0, end + 4);
            one.line = head.substr(0, head.find(' ', 4));
            one.closes = head.find("\r\nConnection: close\r\n") != std::string::npos;
            const std::size_t length = head.find("\r\nContent-Length: ");
            one.body_expected = length == std::string::npos ? 0 : std::stoull(head.substr(length + 18));
            if (one.body_expected == 0) {
                answer(one, one.line);
            } else {
                const auto there = std::min<std::uint64_t>(one.body_expected, one.in.size());
                one.in.erase(0, there);
                pass_over_body(one, there);
            }
        }
        return true;
    }

    void pass_over_body(peer& one, std::uint64_t bytes) {
        one.body_expected -= bytes;
        if (bytes != 0 && one.body_expected == 0) {
            answer(one, one.line);
        }
    }

    void answer(peer& one, const std::string& line) {
        if (line.compare(0, 11, "GET /known/") == 0) {
            one.body_left = std::stoull(line.substr(11));
            one.out += "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(one.body_left) +
                       (one.closes ? "\r\nConnection: close\r\n\r\n" : "\r\n\r\n");
        } else if (line.compare(0, 13, "GET /chunked/") == 0) {
            one.body_left = std::stoull(line.substr(13));
            one.chunked = true;
            one.out += "HTTP/1.1 200 OK\r\nTransfer-Encoding: chunked\r\n\r\n";
        } else {
            one.out += "HTTP/1.1 200 OK\r\nContent-Type: text/plain\r\nContent-Length: 100\r\n";
            one.out += one.closes ? "Connection: close\r\n\r\n" : "\r\n";
            one.out.append(m_fill, 0, 100);
        }
    }

    void refill(peer& one) {
        one.out.clear();
        one.sent = 0;
        if (one.body_left == 0) {
            return;
        }
        const auto piece = static_cast<std::size_t>(std::min<std::uint64_t>(one.body_left, k_piece));
        one.body_left -= piece;
        if (!one.chunked) {
            one.out.assign(m_fill, 0, piece);
            return;
        }
        for (std::size_t done = 0; done < piece; done += 16384) {
            const std::size_t part = std::min<std::size_t>(16384, piece - done);
            char size[16];
            std::snprintf(size, sizeof size, "%zx\r\n", part);
            one.out.append(size).append(m_fill, 0, part).append("\r\n");
        }
        if (one.body_left == 0) {
            one.out += "0\r\n\r\n";
            one.chunked = false;
        }
    }

    void flush(int socket, peer& one) {
        for (;;) {
            if (one.sent == one.out.size()) {
                refill(one);
                if (one.out.empty()) {
                    watch(socket, EPOLL_CTL_MOD, EPOLLIN);
                    return;
                }
            }
            const ssize_t count =
                ::send(socket, one.out.data() + one.sent, one.out.size() - one.sent, MSG_NOSIGNAL);
            if (count < 0) {
                watch(socket, EPOLL_CTL_MOD, EPOLLIN | EPOLLOUT);
                return;
            }
            one.sent += static_cast<std::size_t>(count);
            if (one.sent == one.out.size() && one.body_left == 0) {
                one.out.clear();
                one.sent = 0;
                return;
            }
        }
    }

    std::vector<int> m_listeners;  // rising
    std::vector<std::uint16_t> m_ports;
    int m_epoll = -1;
    std::string m_fill;
    std::map<int, std::unique_ptr<peer>> m_peers;
};

}  // namespace tessel_bench
