// An exchange on one libcurl handle: its options, its callbacks, and the order of events that its sink
// sees. Used on the service thread only.
#pragma once

#include "os/linux/transfer.h"
#include "os/linux/transfer_header_guard.h"

#include <curl/curl.h>

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

inline constexpr std::uint64_t k_never = ~std::uint64_t{0};

class curl_exchange;
struct exchange_multi;
struct exchange_origin;

/// So long a connection that serves nobody is kept.
inline constexpr long k_idle_connection_seconds = 60;

/// The loop's notes about an exchange that runs.
struct exchange_place {
    std::size_t index = 0;  ///< among those that run
    exchange_multi* set = nullptr;
    exchange_origin* from = nullptr;  ///< null once its place there has been given to another
    bool sending = false;             ///< on the list of those whose request is going out
    std::uint64_t sent_due = 0;       ///< when to say that it went out
};

/// An exchange as the service keeps it, from submit on; waiting ones own no libcurl handle.
class curl_transfer final : public transfer {
public:
    curl_transfer(std::shared_ptr<transfer_sink> to, transfer_request what)
        : sink(std::move(to)), request(std::move(what)) {}

    std::shared_ptr<transfer_sink> sink;  ///< null once cancelled or ended
    transfer_request request;
    curl_exchange* exchange = nullptr;  ///< while it runs
    std::uint64_t told_in_turn = 0;     ///< the loop's note: the last turn in which the sink had an event
    bool sent_told = false;             ///< also when it is begun once more
    // Logs in with the user's Kerberos ticket: its account is of no use there.
    bool ticket_for_server = false;
    bool ticket_for_proxy = false;
    // The account takes the place of an Authorization header of the caller's, which was refused.
    bool account_for_server = false;
    bool account_for_proxy = false;
};

/// What an exchange needs of the loop that it runs in.
class exchange_host {
public:
    virtual ~exchange_host() = default;
    /// The moment that lies so many milliseconds ahead; the loop looks at deadlines then.
    virtual std::uint64_t deadline_in(std::uint32_t milliseconds) noexcept = 0;
    /// The sink had an event in this turn.
    virtual void told(curl_transfer& which) = 0;
    /// The request went out in this turn, or is going out: ask progress_sent at the turn's end.
    virtual void sending(curl_exchange& which) = 0;
    /// The socket that the handle waits for; -1 when there is none.
    virtual int socket_of(CURL* easy) noexcept = 0;
    virtual int open_socket(const curl_sockaddr& address) = 0;
    virtual void close_socket(int socket) noexcept = 0;
};

/// The file of trusted certificates that SSL_CERT_FILE named at the first call, as for other programs on
/// OpenSSL; empty for the system's own store.
const std::string& certificate_file();

class curl_exchange {
public:
    explicit curl_exchange(exchange_host& host);
    curl_exchange(const curl_exchange&) = delete;
    curl_exchange& operator=(const curl_exchange&) = delete;
    ~curl_exchange();

    exchange_place place;

    CURL* easy() const noexcept { return m_easy; }
    const std::shared_ptr<curl_transfer>& current() const noexcept { return m_transfer; }

    /// Takes a transfer and sets its options. False when libcurl refuses them.
    bool begin(std::shared_ptr<curl_transfer> what);
    /// Tells the sink how the exchange ended.
    void end(CURLcode code);
    /// The present wait is over: tells the sink and lets go of it. The transfer stays.
    void time_out();
    /// Lets the transfer go without a word to its sink.
    void detach() noexcept;

    /// The present wait begins anew.
    void restart_wait() noexcept;
    /// Resumes after a full window; its callbacks may run inside. An error ends the exchange, and nothing
    /// else tells of it.
    CURLcode resume();
    /// Something has come, or goes out: the present wait begins anew, but for that of a connection.
    void bytes_move() noexcept;
    /// At its deadline: whether somebody has waited as long as that. If not, another deadline is set, or none
    /// when nobody waits.
    bool is_waited_for();
    /// Whether the body moves although nothing was heard of its socket: the wait goes on then.
    bool still_sends() noexcept;
    /// Whether a failure is one for want of descriptors, which libcurl tells as others.
    void look_at_descriptors(CURLcode code);
    /// Reports the request as sent once it is, and waits for the response then. False while bytes are still
    /// to go out.
    bool progress_sent();

    bool sent_told() const noexcept { return m_transfer == nullptr || m_transfer->sent_told; }
    bool resolving() const noexcept { return m_resolving; }
    /// When the present wait is over, k_never when it has no limit.
    std::uint64_t deadline() const noexcept { return m_deadline; }
    /// Whether the handle may serve again; one that failed, knows an account or keeps something of its
    /// request may not.
    bool reusable() const noexcept { return m_reusable; }
    /// Whether it failed because the process has no descriptor left.
    bool starved() const noexcept { return m_starved; }
    /// Whether it failed only to be begun once more.
    bool wants_another_try() const noexcept { return m_starved || m_begins_anew; }

private:
    enum class kind { get, head, upload };
    enum class wait { nothing, connection, sending, receiving };

    static std::size_t on_header(char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t on_write(char* data, std::size_t size, std::size_t count, void* self);
    static std::size_t on_read(char* out, std::size_t size, std::size_t count, void* self);
    static int on_seek(void* self, curl_off_t offset, int origin);
    static int on_prerequest(void* self, char* address, char* local, int port, int local_port);
    static int on_resolver_start(void* resolver, void* reserved, void* self);
    static curl_socket_t on_open_socket(void* self, curlsocktype purpose, curl_sockaddr* address);
    static int on_close_socket(void* host, curl_socket_t socket);
    static CURLcode on_tls_context(CURL* easy, void* context, void* self);

    /// What `work` returns, or `failed` when memory runs out in it.
    template <class Result, class Work>
    Result guarded(Result failed, Work&& work) noexcept;

    void set_constant_options();
    bool set_request(const transfer_request& request);
    void set_cookies(bool uses_them);
    void wake_cookie_engine();
    void choose_cookies();
    void set_headers(std::string& lines);
    void set_accounts(const transfer_request& request);
    void note_logins(int status);
    void note_login(std::string_view where, const transfer_credentials& account, CURLINFO offered,
                    bool is_challenge);
    void set_text_option(CURLoption option, std::string& in_force, const std::string& wanted);
    void begin_wait(wait what) noexcept;
    std::uint32_t limit_of(wait what) const noexcept;
    bool header_line(std::string_view line);
    bool header_block_complete();
    bool wants_to_be_begun_anew(int status);
    bool asks_for_ticket(bool by_server);
    void report_stage(transfer_stage stage, std::string_view text);
    void report_sent();
    void report_headers();
    void end_with(std::uint32_t error);
    bool will_be_answered_by_libcurl(int status) const noexcept;
    bool awaits_head_only() const noexcept;
    data_verdict take_data(const char* data, std::size_t bytes);
    void connects_again();
    void connected();

    exchange_host& m_host;
    CURL* m_easy;
    header_guard m_header_guard;
    std::shared_ptr<curl_transfer> m_transfer;
    std::vector<curl_slist> m_header_list;
    curl_slist m_tunnel_header{};  // the caller's own for the proxy of a tunnel

    // The options in force, so that equal ones aren't set again.
    std::string m_verb;
    std::string m_proxy;
    bool m_closes_connection = false;
    kind m_kind = kind::get;
    bool m_has_cookies = false;
    bool m_reusable = true;

    // The exchange under way.
    wait m_wait = wait::nothing;
    std::uint64_t m_deadline = k_never;
    std::uint64_t m_body_offset = 0;
    std::uint64_t m_acknowledged = 0;  // bytes that the server had when that was last looked at
    std::string m_block;               // the response head that is being received
    std::size_t m_head_bytes = 0;      // of all heads of this exchange so far
    bool m_in_block = false;
    bool m_resolving = false;
    bool m_starved = false;
    bool m_begins_anew = false;  // ended before the response, to be begun once more with another login
    bool m_connecting_told = false;
    bool m_stages_over = false;  // later connections of the same exchange are libcurl's own affair
    bool m_connected = false;
    bool m_jar_has_cookie = false;  // in place of the caller's own
    bool m_headers_told = false;
    bool m_paused = false;
    bool m_out_of_memory = false;
};

}  // namespace kro::tessel::os
