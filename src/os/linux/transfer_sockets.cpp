#include "os/linux/transfer_sockets.h"

#include <sys/eventfd.h>
#include <sys/socket.h>

namespace kro::tessel::os {

bool transfer_sockets::prepare_alarm() noexcept {
    if (m_alarm.number() < 0) {
        m_alarm.reset(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK));
    }
    return m_alarm.number() >= 0;
}

void transfer_sockets::ring() noexcept {
    ::eventfd_write(m_alarm.number(), 1);
}

int transfer_sockets::open(const curl_sockaddr& address) {
    return ::socket(address.family, address.socktype | SOCK_CLOEXEC | SOCK_NONBLOCK, address.protocol);
}

}  // namespace kro::tessel::os
