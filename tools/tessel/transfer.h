// One synchronous transfer over all routes to its server, watched: how far it is, interrupts, and a limit to
// standing still.
#pragma once

#include <tessel/tessel.h>

#include "transfer_bar.h"

#include <chrono>
#include <cstdint>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

namespace command {

struct transfer_request {
    http_method_t method = http_method_get;
    std::string url;
    std::string headers;  ///< lines separated by CR LF
    std::string body;
    bool gzip = false;            ///< ask for a compressed body, and decompress it
    std::uint32_t timeout = 300;  ///< seconds without a byte after which it is given up
    bool shows_upload = false;    ///< which direction the bar shows
    std::uint64_t resumed = 0;    ///< bytes that are there already, for the bar
};

struct route_attempt {
    std::string route;        ///< "direct", or "proxy HOST:PORT"
    std::uint32_t error = 0;  ///< 0 for the one that worked
};

struct transfer_result {
    std::uint32_t error = 0;   ///< 0: answered in full, whatever the status
    std::uint32_t status = 0;  ///< of HTTP, 0 when there was no answer
    int interrupted = 0;       ///< the exit code that tells of an interrupt, 0 without one
    bool stood_still = false;
    /// When the connection ended before all of the body had come: how much it was, and how much of it came.
    std::optional<std::uint64_t> announced;
    std::uint64_t received = 0;
    std::vector<route_attempt> attempts;
    std::chrono::milliseconds took{};

    std::string route() const { return attempts.empty() ? std::string() : attempts.back().route; }
};

class transfer : public kro::tessel::http::CLumHttpClient {
public:
    using head_handler = std::function<void(const kro::tessel::http::response_head&)>;
    using body_handler = std::function<void(const void* data, std::uint32_t size)>;

    /// body: gets the body piece by piece; empty: it is kept, see content.
    explicit transfer(const transfer_request& request, head_handler head = {}, body_handler body = {});

    transfer_result run();
    /// Ends it; from any thread, and from the handlers.
    void stop() const { m_cancel.cancel(); }
    /// The body that was kept; null for none.
    const kro::tessel::http::_buffer_content* content();

    void on_completed(kro::tessel::http::http_session* session, unsigned long action,
                      const kro::tessel::http::http_response* response) override;

private:
    void take_head(const kro::tessel::http::response_head& head);
    void notice_missing_bytes();
    void show(const kro::tessel::http::transfer_progress& progress);

    const transfer_request& m_request;
    const head_handler m_head;
    const body_handler m_body;
    const kro::tessel::http::cancel_flag m_cancel;
    transfer_bar m_bar;
    std::function<void()> m_moved;
    transfer_result m_result;
    bool m_is_over = false;
    std::optional<std::uint64_t> m_announced;  // bytes of the response's body on the wire
    std::uint64_t m_received = 0;
    const kro::tessel::http::http_response* m_response = nullptr;
};

/// The value of a header in a response's head; empty without one.
std::string header_in(const kro::tessel::http::response_head& head, const std::string& name);

/// The number that the digits say; nothing when they are none.
std::optional<std::uint64_t> number_of(const std::string& digits);

/// Says on standard error what went wrong with a transfer, if anything did. what: in place of the error's own
/// text, if not empty. Returns the exit code.
int complain_about(const transfer_request& request, const transfer_result& result,
                   const std::string& what = {});

/// The members that every transfer's line of JSON has.
nlohmann::ordered_json json_of(const transfer_request& request, const transfer_result& result,
                               std::uint64_t bytes);

}  // namespace command
