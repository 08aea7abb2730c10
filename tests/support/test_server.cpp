#include "support/test_server.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <utility>

namespace tessel_test {
namespace {

constexpr int k_patience_ms = 20'000;

void wait_for(int socket, short events, const char* what) {
    pollfd entry{socket, events, 0};
    if (::poll(&entry, 1, k_patience_ms) <= 0) {
        throw std::runtime_error(std::string("test server: no ") + what);
    }
}

void check(bool ok, const char* what) {
    if (!ok) {
        throw std::runtime_error(std::string("test server: ") + what);
    }
}

std::size_t content_length(std::string head) {
    std::transform(head.begin(), head.end(), head.begin(),
                   [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    constexpr std::string_view name = "\r\ncontent-length:";
    const auto at = head.find(name);
    return at == std::string::npos ? 0 : std::stoul(head.substr(at + name.size()));
}

}  // namespace

server_connection::server_connection(server_connection&& other) noexcept
    : m_socket(std::exchange(other.m_socket, -1)), m_read(std::move(other.m_read)) {}

server_connection& server_connection::operator=(server_connection&& other) noexcept {
    if (this != &other) {
        close();
        m_socket = std::exchange(other.m_socket, -1);
        m_read = std::move(other.m_read);
    }
    return *this;
}

bool server_connection::fill() {
    wait_for(m_socket, POLLIN, "bytes from the client");
    char bytes[65536];
    const ssize_t count = ::recv(m_socket, bytes, sizeof bytes, 0);
    if (count <= 0) {
        return false;
    }
    m_read.append(bytes, static_cast<std::size_t>(count));
    return true;
}

std::string server_connection::read_head() {
    std::size_t end = 0;
    while ((end = m_read.find("\r\n\r\n")) == std::string::npos) {
        if (!fill()) {
            return {};
        }
    }
    std::string head = m_read.substr(0, end + 4);
    m_read.erase(0, end + 4);
    return head;
}

std::string server_connection::read_bytes(std::size_t count) {
    while (m_read.size() < count) {
        check(fill(), "the client closed early");
    }
    std::string bytes = m_read.substr(0, count);
    m_read.erase(0, count);
    return bytes;
}

std::string server_connection::read_request() {
    const std::string head = read_head();
    return head.empty() ? head : head + read_bytes(content_length(head));
}

bool server_connection::wait_for_close() {
    return m_read.empty() && !fill();
}

void server_connection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        wait_for(m_socket, POLLOUT, "room to send");
        const ssize_t count = ::send(m_socket, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        check(count > 0, "the client does not take bytes");
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
}

void server_connection::answer(std::string_view body) {
    std::string bytes = "HTTP/1.1 200 OK\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n";
    send(bytes.append(body));
}

void server_connection::close() {
    if (m_socket >= 0) {
        ::close(std::exchange(m_socket, -1));
    }
}

void server_connection::reset() {
    const linger at_once{1, 0};
    ::setsockopt(m_socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close();
}

test_server::test_server() : m_socket(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    check(::bind(m_socket, reinterpret_cast<sockaddr*>(&address), size) == 0, "bind");
    check(::listen(m_socket, 256) == 0, "listen");
    check(::getsockname(m_socket, reinterpret_cast<sockaddr*>(&address), &size) == 0, "getsockname");
    m_port = ntohs(address.sin_port);
}

test_server::~test_server() {
    stop_listening();
}

server_connection test_server::accept() {
    wait_for(m_socket, POLLIN, "client");
    const int socket = ::accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
    check(socket >= 0, "accept");
    const int on = 1;
    ::setsockopt(socket, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return server_connection(socket);
}

bool test_server::has_client() const {
    pollfd entry{m_socket, POLLIN, 0};
    return ::poll(&entry, 1, 0) == 1;
}

void test_server::stop_listening() {
    if (m_socket >= 0) {
        ::close(std::exchange(m_socket, -1));
    }
}

}  // namespace tessel_test
