#include "support/test_server.h"

#include "support/sockets.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <stdexcept>
#include <utility>

namespace tessel_test {
namespace {

// How long an event may take. The variable is for systems where many a test waits for what doesn't come.
int patience_ms() {
    static const int milliseconds = [] {
        const char* const text = std::getenv("TESSEL_TEST_PATIENCE_MS");
        return text != nullptr ? std::atoi(text) : 20'000;
    }();
    return milliseconds;
}

void wait_for(int socket, socket_event event, const char* what) {
    if (!wait_for_socket(socket, event, patience_ms())) {
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
    wait_for(m_socket, socket_event::readable, "bytes from the client");
    char bytes[65536];
    const std::ptrdiff_t count = receive_bytes(m_socket, bytes, sizeof bytes);
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

bool server_connection::has_bytes() const {
    return !m_read.empty() || wait_for_socket(m_socket, socket_event::readable, 0);
}

void server_connection::send(std::string_view bytes) {
    while (!bytes.empty()) {
        wait_for(m_socket, socket_event::writable, "room to send");
        const std::ptrdiff_t count = send_bytes(m_socket, bytes.data(), bytes.size());
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
        close_socket(std::exchange(m_socket, -1));
    }
}

void server_connection::reset() {
    if (m_socket >= 0) {
        reset_socket(std::exchange(m_socket, -1));
    }
}

test_server::test_server() : m_socket(listen_on_loopback(m_port)) {
    check(m_socket >= 0, "listen");
}

test_server::~test_server() {
    stop_listening();
}

server_connection test_server::accept() {
    wait_for(m_socket, socket_event::readable, "client");
    const int socket = accept_client(m_socket);
    check(socket >= 0, "accept");
    return server_connection(socket);
}

server_connection test_server::accept_request() {
    server_connection client = accept();
    client.read_request();
    return client;
}

bool test_server::has_client() const {
    return wait_for_socket(m_socket, socket_event::readable, 0);
}

void test_server::stop_listening() {
    if (m_socket >= 0) {
        close_socket(std::exchange(m_socket, -1));
    }
}

}  // namespace tessel_test
