// How far a transfer is, on standard error: a bar that is repainted on a terminal, now and then a line
// elsewhere.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>

namespace command {

/// Bytes as a person reads them: "1.4 MiB".
std::string readable_bytes(double bytes);

class transfer_bar {
public:
    explicit transfer_bar(std::string name);
    transfer_bar(const transfer_bar&) = delete;
    transfer_bar& operator=(const transfer_bar&) = delete;
    ~transfer_bar() { clear(); }

    /// before: bytes that an earlier run has transferred; done, total: of this one, total 0 for unknown.
    void show(std::uint64_t before, std::uint64_t done, std::uint64_t total);
    void clear();  ///< before something else is written to the terminal

private:
    using clock = std::chrono::steady_clock;

    std::string line(std::uint64_t before, std::uint64_t done, std::uint64_t total) const;
    void measure(std::uint64_t done);

    const std::string m_name;
    const bool m_on_terminal;
    bool m_is_painted = false;
    clock::time_point m_shown;
    clock::time_point m_measured;
    std::uint64_t m_measured_bytes = 0;
    double m_rate = 0;  // bytes a second, smoothed; 0: not known yet
};

}  // namespace command
