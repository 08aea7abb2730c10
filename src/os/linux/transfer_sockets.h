// What a loop of exchanges sleeps on: the sockets of libcurl's sets, and an alarm that any thread may ring.
#pragma once

#include <curl/curl.h>
#include <sys/epoll.h>

#include <array>
#include <cstdint>
#include <vector>

namespace kro::tessel::os {

class transfer_sockets {
public:
    transfer_sockets() = default;
    transfer_sockets(const transfer_sockets&) = delete;
    transfer_sockets& operator=(const transfer_sockets&) = delete;
    ~transfer_sockets();

    /// Has to succeed before anything else is called. Once it has, it does nothing.
    bool prepare();
    /// Ends a wait, or the next one. From any thread.
    void ring() noexcept;

    /// Sleeps until something has come, at most so many milliseconds; -1: without limit.
    void wait(int milliseconds) noexcept;
    /// Hands what came to the sets whose sockets it came on.
    void handle_events();
    /// Hands on all that has come by now, also what one wait has no room for.
    void handle_all();

    /// What a set wants to know of a socket: libcurl's CURL_POLL_ numbers.
    void watch(CURLM* set, int socket, int what);
    /// A socket for a connection; -1 with errno as the system left it.
    int open(const curl_sockaddr& address);
    void close(int socket) noexcept;

private:
    // What epoll and libcurl say about a descriptor.
    struct watched {
        CURLM* set = nullptr;
        std::uint32_t wanted = 0;
        std::uint32_t registered = 0;
        bool is_connection = false;     // opened by us, and its closing will be told
        bool unsure = false;            // `registered` may be out of date
        std::uint64_t unsure_turn = 0;  // since when
    };

    void close_own() noexcept;
    void handle_event(int socket, std::uint32_t events);
    watched& entry_of(int socket);
    void register_socket(int socket, watched& entry, std::uint32_t events);

    int m_epoll = -1;
    int m_alarm = -1;
    std::uint64_t m_turn = 1;  // counts the waits
    std::array<epoll_event, 128> m_events{};
    std::size_t m_event_count = 0;
    std::vector<watched> m_watched;  // by descriptor
};

}  // namespace kro::tessel::os
