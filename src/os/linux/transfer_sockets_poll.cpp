#include "os/linux/transfer_sockets.h"

#include <sys/eventfd.h>
#include <sys/select.h>
#include <unistd.h>

namespace kro::tessel::os {
namespace {

// libcurl looks at the sockets of a set itself, with poll(2).
class sockets_of_few final : public transfer_sockets {
public:
    bool prepare() override { return prepare_alarm(); }
    void adopt(CURLM* /*set*/) override {}
    void abandon(CURLM* set) noexcept override { m_set = m_set == set ? nullptr : m_set; }
    void begins(CURLM* set) noexcept override { m_set = set; }
    void wait(int milliseconds) noexcept override;
    void skip_wait() noexcept override { m_something_came = false; }
    void handle_events() override;
    void handle_all() override;
    void handle_time(CURLM* set) override;
    int socket_of(CURL* easy) const noexcept override;
    void close(int socket) noexcept override { ::close(socket); }

private:
    CURLM* m_set = nullptr;  // of the latest exchange; nobody waits for what others are left with
    bool m_something_came = false;
};

void sockets_of_few::wait(int milliseconds) noexcept {
    constexpr int longest = 1'000'000'000;
    curl_waitfd rung{alarm(), CURL_WAIT_POLLIN, 0};
    int count = 0;
    curl_multi_wait(m_set, &rung, 1, milliseconds < 0 ? longest : milliseconds, &count);
    if (rung.revents != 0) {
        eventfd_t times = 0;
        ::eventfd_read(alarm(), &times);
        --count;
    }
    m_something_came = count > 0;
}

void sockets_of_few::handle_events() {
    if (m_something_came) {
        watcher().bytes_move();
        handle_time(m_set);
    }
}

void sockets_of_few::handle_all() {
    wait(0);
    handle_events();
}

void sockets_of_few::handle_time(CURLM* set) {
    int running = 0;
    curl_multi_perform(set, &running);
}

int sockets_of_few::socket_of(CURL* /*easy*/) const noexcept {
    fd_set readable, writable, failed;
    FD_ZERO(&readable);
    FD_ZERO(&writable);
    FD_ZERO(&failed);
    int last = -1;
    curl_multi_fdset(m_set, &readable, &writable, &failed, &last);
    while (last >= 0 && !FD_ISSET(last, &writable) && !FD_ISSET(last, &readable)) {
        --last;
    }
    return last;
}

}  // namespace

std::unique_ptr<transfer_sockets> make_sockets_of_few() {
    return std::make_unique<sockets_of_few>();
}

}  // namespace kro::tessel::os
