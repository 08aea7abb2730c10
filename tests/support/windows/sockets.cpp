#include "support/sockets.h"

#include <winsock2.h>
#include <ws2tcpip.h>

#include <algorithm>

namespace tessel_test {
namespace {

// Handles are small numbers, of which 32 bits count.
SOCKET system_socket(int socket) {
    return static_cast<SOCKET>(socket);
}

void start_sockets() {
    static const bool started = [] {
        WSADATA data;
        return ::WSAStartup(MAKEWORD(2, 2), &data) == 0;
    }();
    static_cast<void>(started);
}

// What a full buffer or a small one takes at once.
int piece(std::size_t size) {
    return static_cast<int>(std::min<std::size_t>(size, 65536));
}

}  // namespace

int listen_on_loopback(std::uint16_t& port) {
    start_sockets();
    const SOCKET socket = ::socket(AF_INET, SOCK_STREAM, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int size = sizeof address;
    if (::bind(socket, reinterpret_cast<sockaddr*>(&address), size) != 0 || ::listen(socket, 256) != 0 ||
        ::getsockname(socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
        ::closesocket(socket);
        return -1;
    }
    port = ntohs(address.sin_port);
    return static_cast<int>(socket);
}

int accept_client(int listener) {
    const SOCKET socket = ::accept(system_socket(listener), nullptr, nullptr);
    const BOOL on = TRUE;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&on), sizeof on);
    u_long nonblocking = 1;
    ::ioctlsocket(socket, FIONBIO, &nonblocking);
    return static_cast<int>(socket);
}

bool wait_for_socket(int socket, socket_event event, int milliseconds) {
    WSAPOLLFD entry{};
    entry.fd = system_socket(socket);
    entry.events = event == socket_event::readable ? short{POLLRDNORM} : short{POLLWRNORM};
    return ::WSAPoll(&entry, 1, milliseconds) > 0;
}

std::ptrdiff_t receive_bytes(int socket, void* bytes, std::size_t size) {
    return ::recv(system_socket(socket), static_cast<char*>(bytes), piece(size), 0);
}

std::ptrdiff_t send_bytes(int socket, const void* bytes, std::size_t size) {
    return ::send(system_socket(socket), static_cast<const char*>(bytes), piece(size), 0);
}

void close_socket(int socket) {
    ::closesocket(system_socket(socket));
}

void reset_socket(int socket) {
    const linger at_once{1, 0};
    ::setsockopt(system_socket(socket), SOL_SOCKET, SO_LINGER, reinterpret_cast<const char*>(&at_once),
                 sizeof at_once);
    ::closesocket(system_socket(socket));
}

}  // namespace tessel_test
