#include "batch.h"

#include "text.h"

#include <memory>
#include <utility>

namespace command {
namespace {

namespace http = kro::tessel::http;
using kro::tessel::CTString;

using starting_call = http::session_context* (*)(const CTString& url, const CTString& headers,
                                                 const void* data, unsigned long data_len,
                                                 unsigned long flags, http::complete_procedure,
                                                 unsigned long user_context, http_method_t);

// A completion procedure gets a number of at least 32 bits: the index of the URL, not a pointer.
batch* g_batch = nullptr;

std::uint32_t last_error_or(std::uint32_t fallback) {
    const auto error = static_cast<std::uint32_t>(kro::tessel::get_last_error());
    return error == 0 ? fallback : error;
}

std::uint32_t error_of(const http::session_context& context) {
    constexpr std::uint32_t k_internal_error = 12004;
    if (context.state == http::state_done) {
        return 0;
    }
    return context.async_error != 0 ? context.async_error : last_error_or(k_internal_error);
}

}  // namespace

batch::batch(const request_options& options, result_handler on_result)
    : m_options(options), m_on_result(std::move(on_result)), m_jobs(options.urls.size()) {
    for (std::size_t i = 0; i < m_jobs.size(); ++i) {
        m_jobs[i].result.index = i;
    }
    g_batch = this;
}

batch::~batch() {
    for (const job& left : m_jobs) {
        if (left.result.context != nullptr) {
            http::http_session::mgr().remove(left.result.context);
        }
    }
    g_batch = nullptr;
}

bool batch::run() {
    if (!http::http_init()) {
        return false;
    }
    start_more();
    const auto done = [this] { return m_next_to_hand_over == m_jobs.size(); };
    kro::tessel::message_loop::run_until(done, 0xFFFFFFFFU);
    return true;
}

void batch::on_complete(unsigned long index, http::session_context* context) {
    job& ended = g_batch->m_jobs[index];
    ended.result.context = context;
    g_batch->m_received_bytes += http::get_buffer_content_count(context->content);
    --g_batch->m_running;
    g_batch->finish(ended, error_of(*context));
    g_batch->start_more();
}

void batch::start_more() {
    while (m_running < m_options.parallel && m_next_to_start < m_jobs.size()) {
        start(m_next_to_start++);
    }
}

void batch::start(std::size_t index) {
    job& starting = m_jobs[index];
    starting.state = progress::running;
    starting.started = clock::now();
    ++m_running;
    auto* context = start_request(index);
    if (context == nullptr) {
        --m_running;
        constexpr std::uint32_t k_invalid_url = 12005;  // an empty URL sets no error
        finish(starting, last_error_or(k_invalid_url));
    } else {
        starting.result.context = context;
    }
}

http::session_context* batch::start_request(std::size_t index) const {
    kro::tessel::set_last_error(0);
    const std::string& body = m_options.body;
    const bool has_proxy = !m_options.proxy_host.empty();
    // The one finds the proxy itself and starts, the other leaves both to us.
    const starting_call call = has_proxy ? http::prepare_session : starting_call{http::invoke2};
    auto* const made = call(from_utf8(m_options.urls[index]), from_utf8(m_options.headers), body.data(),
                            static_cast<unsigned long>(body.size()), flags(), on_complete,
                            static_cast<unsigned long>(index), m_options.method);
    if (made == nullptr || !has_proxy) {
        return made;
    }
    std::unique_ptr<http::session_context> context(made);
    context->proxy.set_type(http::proxy_http);
    context->proxy.set_server(from_utf8(m_options.proxy_host));
    context->proxy.set_port(m_options.proxy_port);
    const std::uint32_t error = http::init_session(context.get());
    if (error != 0) {
        kro::tessel::set_last_error(error);
        return nullptr;
    }
    return context.release();
}

unsigned long batch::flags() const {
    return (m_options.accept_gzip ? http::k_invoke_accept_gzip : 0UL) |
           (m_options.decode_gzip ? http::k_invoke_decode_gzip : 0UL);
}

void batch::finish(job& ended, std::uint32_t error) {
    ended.state = progress::finished;
    ended.result.error = error;
    ended.result.took = std::chrono::duration_cast<std::chrono::milliseconds>(clock::now() - ended.started);
    ++m_finished;
    hand_over();
}

/// Results leave in the order of the URLs: one that overtook another waits here.
void batch::hand_over() {
    while (m_next_to_hand_over < m_jobs.size() && m_jobs[m_next_to_hand_over].state == progress::finished) {
        job& next = m_jobs[m_next_to_hand_over++];
        next.state = progress::handed_over;
        m_on_result(next.result);
        if (next.result.context != nullptr) {
            http::http_session::mgr().remove(next.result.context);
            next.result.context = nullptr;
        }
    }
}

}  // namespace command
