#include "transfer_bar.h"

#include "standard_streams.h"

#include <fmt/core.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <iterator>
#include <utility>

namespace command {
namespace {

using std::chrono::milliseconds;

constexpr milliseconds k_repaint{100};
constexpr milliseconds k_new_line{5000};
constexpr milliseconds k_measure{500};
constexpr double k_weight_of_new = 0.3;  // of a measured rate, beside the earlier ones
constexpr std::size_t k_bar_width = 24;

std::string bar(double share) {
    const auto full = static_cast<std::size_t>(share * static_cast<double>(k_bar_width));
    return '[' + std::string(full, '=') + std::string(k_bar_width - full, ' ') + "] ";
}

std::string readable_time(double seconds) {
    constexpr long k_minute = 60;
    constexpr long k_hour = 3600;
    constexpr double k_longest = 359999;
    const long whole = std::lround(std::min(seconds, k_longest));
    return whole < k_hour
               ? fmt::format("{}:{:02}", whole / k_minute, whole % k_minute)
               : fmt::format("{}:{:02}:{:02}", whole / k_hour, whole % k_hour / k_minute, whole % k_minute);
}

}  // namespace

std::string readable_bytes(double bytes) {
    constexpr double k_step = 1024;
    constexpr const char* k_units[] = {"bytes", "KiB", "MiB", "GiB", "TiB"};
    std::size_t unit = 0;
    for (; bytes >= k_step && unit + 1 < std::size(k_units); ++unit) {
        bytes /= k_step;
    }
    return fmt::format(unit == 0 ? "{:.0f} {}" : "{:.1f} {}", bytes, k_units[unit]);
}

transfer_bar::transfer_bar(std::string name)
    : m_name(std::move(name)),
      m_on_terminal(errors_go_to_a_terminal()),
      m_shown(clock::now()),
      m_measured(m_shown) {}

void transfer_bar::show(std::uint64_t before, std::uint64_t done, std::uint64_t total) {
    measure(done);
    const auto now = clock::now();
    if (now - m_shown < (m_on_terminal ? k_repaint : k_new_line)) {
        return;
    }
    m_shown = now;
    if (m_on_terminal) {
        fmt::print(stderr, "\r\x1b[K{}", line(before, done, total));
        m_is_painted = true;
    } else {
        fmt::print(stderr, "tessel: {}: {}\n", m_name, line(before, done, total));
    }
}

void transfer_bar::clear() {
    if (std::exchange(m_is_painted, false)) {
        fmt::print(stderr, "\r\x1b[K");
    }
}

void transfer_bar::measure(std::uint64_t done) {
    const auto now = clock::now();
    if (done < m_measured_bytes) {  // sent again from its beginning
        m_measured_bytes = done;
        m_measured = now;
    }
    if (now - m_measured < k_measure) {
        return;
    }
    const double seconds = std::chrono::duration<double>(now - m_measured).count();
    const double rate = static_cast<double>(done - m_measured_bytes) / seconds;
    m_rate = m_rate == 0 ? rate : m_rate + (rate - m_rate) * k_weight_of_new;
    m_measured = now;
    m_measured_bytes = done;
}

std::string transfer_bar::line(std::uint64_t before, std::uint64_t done, std::uint64_t total) const {
    const auto here = static_cast<double>(before + done);
    const auto whole = static_cast<double>(before + total);
    std::string text;
    if (total != 0) {
        const double share = std::min(here / whole, 1.0);
        text = fmt::format("{}{:3.0f}%  {} of {}", m_on_terminal ? bar(share) : "", share * 100,
                           readable_bytes(here), readable_bytes(whole));
    } else {
        text = readable_bytes(here);
    }
    if (m_rate > 0) {
        text += fmt::format("  {}/s", readable_bytes(m_rate));
        if (total > done) {
            text += fmt::format("  {} left", readable_time(static_cast<double>(total - done) / m_rate));
        }
    }
    return text;
}

}  // namespace command
