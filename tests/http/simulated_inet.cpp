#include "http/simulated_inet.h"

#include "os/thread.h"

#include <algorithm>
#include <cstring>

namespace tessel_test {

using namespace kro::tessel::os;

// ---- the dice

void simulated_inet::make_response(node& request) {
    constexpr std::uint32_t statuses[] = {200, 200, 200, 200, 204, 301, 401, 404, 407, 503};
    constexpr std::size_t sizes[] = {0, 1, 100, 10238, 10239, 10240, 30000};
    request.status_code = m_chance.one_of(statuses);
    request.length_known = !m_chance.one_in(3);
    request.breaks_off = m_chance.one_in(12);
    request.body.assign(m_chance.one_of(sizes), static_cast<char>('a' + m_chance.below(26)));
    request.taken = 0;
    request.answered = true;
}

bool simulated_inet::complete_one() {
    std::vector<handle> waiting;
    for (const auto& [value, about] : m_nodes) {
        if (about.pending != operation::none) {
            waiting.push_back(value);
        }
    }
    if (waiting.empty()) {
        return false;
    }
    const handle request = waiting[m_chance.below(static_cast<std::uint32_t>(waiting.size()))];
    const operation what = m_nodes.at(request).pending;
    if (m_chance.one_in(3)) {
        complete(request, what);
    } else {
        m_threads.on_other([&] { complete(request, what); });
    }
    return true;
}

void simulated_inet::complete(handle request, operation what) {
    constexpr std::uint32_t errors[] = {12002, 12007, 12029, 12030, 12031, 12152};
    node& about = m_nodes.at(request);
    about.pending = operation::none;
    inet_async_result outcome{1, 0, 0};
    if (m_chance.one_in(10) || (what == operation::read && about.breaks_off && m_chance.one_in(2))) {
        outcome = {0, m_chance.one_of(errors), 0};
    } else if (what == operation::read) {
        outcome.bytes = take_body(about, about.destination, about.capacity);
    } else if (what == operation::end) {
        make_response(about);
    }
    call_back(request, about.context, k_notice_request_complete, &outcome);
}

std::uint32_t simulated_inet::take_body(node& request, void* destination, std::uint32_t capacity) {
    const std::size_t left = request.body.size() - request.taken;
    std::size_t count = std::min<std::size_t>(left, capacity);
    if (count > 1 && m_chance.one_in(3)) {
        count = 1 + m_chance.below(static_cast<std::uint32_t>(count));
    }
    std::memcpy(destination, request.body.data() + request.taken, count);
    request.taken += count;
    return static_cast<std::uint32_t>(count);
}

// ---- the service

simulated_inet::status simulated_inet::result(std::uint32_t error) {
    set_last_error(error);
    return {error};
}

simulated_inet::handle simulated_inet::make(handle parent, std::uintptr_t context) {
    const auto made = reinterpret_cast<handle>(m_next++);  // NOLINT(performance-no-int-to-ptr)
    m_nodes[made].parent = parent;
    m_nodes[made].context = context;
    return made;
}

simulated_inet::node* simulated_inet::find(handle request, const char* call) {
    const auto found = m_nodes.find(request);
    if (found == m_nodes.end()) {
        // A request may be closed by another thread just before: that is an error number, no fault.
        return nullptr;
    }
    if (found->second.pending != operation::none) {
        m_violations.push_back(std::string(call) + " while another operation is pending");
    }
    return &found->second;
}

simulated_inet::handle simulated_inet::open(std::uint32_t, text_view, text_view, text_view, bool) {
    result(0);
    return make(nullptr, 0);
}

simulated_inet::handle simulated_inet::connect(handle session, text_view, std::uint16_t, text_view, text_view,
                                               std::uintptr_t context) {
    if (m_chance.one_in(40)) {
        result(k_error_not_enough_memory);
        return nullptr;
    }
    const handle made = make(session, context);
    call_back(session, context, k_notice_handle_created, &made);
    result(0);
    return made;
}

simulated_inet::handle simulated_inet::open_request(handle connection, text_view, text_view, std::uint32_t,
                                                    std::uintptr_t context) {
    if (m_nodes.count(connection) == 0 || m_chance.one_in(40)) {
        result(k_error_invalid_handle);
        return nullptr;
    }
    const handle made = make(connection, context);
    call_back(connection, context, k_notice_handle_created, &made);
    result(0);
    return made;
}

simulated_inet::status simulated_inet::send(handle request, text_view, const void*, std::uint32_t,
                                            inet_send_mode, std::uintptr_t context) {
    node* const about = find(request, "send");
    if (about == nullptr || m_chance.one_in(30)) {
        return result(k_error_inet_incorrect_handle_state);
    }
    about->context = context;
    about->sent = true;
    about->answered = false;
    about->pending = operation::send;
    return result(k_error_io_pending);
}

simulated_inet::status simulated_inet::end(handle request, std::uintptr_t context) {
    node* const about = find(request, "end");
    if (about == nullptr || !about->sent) {
        return result(k_error_inet_incorrect_handle_state);
    }
    about->context = context;
    about->pending = operation::end;
    if (m_chance.one_in(3)) {
        complete(request, operation::end);  // its outcome is known already
    }
    return result(k_error_io_pending);
}

simulated_inet::read_status simulated_inet::read(handle request, void* destination, std::uint32_t capacity,
                                                 std::uintptr_t context) {
    node* const about = find(request, "read");
    if (about == nullptr || !about->answered || m_chance.one_in(40)) {
        return {result(k_error_inet_incorrect_handle_state), 0};
    }
    if (m_chance.one_in(2)) {
        const std::uint32_t bytes = take_body(*about, destination, capacity);
        return {result(0), bytes};
    }
    about->context = context;
    about->destination = destination;
    about->capacity = capacity;
    about->pending = operation::read;
    return {result(k_error_io_pending), 0};
}

simulated_inet::status simulated_inet::query_number(handle request, std::uint32_t what,
                                                    std::uint32_t& number) {
    node* const about = find(request, "query_number");
    if (about == nullptr) {
        return result(k_error_invalid_handle);
    }
    if (what == k_query_content_length && !about->length_known) {
        return result(k_error_http_header_not_found);
    }
    number =
        what == k_query_content_length ? static_cast<std::uint32_t>(about->body.size()) : about->status_code;
    return result(0);
}

std::uint32_t simulated_inet::dialog(void*, handle, std::uint32_t, std::uint32_t) {
    constexpr std::uint32_t answers[] = {0, k_error_cancelled_by_user, k_error_inet_force_retry};
    if (meanwhile != nullptr) {
        meanwhile();
    }
    const std::uint32_t answer = m_chance.one_of(answers);
    set_last_error(answer);
    return answer;
}

simulated_inet::status simulated_inet::close(handle which) {
    const auto found = m_nodes.find(which);
    if (found == m_nodes.end()) {
        m_violations.emplace_back("close of a handle that isn't open");
        return result(k_error_invalid_handle);
    }
    std::vector<handle> below;
    for (const auto& [value, about] : m_nodes) {
        if (about.parent == which) {
            below.push_back(value);
        }
    }
    std::for_each(below.rbegin(), below.rend(), [this](handle child) { close(child); });
    const node closed = m_nodes.at(which);
    m_nodes.erase(which);
    // What was pending ends in here, and a callback that had begun on the service's thread is waited for.
    const auto tell = [&] {
        if (closed.pending != operation::none) {
            const inet_async_result cancelled{0, k_error_inet_operation_cancelled, 0};
            call_back(which, closed.context, k_notice_request_complete, &cancelled);
        }
        call_back(which, closed.context, k_notice_handle_closing, &which);
    };
    if (m_chance.one_in(2)) {
        tell();
    } else {
        m_threads.on_other(tell);
    }
    return result(0);
}

std::string simulated_inet::body_of(handle request) const {
    const auto found = m_nodes.find(request);
    return found == m_nodes.end() ? std::string() : found->second.body;
}

}  // namespace tessel_test
