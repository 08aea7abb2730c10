// What a loop of exchanges sleeps on: the sockets of libcurl's sets, and an alarm that any thread may ring.
#pragma once

#include "os/linux/descriptor.h"

#include <curl/curl.h>

#include <deque>
#include <memory>

namespace kro::tessel::os {

/// Hears of what comes on sockets, before libcurl does.
class socket_watcher {
public:
    virtual ~socket_watcher() = default;
    /// The socket of this handle can be read or written.
    virtual void bytes_move(CURL* easy) noexcept = 0;
};

class transfer_sockets {
public:
    transfer_sockets() = default;
    transfer_sockets(const transfer_sockets&) = delete;
    transfer_sockets& operator=(const transfer_sockets&) = delete;
    virtual ~transfer_sockets() = default;

    /// Has to succeed before anything else is called. Once it has, it does nothing.
    virtual bool prepare() = 0;
    /// Who hears of events; before there are any.
    void tell(socket_watcher& watcher) noexcept { m_watcher = &watcher; }
    /// A set was made: its sockets are looked after from now on, and have to be gone before this is.
    void adopt(CURLM* set);
    /// It is about to go, with its sockets.
    void abandon(CURLM* set) noexcept;

    /// Ends a wait, or the next one. From any thread.
    void ring() noexcept;

    /// Sleeps until something has come, at most so many milliseconds; -1: without limit.
    virtual void wait(int milliseconds) noexcept = 0;
    /// Instead of a wait when nothing could come: nothing has.
    virtual void skip_wait() noexcept = 0;
    /// Hands what came to the sets whose sockets it came on.
    virtual void handle_events() = 0;
    /// Hands on all that has come by now, also what one wait has no room for.
    virtual void handle_all() = 0;

    /// A time that the set asked for has come.
    static void handle_time(CURLM* set);

    /// The socket that an exchange's handle waits for; -1 when there is none.
    virtual int socket_of(CURL* easy) const noexcept = 0;
    /// A socket for a connection; -1 with errno as the system left it.
    virtual int open(const curl_sockaddr& address);
    virtual void close(int socket) noexcept = 0;

protected:
    bool prepare_alarm() noexcept;
    int alarm() const noexcept { return m_alarm.number(); }
    /// What to wait for, POLL*, when libcurl says CURL_POLL_*; 0 for nothing.
    static short poll_events_of(int what) noexcept;
    /// Tells the watcher and the set of what has come. events: POLL*.
    void hand_on(CURLM* set, CURL* easy, int socket, int events) const;

private:
    // A set whose sockets are looked after, as its callback needs it.
    struct adopted {
        transfer_sockets* by = nullptr;
        CURLM* set = nullptr;
    };

    static int on_socket(CURL* easy, curl_socket_t socket, int what, void* from, void* unused);
    /// libcurl has said what it waits for on a socket: CURL_POLL_*.
    virtual void watch(CURLM* set, CURL* easy, int socket, int what) = 0;

    socket_watcher* m_watcher = nullptr;
    descriptor m_alarm;
    std::deque<adopted> m_adopted;
};

/// For thousands of sockets that are watched for long: by epoll(7).
std::unique_ptr<transfer_sockets> make_sockets_of_many();
/// For a handful that come and go with each exchange: by poll(2), which needs no call to begin or end a
/// watch.
std::unique_ptr<transfer_sockets> make_sockets_of_few();

}  // namespace kro::tessel::os
