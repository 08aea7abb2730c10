// One HTTP exchange (a request out, a response in): what the requests of the HTTP service need of the
// network. transfer_loop.cpp carries exchanges out with libcurl; tests script them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace kro::tessel::os {

/// How far an exchange has come before its request goes out.
enum class transfer_stage { resolving, connecting, connected };

/// What a sink says to bytes of a body.
enum class data_verdict {
    taken,
    full,      ///< none was taken: offer them again after grant_window
    unwanted,  ///< end the exchange
};

/// Time-outs in milliseconds; 0 is none. Each runs for one wait: from the start to the connection, and
/// anew with every byte that is sent or received; and only while somebody waits for the exchange.
struct transfer_limits {
    std::uint32_t connect = 0;
    std::uint32_t send = 0;
    std::uint32_t receive = 0;
};

struct transfer_credentials {
    std::string user;
    std::string password;

    bool given() const noexcept { return !user.empty() || !password.empty(); }
};

struct transfer_request {
    std::uint64_t tag = 0;  ///< chosen by the owner, comes back with every event
    std::string verb;
    std::string url;           ///< absolute: scheme, host, port, path and query; no spaces or controls
    std::string origin;        ///< exchanges of one origin share its connections and their limit
    std::string header_lines;  ///< "Name: value" each, every one ended by a zero byte
    bool has_body = false;
    std::uint64_t body_bytes = 0;
    std::string proxy;  ///< "host:port", empty for none
    transfer_credentials server;
    transfer_credentials proxy_account;
    bool ignore_cert_dates = false;
    bool ignore_cert_name = false;
    bool closes_connection = false;  ///< the connection serves nobody else afterwards
    bool uses_cookies = true;        ///< sends those of the process's jar, and keeps what comes
    bool wants_stages = true;        ///< whether on_stage is to be called
    bool wants_sent = true;          ///< whether on_sent is to be called before the response has come
    transfer_limits limits;
};

inline constexpr std::size_t k_body_withdrawn = static_cast<std::size_t>(-1);

/// Receives the events of an exchange. All come on one thread, in this order: stages, on_sent,
/// on_headers, on_data ..., on_end; on_end comes once, unless the exchange was cancelled. Events of a
/// cancelled exchange may still come: the tag tells. Events must not call the host; on_turn_end may.
class transfer_sink {
public:
    virtual ~transfer_sink() = default;

    /// text: the name or address that the stage is about.
    virtual void on_stage(std::uint64_t tag, transfer_stage stage, std::string_view text) = 0;
    /// Copies body bytes from `offset` on. Returns their number, or k_body_withdrawn to give up.
    virtual std::size_t on_body(std::uint64_t tag, std::uint64_t offset, char* out, std::size_t capacity) = 0;
    /// The whole request has been handed to the system. bytes: head and body.
    virtual void on_sent(std::uint64_t tag, std::uint64_t bytes) = 0;
    /// The final response's status line and headers, as received, with the empty line that ends them.
    virtual void on_headers(std::uint64_t tag, std::string block) = 0;
    virtual data_verdict on_data(std::uint64_t tag, const char* data, std::size_t bytes) = 0;
    /// For how many milliseconds somebody has been waiting for the exchange; nothing when nobody does. Asked
    /// when a time-out seems to be over. After nothing none runs until `limits_begin_anew`.
    virtual std::optional<std::uint64_t> waited_for(std::uint64_t tag) = 0;
    /// error: 0, or the number that the exchange failed with.
    virtual void on_end(std::uint64_t tag, std::uint32_t error) = 0;
    /// Comes after the events of one turn of the service thread, and after wake.
    virtual void on_turn_end() = 0;
};

/// An exchange under way. Nothing to call: it names the exchange to the service.
class transfer {
public:
    virtual ~transfer() = default;
};

/// Runs exchanges. Every function may be called from any thread, events of a sink included, and returns
/// without waiting.
class transfer_service {
public:
    virtual ~transfer_service() = default;

    /// Starts an exchange. Null when there is no service thread (no memory, or the process is ending).
    virtual std::shared_ptr<transfer> submit(std::shared_ptr<transfer_sink> sink,
                                             transfer_request&& request) = 0;
    /// Goes on after data_verdict::full.
    virtual void grant_window(const std::shared_ptr<transfer>& which) = 0;
    virtual void cancel(const std::shared_ptr<transfer>& which) = 0;
    /// Its sink has said that nobody waits; now somebody does, and the whole time-out lies ahead.
    virtual void limits_begin_anew(const std::shared_ptr<transfer>& which) = 0;
    /// Has on_turn_end called. False when there is no service thread.
    virtual bool wake(std::shared_ptr<transfer_sink> sink) = 0;
    /// How many exchanges of one origin run at a time; the others wait in order.
    virtual void set_connection_limit(std::uint32_t count) = 0;
};

transfer_service& system_transfers();  ///< on libcurl; lives until unload

/// The exchanges of one request, carried out on the threads that wait for them. One exchange at a time. Only
/// one thread is inside submit, turn or release; the rest may be called from any.
class turned_transfers : public transfer_service {
public:
    /// Sleeps until there is something to do, and does it: events come inside, on the calling thread, but for
    /// on_turn_end, which never comes. `cancel` and `wake` end the sleep. False when the process is ending
    /// or was forked: nothing will happen any more.
    virtual bool turn() = 0;
    /// Drops what is still under way and leaves the connections to whoever needs them next.
    virtual void release() = 0;
};

/// On libcurl, with connections that are handed from one request to the next.
std::unique_ptr<turned_transfers> make_turned_transfers();

}  // namespace kro::tessel::os
