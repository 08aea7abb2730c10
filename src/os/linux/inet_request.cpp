#include "os/linux/inet_request.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace kro::tessel::os {
namespace {

// The body of a redirect is read past, so that its connection can be used again, but not further than this.
constexpr std::size_t k_max_discarded_bytes = std::size_t{64} * 1024;

std::uint32_t counted(std::uint64_t bytes) noexcept {
    return static_cast<std::uint32_t>(std::min<std::uint64_t>(bytes, 0xFFFFFFFFU));
}

std::uint32_t limit_of(std::uint32_t milliseconds) noexcept {
    return milliseconds == 0xFFFFFFFFU ? 0 : milliseconds;
}

}  // namespace

inet_request::inet_request(std::shared_ptr<inet_connection> parent, transfer_service& network,
                           std::unique_ptr<turned_transfers> turned, std::string verb, wide_view object,
                           std::uint32_t flags, std::uintptr_t context)
    : inet_node(handle_kind::request, parent, context),
      connection(std::move(parent)),
      m_turned(std::move(turned)),
      m_network(m_turned == nullptr ? network : *m_turned),
      m_verb(std::move(verb)),
      m_target(escaped_target(object)),
      m_flags(flags) {}

// ---- calls

inet_status inet_request::begin_operation(operation what, std::uintptr_t context) {
    m_operation = what;
    m_operation_context = context;
    m_operation_done = false;
    m_waits_since = std::chrono::steady_clock::now();
    if (std::exchange(m_limits_stand_still, false) && m_transfer != nullptr) {
        m_network.limits_begin_anew(m_transfer);
    }
    return {k_error_io_pending};
}

inet_status inet_request::refused_to_run(std::uint32_t error) {
    m_operation = operation::none;
    m_failed = true;
    m_notices.clear();
    return {error};
}

std::shared_ptr<transfer> inet_request::forget_exchange() {
    m_tag = 0;
    m_hops = 0;
    m_same_server = true;
    m_own_proxy.clear();
    m_sent = m_answered = m_published = m_failed = m_ended = m_paused = false;
    m_next = nullptr;
    m_limits_stand_still = m_asks_script = false;
    m_error = 0;
    m_head = {};
    m_window.clear();
    return std::exchange(m_transfer, nullptr);
}

outgoing inet_request::first_hop() const {
    outgoing what;
    what.verb = m_verb;
    what.address.secure = (m_flags & k_request_secure) != 0;
    what.address.host = connection->ascii_host.value_or(std::string());
    what.address.port = connection->port != 0 ? connection->port : (what.address.secure ? 443 : 80);
    what.address.target = m_target;
    what.flags = m_flags;
    what.agent = connection->session->agent;
    what.headers = m_headers;
    return what;
}

inet_status inet_request::send(wide_view headers, const void* body, std::uint32_t body_bytes,
                               inet_send_mode mode, std::uintptr_t context) {
    if (body == nullptr && body_bytes != 0) {
        return {k_error_invalid_parameter};
    }
    std::unique_lock lock(m_mutex);
    if (m_closed) {
        return {k_error_inet_incorrect_handle_type};
    }
    if (m_operation != operation::none) {
        return {k_error_inet_request_pending};
    }
    if (const auto old = forget_exchange()) {
        m_network.cancel(old);
    }
    m_headers.merge(headers);
    m_body = static_cast<const char*>(body);
    m_outgoing = first_hop();
    m_outgoing.body_bytes = body_bytes;
    m_body_given = m_body_told = 0;
    m_was_sent = true;
    m_two_steps = mode == inet_send_mode::begin;
    begin_operation(m_two_steps ? operation::send : operation::send_whole, context);
    if (m_outgoing.address.host.empty()) {
        response_failed(k_error_inet_name_not_resolved);
        const bool told = m_turned != nullptr || in_callback() || m_network.wake(shared_from_this());
        return told ? started(lock) : refused_to_run(k_error_inet_async_thread_failed);
    }
    return start_hop() ? started(lock) : refused_to_run(k_error_inet_async_thread_failed);
}

// What a call answers whose operation has begun.
inet_status inet_request::started(std::unique_lock<std::mutex>& lock) {
    return m_turned == nullptr ? inet_status{k_error_io_pending} : run_to_end(lock).status;
}

// Runs the exchange on the calling thread until its operation is done or the handle closed. Another call may
// close it at any moment; this one lets go of the network then, and the close doesn't wait for that.
inet_read_status inet_request::run_to_end(std::unique_lock<std::mutex>& lock) {
    const auto self = shared_from_this();
    m_turning = true;
    while (!m_closed && !m_operation_done) {
        if (m_asks_script) {
            wait_for_script(lock);
            continue;
        }
        lock.unlock();
        const bool goes_on = m_turned->turn();
        lock.lock();
        queue_progress();
        deliver(lock);
        if (!goes_on && !m_operation_done && !m_closed) {
            complete(k_error_inet_shutdown);
        }
    }
    deliver(lock);
    if (m_closed || m_transfer == nullptr) {
        lock.unlock();
        m_turned->release();  // before another call may begin, which would have it taken away
        lock.lock();
    }
    m_turning = false;
    m_operation = operation::none;
    return m_closed ? inet_read_status{{k_error_inet_operation_cancelled}} : m_outcome;
}

bool inet_request::start_exchange() {
    transfer_request request;
    request.tag = m_tag = ++m_last_tag;
    compose(m_outgoing, request);
    request.wants_stages = m_operation_context != 0;  // they are told in notices only
    request.wants_sent = request.wants_stages || m_two_steps;
    fill_accounts(request);
    request.limits = {limit_of(timeout_held(inet_timeout::connect)),
                      limit_of(timeout_held(inet_timeout::send)),
                      limit_of(timeout_held(inet_timeout::receive))};
    m_resolving = m_connecting = m_sent = m_answered = m_ended = m_paused = false;
    m_error = 0;
    m_discarded = 0;
    m_transfer = m_network.submit(shared_from_this(), std::move(request));
    return m_transfer != nullptr;
}

inet_status inet_request::end(std::uintptr_t context) {
    std::unique_lock lock(m_mutex);
    if (m_closed) {
        return {k_error_inet_incorrect_handle_type};
    }
    if (m_operation != operation::none) {
        return {k_error_inet_request_pending};
    }
    const inet_status pending = begin_operation(operation::end, context);
    if (!m_was_sent || !m_two_steps || m_published) {
        complete(k_error_inet_incorrect_handle_state);
    } else if (!m_sent) {
        complete(k_error_inet_operation_cancelled);  // the send had failed
    } else if (m_answered) {
        respond();
    } else if (m_ended) {
        response_failed(m_error);
    }
    if (m_turned != nullptr) {
        return run_to_end(lock).status;
    }
    // What is known already is told here: to have it told by the service thread would cost two more
    // changes of threads, a third of the time of a short request.
    deliver(lock);
    return pending;
}

inet_status inet_request::readable() const noexcept {
    if (m_closed) {
        return {k_error_inet_incorrect_handle_type};
    }
    if (m_operation != operation::none) {
        return {k_error_inet_request_pending};
    }
    return {m_published ? 0 : k_error_inet_incorrect_handle_state};
}

inet_read_status inet_request::read(void* destination, std::uint32_t capacity, std::uintptr_t context) {
    if (destination == nullptr && capacity != 0) {
        return {{k_error_invalid_parameter}};
    }
    std::unique_lock lock(m_mutex);
    if (const inet_status state = readable(); !state.ok()) {
        return {state};
    }
    auto* const out = static_cast<char*>(destination);
    const auto bytes = static_cast<std::uint32_t>(m_window.take(out, capacity));
    grant_if_drained();
    if (bytes == capacity) {
        return {{0}, bytes};
    }
    if (m_ended) {
        return {{m_error}, bytes};
    }
    m_destination = out;
    m_capacity = capacity;
    m_filled = bytes;
    const inet_status pending = begin_operation(operation::read, context);
    return m_turned == nullptr ? inet_read_status{pending} : run_to_end(lock);
}

inet_read_status inet_request::available() {
    std::unique_lock lock(m_mutex);
    if (const inet_status state = readable(); !state.ok()) {
        return {state};
    }
    if (m_window.size() != 0) {
        return {{0}, counted(m_window.size())};
    }
    if (m_ended) {
        return {{m_error}};
    }
    const inet_status pending = begin_operation(operation::available, context());
    return m_turned == nullptr ? inet_read_status{pending} : run_to_end(lock);
}

void inet_request::grant_if_drained() {
    if (m_paused && m_window.size() <= receive_window::k_ceiling / 2) {
        m_paused = false;
        m_network.grant_window(m_transfer);
    }
}

// ---- notices

void inet_request::queue(std::uint32_t code, std::uint32_t number, wide_string text) {
    if (m_operation == operation::none || m_operation_context == 0) {
        return;
    }
    m_notices.push_back({code, number, {}, m_operation_context, std::move(text)});
}

void inet_request::complete(std::uint32_t error, std::uint32_t bytes) {
    m_failed = m_failed || (error != 0 && !m_published);
    if (m_turned != nullptr) {
        m_outcome = {{error}, bytes};
        m_operation_done = true;
        return;
    }
    if (m_operation_context == 0) {
        m_operation = operation::none;
        return;
    }
    queue(k_notice_request_complete);
    m_notices.back().result = {error == 0 ? std::uintptr_t{1} : 0, error, bytes};
    m_operation_done = true;
}

void inet_request::creation_announced() {
    if (context() == 0) {
        return;
    }
    const std::lock_guard lock(m_mutex);
    if (!m_notices.empty() && m_turned == nullptr) {
        m_network.wake(shared_from_this());
    }
}

// A caller that turns the network tells by itself.
void inet_request::on_turn_end() {
    std::unique_lock lock(m_mutex);
    deliver(lock);
}

void inet_request::deliver(std::unique_lock<std::mutex>& lock) {
    if (in_callback()) {
        return;  // whoever is in there goes on with what has come meanwhile
    }
    while (!m_closed && m_next_notice < m_notices.size()) {
        const notice next = std::move(m_notices[m_next_notice++]);
        if (next.code == k_notice_request_complete) {
            m_operation = operation::none;
        }
        enter_callback();
        lock.unlock();
        tell(next);
        lock.lock();
        leave_callback();
    }
    m_notices.clear();
    m_next_notice = 0;
}

void inet_request::tell(const notice& what) {
    switch (what.code) {
        case k_notice_request_complete:
            notify(what.context, what.code, &what.result, sizeof what.result);
            break;
        case k_notice_request_sent:
        case k_notice_response_received:
            notify(what.context, what.code, &what.number, sizeof what.number);
            break;
        default:
            if (what.text.empty()) {
                notify(what.context, what.code, nullptr, 0);
            } else {
                const auto length = static_cast<std::uint32_t>((what.text.size() + 1) * sizeof(wchar));
                notify(what.context, what.code, what.text.c_str(), length);
            }
    }
}

inet_node::last_words inet_request::cease() {
    last_words words;
    const bool is_told_of_its_end = m_turned == nullptr && m_operation != operation::none;
    words.context = is_told_of_its_end ? m_operation_context : 0;
    words.connection_closes = m_transfer != nullptr && m_sent;
    m_operation = operation::none;
    m_notices.clear();
    m_next_notice = 0;
    m_body = nullptr;
    m_destination = nullptr;
    m_tag = 0;
    m_to_cancel = std::exchange(m_transfer, nullptr);
    m_is_to_release = m_turned != nullptr && !m_turning;
    if (m_asks_script) {
        m_changed.notify_all();
    }
    return words;
}

void inet_request::ceased() {
    if (m_to_cancel != nullptr) {
        m_network.cancel(m_to_cancel);
        m_to_cancel = nullptr;
    }
    if (m_is_to_release) {
        m_turned->release();
    }
}

// ---- events of the exchange

void inet_request::on_stage(std::uint64_t tag, transfer_stage stage, std::string_view text) {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag) {
        return;
    }
    switch (stage) {
        case transfer_stage::resolving:
            if (!m_resolving) {
                m_resolving = true;
                queue(k_notice_resolving_name, 0, widen(m_outgoing.address.host));
            }
            break;
        case transfer_stage::connecting:
            if (m_resolving) {
                queue(k_notice_name_resolved, 0, widen(text));
            }
            m_connecting = true;
            queue(k_notice_connecting, 0, widen(text));
            break;
        case transfer_stage::connected:
            m_connecting = false;
            queue(k_notice_connected);
            break;
    }
}

std::size_t inet_request::on_body(std::uint64_t tag, std::uint64_t offset, char* out, std::size_t capacity) {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag || m_body == nullptr) {
        return k_body_withdrawn;
    }
    const std::uint64_t left = m_outgoing.body_bytes - std::min(offset, m_outgoing.body_bytes);
    const auto bytes = static_cast<std::size_t>(std::min<std::uint64_t>(left, capacity));
    std::memcpy(out, m_body + offset, bytes);
    m_body_given = offset + bytes;
    return bytes;
}

// A large body on its way out, for whoever watches a synchronous request from inside its call.
void inet_request::queue_progress() {
    if (!m_sent && m_body_given > m_body_told && m_body_given < m_outgoing.body_bytes) {
        m_body_told = m_body_given;
        queue(k_notice_request_sent, counted(m_body_given));
    }
}

void inet_request::on_sent(std::uint64_t tag, std::uint64_t bytes) {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag) {
        return;
    }
    m_sent = true;
    queue(k_notice_sending_request);
    queue(k_notice_request_sent, counted(bytes));
    if (m_operation == operation::send) {
        complete(0);
    }
}

bool inet_request::waits_for_response() const noexcept {
    return (m_operation == operation::end || m_operation == operation::send_whole) && !m_operation_done;
}

void inet_request::on_headers(std::uint64_t tag, std::string block) {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag) {
        return;
    }
    m_head = message_head(std::move(block));
    m_answered = true;
    if (waits_for_response()) {
        respond();
    }
}

void inet_request::respond() {
    redirect_decision decision = decide_redirect(m_outgoing, m_head, m_hops);
    queue(k_notice_receiving_response);
    if (m_ended && decision.step != redirect_step::follow) {
        queue_closing();
    }
    queue(k_notice_response_received, counted(m_head.bytes()));
    if (decision.step == redirect_step::follow) {
        follow(std::move(decision));
    } else {
        publish(decision.error);
    }
}

void inet_request::publish(std::uint32_t error) {
    m_published = true;
    complete(error);
}

void inet_request::follow(redirect_decision decision) {
    queue(k_notice_redirect, 0, widen(decision.next.address.url()));
    m_window.clear();
    grant_if_drained();
    m_next = std::make_unique<redirect_decision>(std::move(decision));
    if (m_ended) {
        on_hop();
    }
}

void inet_request::on_hop() {
    const auto next = std::exchange(m_next, nullptr);
    m_same_server = m_same_server && next->same_server;
    m_outgoing = std::move(next->next);
    ++m_hops;
    if (!start_hop()) {
        response_failed(k_error_inet_async_thread_failed);
    }
}

// The exchange ended, or never began, without a response.
void inet_request::response_failed(std::uint32_t error) {
    if (m_connecting && error != k_error_inet_cannot_connect && error != k_error_inet_timeout) {
        // The connection stood, but its certificate or handshake was no good.
        queue(k_notice_connected);
        queue(k_notice_closing_connection);
        queue(k_notice_connection_closed);
    }
    m_connecting = false;
    complete(error != 0 ? error : k_error_http_invalid_server_response);
}

data_verdict inet_request::on_data(std::uint64_t tag, const char* data, std::size_t bytes) {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag) {
        return data_verdict::unwanted;
    }
    if (m_next != nullptr) {
        m_discarded += bytes;
        return m_discarded <= k_max_discarded_bytes ? data_verdict::taken : data_verdict::unwanted;
    }
    const bool reading = m_operation == operation::read && !m_operation_done;
    if (!reading) {
        // A caller that turns the network by itself reads soon, and mostly into its own memory.
        const std::size_t ceiling =
            m_turned == nullptr ? receive_window::k_ceiling : receive_window::k_ceiling / 4;
        if (!m_window.has_room_for(bytes, ceiling)) {
            m_paused = true;
            return data_verdict::full;
        }
        m_window.append(data, bytes);
        if (m_operation == operation::available && !m_operation_done) {
            complete(0, counted(m_window.size()));
        }
        return data_verdict::taken;
    }
    const std::size_t direct = std::min<std::size_t>(bytes, m_capacity - m_filled);
    std::memcpy(m_destination + m_filled, data, direct);
    m_filled += static_cast<std::uint32_t>(direct);
    if (direct < bytes) {
        m_window.append(data + direct, bytes - direct);
    }
    if (m_filled == m_capacity) {
        complete_read();
    }
    return data_verdict::taken;
}

void inet_request::complete_read() {
    queue(k_notice_receiving_response);
    if (m_ended) {
        queue_closing();
    }
    queue(k_notice_response_received, m_filled);
    m_destination = nullptr;
    complete(m_error, m_filled);
}

std::optional<std::uint64_t> inet_request::waited_for(std::uint64_t tag) {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag || m_operation == operation::none || m_operation_done) {
        m_limits_stand_still = m_limits_stand_still || tag == m_tag;
        return std::nullopt;
    }
    const auto waited = std::chrono::steady_clock::now() - m_waits_since;
    return std::chrono::duration_cast<std::chrono::milliseconds>(waited).count();
}

bool inet_request::connection_is_kept() const noexcept {
    if (m_error != 0 || m_head.has_token("Connection", "close")) {
        return false;
    }
    if (m_outgoing.verb == "HEAD" && m_outgoing.body_bytes != 0) {
        return false;
    }
    const bool keeps = m_head.version() == "HTTP/1.1" || m_head.has_token("Connection", "keep-alive");
    const bool bodyless = m_outgoing.verb == "HEAD" || m_head.status() == 204 || m_head.status() == 304;
    return keeps &&
           (bodyless || m_head.find("Content-Length") || m_head.has_token("Transfer-Encoding", "chunked"));
}

void inet_request::queue_closing() {
    if (!connection_is_kept()) {
        queue(k_notice_closing_connection);
        queue(k_notice_connection_closed);
    }
}

void inet_request::on_end(std::uint64_t tag, std::uint32_t error) {
    const std::lock_guard lock(m_mutex);
    if (tag != m_tag) {
        return;
    }
    m_ended = true;
    m_paused = false;
    m_transfer = nullptr;
    if (m_next != nullptr) {
        on_hop();
        return;
    }
    m_error = error;
    if (m_operation_done) {
        return;
    }
    switch (m_operation) {
        case operation::send:
        case operation::send_whole:
        case operation::end:
            if (!m_answered && !tries_next_proxy(error)) {
                response_failed(error);
            }
            break;
        case operation::read:
            complete_read();
            break;
        case operation::available:
            complete(error, 0);
            break;
        case operation::none:
            break;
    }
}

}  // namespace kro::tessel::os
