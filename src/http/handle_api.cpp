// The flat functions by which hosts start and handle requests.
#include "os/code_page.h"
#include "os/inet.h"
#include "os/thread.h"

#include "base/text_conversion.h"
#include "http/engine_state.h"
#include "http/request_machine.h"
#include "tessel/base/trace.h"
#include "tessel/http/engine.h"
#include "tessel/proxy/proxy_util.h"

#include <cstring>
#include <limits>
#include <list>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

namespace kro::tessel::http {
namespace {

constexpr const wchar* k_default_headers =
    TESSEL_W("Content-Type: application/x-www-form-urlencoded;charset:utf-8");
constexpr const wchar* k_gzip_header = TESSEL_W("\r\nAccept-Encoding: gzip, deflate");

void trace_stranger(const wchar* message, const void* handle) {
    trace_message(trace_debug) << message << handle;
}

request_ref find_traced(void* handle, const wchar* message) {
    request_ref slot = engine().live.find(static_cast<session_context*>(handle));
    if (slot == nullptr) {
        trace_stranger(message, handle);
    }
    return slot;
}

// With the list locked: nobody can detach the context and destroy it meanwhile.
template <class Read>
void read_live(void* handle, const wchar* message, Read&& read) {
    const auto read_slot = [&read](const request_slot& slot) {
        read(*slot.context);
        return true;
    };
    if (!engine().live.change_live(static_cast<session_context*>(handle), read_slot)) {
        trace_stranger(message, handle);
    }
}

void copy_body(session_context& context, const void* data, std::uint32_t size) {
    auto* const copy = new unsigned char[size];
    delete[] static_cast<unsigned char*>(std::exchange(context.data, copy));
    if (size != 0) {
        std::memcpy(copy, data, size);
    }
    context.data_len = size;
}

struct start_outcome {
    std::uint32_t error;
    bool is_callers;  // the context is still the caller's
};

std::uint32_t start_guarded(const request_ref& slot) try {
    return request_machine(engine(), slot).start();
} catch (const std::bad_alloc&) {
    return os::k_error_not_enough_memory;
}

// Starts a context that isn't live yet. One that fails after it joined the live list is taken off again,
// unless another thread has ended it already: then it goes with its slot.
start_outcome start_new(session_context* context) {
    const auto slot = std::make_shared<request_slot>(context);
    const std::uint32_t error = start_guarded(slot);
    const bool taken_back = error != 0 && engine().live.take(context) == slot;
    bool is_callers = false;
    engine().live.change_locked([&] {
        if (taken_back) {
            slot->owns_context = false;
        }
        is_callers = !slot->owns_context;
    });
    return {error, is_callers};
}

// The first route that discovery knows; the later ones are for clients that try again.
void take_route(session_context& context) {
    std::list<proxy_info> routes;
    if (GetProxyUtil().GetProxyInfo(context.url, routes) == 0 || routes.empty() ||
        routes.front().server.empty()) {
        return;
    }
    const proxy_info& route = routes.front();
    trace_message(trace_debug) << TESSEL_W("[httputil] invoke2 use proxy ") << route.server << TESSEL_W(":")
                               << route.port << TESSEL_W(" ( ") << route.user << TESSEL_W("/")
                               << route.password << TESSEL_W(" )");
    context.proxy = route;
}

session_context* refuse(std::uint32_t error) {
    os::set_last_error(error);
    return nullptr;
}

constexpr std::size_t k_max_body = std::numeric_limits<std::uint32_t>::max();

bool is_bad_body(const void* data, unsigned long data_len) {
    return data_len > k_max_body || (data == nullptr && data_len != 0);
}

}  // namespace

session_context* prepare_session(const CTString& url, const CTString& headers, const void* data,
                                 unsigned long data_len, unsigned long flags,
                                 complete_procedure complete_proc, unsigned long user_context,
                                 http_method_t method) try {
    if (complete_proc == nullptr || url.empty()) {
        return nullptr;
    }
    if (is_bad_body(data, data_len)) {
        return refuse(os::k_error_invalid_parameter);
    }
    auto context = std::make_unique<session_context>();
    context->complete_proc = complete_proc;
    context->user_context = user_context;
    context->accept_gzip = (flags & k_invoke_accept_gzip) != 0;
    context->auto_decode_gzip = (flags & k_invoke_decode_gzip) != 0;
    context->headers = headers.empty() ? CTString(k_default_headers) : headers;
    if (context->accept_gzip) {
        context->headers += k_gzip_header;
    }
    context->method = method;
    context->url = url;
    copy_body(*context, data, static_cast<std::uint32_t>(data_len));
    return context.release();
} catch (const std::bad_alloc&) {
    return refuse(os::k_error_not_enough_memory);
}

session_context* invoke2(const CTString& url, const CTString& headers, const void* data,
                         unsigned long data_len, unsigned long flags, complete_procedure complete_proc,
                         unsigned long user_context, http_method_t method) try {
    std::unique_ptr<session_context> context(
        prepare_session(url, headers, data, data_len, flags, complete_proc, user_context, method));
    if (context == nullptr) {
        return nullptr;
    }
    take_route(*context);
    const start_outcome started = start_new(context.get());
    if (started.error == 0) {
        return context.release();  // the manager's, perhaps ended by another thread already: only a handle
    }
    if (!started.is_callers) {
        static_cast<void>(context.release());
    }
    return refuse(started.error);
} catch (const std::bad_alloc&) {
    return refuse(os::k_error_not_enough_memory);
}

session_context* invoke2(const CTString& url, const CTString& headers, const CTString& body,
                         unsigned long flags, complete_procedure complete_proc, unsigned long user_context,
                         http_method_t method) try {
    const std::string bytes = narrow(os::k_code_page_utf8, body);
    if (bytes.size() > k_max_body) {
        return refuse(os::k_error_invalid_parameter);
    }
    return invoke2(url, headers, bytes.data(), static_cast<unsigned long>(bytes.size()), flags, complete_proc,
                   user_context, method);
} catch (const std::length_error&) {  // more than a conversion can count
    return refuse(os::k_error_invalid_parameter);
} catch (const std::bad_alloc&) {
    return refuse(os::k_error_not_enough_memory);
}

std::uint32_t init_session(session_context* context) try {
    if (context == nullptr) {
        return os::k_error_invalid_parameter;
    }
    if (const request_ref slot = engine().live.find(context)) {
        return start_guarded(slot);
    }
    return start_new(context).error;
} catch (const std::bad_alloc&) {
    return os::k_error_not_enough_memory;
}

bool reinvoke(void* handle) {
    const request_ref slot = find_traced(handle, TESSEL_W("[httputil] reinvoke, invalid session!! "));
    if (slot == nullptr) {
        return false;
    }
    // Only the low byte of the code counts (kept: hosts test for "false", started).
    return static_cast<std::uint8_t>(start_guarded(slot)) != 0;
}

bool set_url(void* handle, const CTString& url) try {
    const request_ref slot = find_traced(handle, TESSEL_W("[httputil] set_url, invalid session!! "));
    if (slot == nullptr) {
        return false;
    }
    const std::lock_guard step(slot->step);
    if (engine().live.has_ended(*slot)) {
        return false;  // by another thread, since it was found
    }
    slot->context->url = url;
    return true;
} catch (const std::bad_alloc&) {
    return false;
}

void set_auto_delete(void* handle, bool auto_delete) {
    const request_ref slot = find_traced(handle, TESSEL_W("[httputil] set_auto_delete, invalid session!! "));
    if (slot != nullptr) {
        const std::lock_guard step(slot->step);
        if (!engine().live.has_ended(*slot)) {
            slot->context->auto_delete = auto_delete;
        }
    }
}

complete_procedure get_complete_proc(void* handle) {
    complete_procedure found = nullptr;
    read_live(handle, TESSEL_W("[httputil] get_complete_proc, invalid session!! "),
              [&found](const session_context& context) { found = context.complete_proc; });
    return found;
}

unsigned long get_user_context(void* handle) {
    unsigned long found = 0;
    read_live(handle, TESSEL_W("[httputil] get_user_context, invalid session!! "),
              [&found](const session_context& context) { found = context.user_context; });
    return found;
}

void* get_data(void* handle, unsigned long& len) {
    void* found = nullptr;
    read_live(handle, TESSEL_W("[httputil] get_data, invalid session!! "),
              [&found, &len](const session_context& context) {
                  found = context.data;
                  len = context.data_len;
              });
    return found;
}

}  // namespace kro::tessel::http
