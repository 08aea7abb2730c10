// Where scripts for proxies come from: a web server or a file.
#pragma once

#include <chrono>
#include <string>

namespace kro::tessel::os {

struct fetched_script {
    bool fetched = false;
    std::string text;  ///< the script, else why there is none
};

/// No script is larger.
inline constexpr std::size_t k_largest_script = 4U << 20U;

/// Fetches a script by http, https or file, never through a proxy.
fetched_script fetch_script(const std::string& url, std::chrono::milliseconds limit);

/// Remembers the last script, so that not each question fetches it anew.
class script_source {
public:
    explicit script_source(std::chrono::milliseconds limit) : m_limit(limit) {}

    /// is_new: out: it isn't the text that the last call gave.
    const fetched_script& get(const std::string& url, bool& is_new);

private:
    bool is_fresh() const;

    const std::chrono::milliseconds m_limit;
    std::string m_url;
    fetched_script m_script;
    std::chrono::steady_clock::time_point m_fetched_at;
};

}  // namespace kro::tessel::os
