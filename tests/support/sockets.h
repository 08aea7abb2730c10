// The few operations on loopback sockets that the test server needs, for each system. A socket is a number,
// -1 for none.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tessel_test {

/// A socket that listens on a free port of 127.0.0.1; -1 when that fails.
int listen_on_loopback(std::uint16_t& port);
/// Takes a waiting client; it sends at once what it is given.
int accept_client(int listener);

enum class socket_event { readable, writable };
/// Waits for an event, or for the other end to close.
bool wait_for_socket(int socket, socket_event event, int milliseconds);

/// At most `size` bytes; 0 at the end of the connection, negative after a reset.
std::ptrdiff_t receive_bytes(int socket, void* bytes, std::size_t size);
/// As many bytes as there is room for.
std::ptrdiff_t send_bytes(int socket, const void* bytes, std::size_t size);

void close_socket(int socket);
/// Closes so that the other end sees a reset.
void reset_socket(int socket);

}  // namespace tessel_test
