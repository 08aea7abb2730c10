// A loopback server that a test drives byte by byte: accept, read a request, send these bytes, close, reset.
// Every call waits for its event, at most 20 seconds, and then throws, so that no test hangs.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace tessel_test {

/// The server's end of a connection.
class server_connection {
public:
    server_connection() = default;
    explicit server_connection(int socket) : m_socket(socket) {}
    server_connection(server_connection&& other) noexcept;
    server_connection& operator=(server_connection&& other) noexcept;
    ~server_connection() { close(); }

    /// Reads one request: its head, and as many body bytes as Content-Length says. Empty at the end of
    /// the connection.
    std::string read_request();
    /// Reads up to the empty line.
    std::string read_head();
    /// Reads exactly so many bytes.
    std::string read_bytes(std::size_t count);
    /// Waits for the client to close. False when it sends something instead.
    bool wait_for_close();

    void send(std::string_view bytes);
    /// "HTTP/1.1 200 OK" with this body and its length.
    void answer(std::string_view body);
    void close();
    /// Closes so that the client sees a reset.
    void reset();
    bool is_open() const noexcept { return m_socket >= 0; }
    int socket() const noexcept { return m_socket; }
    /// Whether bytes or the end of the connection are there to be read now.
    bool has_bytes() const;

private:
    bool fill();

    int m_socket = -1;
    std::string m_read;  // received, not handed out yet
};

class test_server {
public:
    test_server();
    test_server(const test_server&) = delete;
    test_server& operator=(const test_server&) = delete;
    ~test_server();

    std::uint16_t port() const noexcept { return m_port; }
    std::string address() const { return "127.0.0.1:" + std::to_string(m_port); }
    std::string url(std::string_view path = "/") const {
        return std::string("http://").append(address()).append(path);
    }
    server_connection accept();
    /// Accepts a client and reads what it asks for.
    server_connection accept_request();
    /// Whether a client waits to be accepted now.
    bool has_client() const;
    /// From now on nobody listens: the port answers with a refusal.
    void stop_listening();

private:
    std::uint16_t m_port = 0;
    int m_socket = -1;
};

}  // namespace tessel_test
