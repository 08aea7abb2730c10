#include "support/sockets.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace tessel_test {

int listen_on_loopback(std::uint16_t& port) {
    const int socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(socket, 256) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        ::close(socket);
        return -1;
    }
    port = ntohs(address.sin_port);
    return socket;
}

int accept_client(int listener) {
    const int socket = ::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return socket;
}

bool wait_for_socket(int socket, socket_event event, int milliseconds) {
    pollfd entry{socket, event == socket_event::readable ? short{POLLIN} : short{POLLOUT}, 0};
    return ::poll(&entry, 1, milliseconds) > 0;
}

std::ptrdiff_t receive_bytes(int socket, void* bytes, std::size_t size) {
    return ::recv(socket, bytes, size, 0);
}

std::ptrdiff_t send_bytes(int socket, const void* bytes, std::size_t size) {
    return ::send(socket, bytes, size, MSG_NOSIGNAL | MSG_DONTWAIT);
}

void close_socket(int socket) {
    ::close(socket);
}

void reset_socket(int socket) {
    const linger at_once{1, 0};
    ::setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    ::close(socket);
}

}  // namespace tessel_test
