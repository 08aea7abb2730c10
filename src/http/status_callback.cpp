// The service's notices. They only record results in the context and post: no step runs here.
#include "http/engine_state.h"
#include "http/helper_window.h"
#include "http/request_machine.h"
#include "tessel/base/trace.h"

namespace kro::tessel::http {
namespace {

void connection_created(session_context* context, const connection_cache::server& key,
                        os::inet_handle connection) {
    engine().connections.store(key, connection);
    const bool due = engine().live.change_live(context, [](request_slot& slot) {
        slot.context->state = state_opening;
        return slot.step_due = true;
    });
    if (due) {
        post_step(context);
        trace_message(trace_debug) << TESSEL_W("Connect handle created");
    }
}

void handle_created(session_context* context, os::inet_handle created) {
    bool is_connection = false;
    connection_cache::server key;
    const bool due = engine().live.change_live(context, [&](request_slot& slot) {
        session_context& record = *slot.context;
        if (record.state == state_connecting) {
            is_connection = true;
            key = {record.host_key, record.port};
            return false;
        }
        if (record.state != state_opening) {
            return false;
        }
        record.request = slot.request = created;
        record.state = state_sending;
        return slot.step_due = true;
    });
    if (is_connection) {
        connection_created(context, key, created);
    } else if (due) {
        post_step(context);
    }
}

void operation_completed(os::inet_handle handle, session_context* context,
                         const os::inet_async_result& result) {
    const bool due = engine().live.change_live(context, [&](request_slot& slot) {
        session_context& record = *slot.context;
        const bool waiting = record.state >= state_sending && record.state <= state_reading;
        if (slot.request != handle || !waiting) {
            return false;  // of an earlier start, whose handle is closed or about to be
        }
        record.async_result = static_cast<std::uint32_t>(result.result);
        record.async_error = result.error;
        if (record.state == state_reading) {
            record.buffers.dwBufferLength = result.bytes;
        }
        record.state = record.state == state_sending ? state_ending : state_reading;
        return slot.step_due = true;
    });
    if (due) {
        post_step(context);
    }
}

}  // namespace

void status_callback(os::inet_handle handle, std::uintptr_t value, std::uint32_t notice,
                     const void* information, std::uint32_t /*length*/) noexcept {
    auto* const context = reinterpret_cast<session_context*>(value);  // NOLINT(performance-no-int-to-ptr)
    trace_message(trace_debug) << TESSEL_W("Callback dwInternetStatus: ") << notice << TESSEL_W(" Context: ")
                               << static_cast<const void*>(context);
    if (!engine().live.contains(context)) {
        trace_message(trace_debug) << TESSEL_W("[httputil] invalid session!! ")
                                   << static_cast<const void*>(context);
        return;
    }
    if (notice == os::k_notice_handle_created) {
        handle_created(context, *static_cast<const os::inet_handle*>(information));
    } else if (notice == os::k_notice_request_complete) {
        operation_completed(handle, context, *static_cast<const os::inet_async_result*>(information));
    }
}

}  // namespace kro::tessel::http
