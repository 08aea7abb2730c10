// Runs many requests on the calling thread's loop, some of them at a time, and hands the results on in the
// order of the URLs.
#pragma once

#include <tessel/tessel.h>

#include "request_options.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace command {

/// How one request ended. `context` is lent while the result is handed over; null when it couldn't start.
struct request_result {
    std::size_t index = 0;    ///< of its URL
    std::uint32_t error = 0;  ///< 0: answered in full, whatever the status
    std::chrono::milliseconds took{};
    kro::tessel::http::session_context* context = nullptr;
};

/// One run of all URLs; one object at a time.
class batch {
public:
    using result_handler = std::function<void(const request_result&)>;

    batch(const request_options& options, result_handler on_result);
    batch(const batch&) = delete;
    batch& operator=(const batch&) = delete;
    ~batch();

    /// Returns when every result has been handed over. False: the engine can't be started on this thread.
    bool run();

    std::size_t total() const { return m_jobs.size(); }
    std::size_t running() const { return m_running; }
    std::size_t finished() const { return m_finished; }
    std::uint64_t received_bytes() const { return m_received_bytes; }  ///< in the bodies that are complete

private:
    using clock = std::chrono::steady_clock;
    enum class progress { waiting, running, finished, handed_over };
    struct job {
        progress state = progress::waiting;
        clock::time_point started;
        request_result result;
    };

    static void on_complete(unsigned long index, kro::tessel::http::session_context* context);
    void start_more();
    void start(std::size_t index);
    void finish(job& ended, std::uint32_t error);
    void hand_over();
    kro::tessel::http::session_context* start_request(std::size_t index) const;
    unsigned long flags() const;

    const request_options& m_options;
    const result_handler m_on_result;
    std::vector<job> m_jobs;
    std::size_t m_next_to_start = 0;
    std::size_t m_next_to_hand_over = 0;
    std::size_t m_running = 0;
    std::size_t m_finished = 0;
    std::uint64_t m_received_bytes = 0;
};

}  // namespace command
