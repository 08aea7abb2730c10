#include "os/inet.h"

#include "tessel/http/http_session.h"

namespace kro::tessel::http {

std::uint32_t http_session::run() {
    return os::k_error_inet_invalid_operation;
}

std::uint32_t http_session::runUpload() {
    return os::k_error_inet_invalid_operation;
}

std::uint32_t http_session::runDownload() {
    return os::k_error_inet_invalid_operation;
}

void http_session::set_watch(const transfer_watch& watch) {
    m_watch = std::make_shared<const transfer_watch>(watch);
}

}  // namespace kro::tessel::http
