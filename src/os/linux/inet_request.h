// A request handle: the calls on it, and what the events of its exchanges make of them.
#pragma once

#include "os/linux/inet_entered_accounts.h"
#include "os/linux/inet_headers.h"
#include "os/linux/inet_outgoing.h"
#include "os/linux/inet_redirect.h"
#include "os/linux/inet_script_routes.h"
#include "os/linux/inet_session.h"
#include "os/linux/inet_window.h"
#include "os/linux/transfer.h"

#include <chrono>
#include <forward_list>
#include <memory>
#include <string>
#include <vector>

namespace kro::tessel::os {

/// Kept below 1,000 bytes, with what a shared pointer adds: larger blocks that come and go by the thousand
/// are sorted by the C library.
class inet_request final : public inet_node,
                           public transfer_sink,
                           public std::enable_shared_from_this<inet_request> {
public:
    /// turned: of a synchronous request, which runs on the threads that call it; null for an asynchronous
    /// one, which runs on `network`.
    inet_request(std::shared_ptr<inet_connection> parent, transfer_service& network,
                 std::unique_ptr<turned_transfers> turned, std::string verb, wide_view object,
                 std::uint32_t flags, std::uintptr_t context);

    const std::shared_ptr<inet_connection> connection;

    inet_status send(wide_view headers, const void* body, std::uint32_t body_bytes, inet_send_mode mode,
                     std::uintptr_t context);
    inet_status end(std::uintptr_t context);
    inet_read_status read(void* destination, std::uint32_t capacity, std::uintptr_t context);
    inet_read_status available();
    inet_status query_text(std::uint32_t what, std::uint32_t& index, wide_string& text) const;
    inet_status query_number(std::uint32_t what, std::uint32_t& number) const;

    /// Has notices delivered that came up while notice 60 was being delivered.
    void creation_announced();

    /// The response's status and what it says of who has to prove himself; for the dialogue.
    struct challenge {
        std::uint32_t status = 0;  ///< 0 without a response
        std::string host;          ///< the server's or, for 407, the proxy's, with its port
        std::string text;          ///< the headers that ask, joined
    };
    challenge challenge_of_response() const;
    /// The account that was sent to whoever asks, and the one that has been entered for him since. Those of
    /// the connection's own server and of the proxy to it are the connection's; a server or proxy that a
    /// redirect led to has one of its own, which no other is told.
    wide_account account_in_question(bool for_proxy) const;
    void take_account(bool for_proxy, const wide_account& entered);

private:
    enum class operation { none, send, send_whole, end, read, available };

    struct notice {
        std::uint32_t code = 0;
        std::uint32_t number = 0;
        inet_async_result result;
        std::uintptr_t context = 0;
        wide_string text;
    };

    // transfer_sink
    void on_stage(std::uint64_t tag, transfer_stage stage, std::string_view text) override;
    std::size_t on_body(std::uint64_t tag, std::uint64_t offset, char* out, std::size_t capacity) override;
    void on_sent(std::uint64_t tag, std::uint64_t bytes) override;
    void on_headers(std::uint64_t tag, std::string block) override;
    data_verdict on_data(std::uint64_t tag, const char* data, std::size_t bytes) override;
    std::optional<std::uint64_t> waited_for(std::uint64_t tag) override;
    void on_end(std::uint64_t tag, std::uint32_t error) override;
    void on_turn_end() override;

    last_words cease() override;
    void ceased() override;

    void tell(const notice& what);

    // All below need m_mutex held.
    inet_status begin_operation(operation what, std::uintptr_t context);
    inet_status refused_to_run(std::uint32_t error);
    std::shared_ptr<transfer> forget_exchange();
    outgoing first_hop() const;
    bool start_hop();
    void on_hop();
    bool ask_script(const proxy_script_question& question);
    void script_answered(std::uint64_t tag, const script_routes::proxies& proxies) noexcept;
    void use_proxies(const script_routes::proxies& proxies);
    bool tries_next_proxy(std::uint32_t error);
    void go_through(proxy_rules::route route);
    bool start_exchange();
    bool is_connections_own(bool proxy) const noexcept;
    wide_account account_of(bool proxy) const;
    std::string place_of(bool proxy) const;
    void fill_accounts(transfer_request& request) const;
    void queue(std::uint32_t code, std::uint32_t number = 0, wide_string text = {});
    void complete(std::uint32_t error, std::uint32_t bytes = 0);
    void complete_read();
    inet_status started(std::unique_lock<std::mutex>& lock);
    void wait_for_script(std::unique_lock<std::mutex>& lock);
    inet_read_status run_to_end(std::unique_lock<std::mutex>& lock);
    void queue_progress();
    void deliver(std::unique_lock<std::mutex>& lock);  ///< without the lock inside the callback
    bool waits_for_response() const noexcept;
    void respond();
    void publish(std::uint32_t error);
    void follow(redirect_decision decision);
    void response_failed(std::uint32_t error);
    void queue_closing();
    void grant_if_drained();
    bool connection_is_kept() const noexcept;
    inet_status readable() const noexcept;
    std::uint32_t query(std::uint32_t what, const std::string& name, std::uint32_t index,
                        std::string& value) const;
    std::uint32_t query_fixed(std::uint32_t what, std::string& value) const;
    std::uint32_t query_request(std::uint32_t what, const std::string& name, std::uint32_t index,
                                std::string& value) const;

    const std::unique_ptr<turned_transfers> m_turned;
    transfer_service& m_network;
    const std::string m_verb;
    const std::string m_target;
    const std::uint32_t m_flags;
    header_list m_headers;  // the caller's, kept from send to send

    operation m_operation = operation::none;
    bool m_operation_done = false;      // its notice 100 is on the list
    bool m_limits_stand_still = false;  // nobody waited when one was over
    bool m_turning = false;             // of a synchronous request: a call is inside the network
    bool m_is_to_release = false;       // by the close, since no call is there to do it
    std::uintptr_t m_operation_context = 0;
    std::chrono::steady_clock::time_point m_waits_since;
    inet_read_status m_outcome;      // and how its operation ended
    std::uint64_t m_body_given = 0;  // body bytes that the network has taken
    std::uint64_t m_body_told = 0;
    std::vector<notice> m_notices;
    std::size_t m_next_notice = 0;

    // The exchange: of the first hop, or of the last one after redirects.
    std::uint64_t m_tag = 0;  // 0 for none; events with another one are of the past
    std::uint64_t m_last_tag = 0;
    std::shared_ptr<transfer> m_transfer;
    std::shared_ptr<transfer> m_to_cancel;
    outgoing m_outgoing;
    const char* m_body = nullptr;
    std::uint32_t m_hops = 0;
    bool m_same_server = true;  // as the connection's, on all hops so far
    proxy_rules::route m_route;
    std::forward_list<std::string>
        m_other_proxies;        // of a script's answer, for when this one is out of reach
    std::string m_own_proxy;    // the first on the way
    entered_accounts m_others;  // of those that redirects led to
    bool m_asks_script = false;
    bool m_was_sent = false;
    bool m_two_steps = false;  // sent with `begin`
    bool m_resolving = false;
    bool m_connecting = false;
    bool m_sent = false;
    bool m_answered = false;
    bool m_published = false;  // the response may be asked for and read
    bool m_failed = false;     // the send or the end, without a response
    bool m_ended = false;
    bool m_paused = false;
    std::uint32_t m_error = 0;
    std::unique_ptr<redirect_decision> m_next;  // goes out when the old exchange has ended; mostly null
    std::size_t m_discarded = 0;
    message_head m_head;
    receive_window m_window;

    // The read that waits.
    char* m_destination = nullptr;
    std::uint32_t m_capacity = 0;
    std::uint32_t m_filled = 0;
};

}  // namespace kro::tessel::os
