#include "progress.h"

#include "standard_streams.h"

#include <fmt/core.h>

#include <cstdio>

namespace command {
namespace {

constexpr unsigned k_timer_id = 1;
constexpr unsigned k_period_ms = 100;
constexpr double k_mebibyte = 1024.0 * 1024.0;

}  // namespace

progress_line::progress_line(const batch& requests)
    : m_requests(requests), m_shown(errors_go_to_a_terminal()) {
    if (m_shown) {
        const kro::tessel::delegate::FastDelegate1<unsigned int> repaint(this, &progress_line::paint);
        kro::tessel::timer::_addtimer(k_timer_id, k_period_ms, repaint);
    }
}

progress_line::~progress_line() {
    if (m_shown) {
        kro::tessel::timer::_killtimer(k_timer_id);
        clear();
    }
}

void progress_line::clear() const {
    if (m_shown) {
        fmt::print(stderr, "\r\x1b[K");
    }
}

void progress_line::paint(unsigned /*timer*/) {
    fmt::print(stderr, "\r\x1b[K{} of {} finished, {} running, {:.1f} MiB", m_requests.finished(),
               m_requests.total(), m_requests.running(),
               static_cast<double>(m_requests.received_bytes()) / k_mebibyte);
}

}  // namespace command
