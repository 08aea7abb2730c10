// The asynchronous engine, as a host uses it in its own loop, beside plain libcurl in the same run.
//
//   engine_bench [--rounds N] [--requests N] [--mib N] [--limit N] [name ...]
//   names: 64 1 10000 known chunked memory
//   N of --limit: connections at a time, the library's own number unless given

#include "os/inet.h"

#include "support/bench_server.h"
#include "support/curl_client.h"
#include "support/measuring.h"
#include "tessel/tessel.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace tessel_bench;
using namespace kro::tessel;

class engine_client {
public:
    engine_client() {
        http::http_init();
        s_self = this;
    }
    engine_client(const engine_client&) = delete;
    engine_client& operator=(const engine_client&) = delete;
    ~engine_client() { s_self = nullptr; }

    void run(const std::string& url, int total, int in_flight, std::size_t body_bytes) {
        m_url = CTString(wide_string(url.begin(), url.end()));
        m_total = total;
        m_body_bytes = body_bytes;
        m_started = m_ended = 0;
        while (m_started < std::min(in_flight, total)) {
            start();
        }
        message_loop::run();
    }

private:
    void start() {
        ++m_started;
        if (http::invoke2(m_url, m_headers, nullptr, 0, 0, on_complete, 0, http_method_get) == nullptr) {
            std::fprintf(stderr, "the engine: no request, error %lu\n", get_last_error());
            std::exit(1);
        }
    }

    static void on_complete(unsigned long /*user_context*/, http::session_context* context) {
        engine_client& self = *s_self;
        if (context->content == nullptr || context->content->size != self.m_body_bytes) {
            std::fprintf(stderr, "the engine: request failed with %u\n", context->async_error);
            std::exit(1);
        }
        http::http_session::mgr().remove(context);
        if (++self.m_ended == self.m_total) {
            message_loop::quit();
        } else if (self.m_started < self.m_total) {
            self.start();
        }
    }

    static inline engine_client* s_self = nullptr;
    CTString m_url;
    const CTString m_headers = TESSEL_W("X-Bench: 1");
    std::size_t m_body_bytes = 0;
    int m_total = 0;
    int m_started = 0;
    int m_ended = 0;
};

std::string server_url(const settings& how) {
    return "http://127.0.0.1:" + std::to_string(how.port);
}

void compare_requests(const settings& how, engine_client& engine, int in_flight) {
    curl_client plain;
    const int total = in_flight == 1 ? how.requests / 4 : how.requests;
    const std::string url = server_url(how) + "/small";
    const int beside = std::min(in_flight, 64);
    compare(how, std::to_string(in_flight), total, "req",
            {{"engine", [&] { engine.run(url, total, in_flight, 100); }, {}, {}},
             {"libcurl, " + std::to_string(beside) + " in flight",
              [&] { plain.run(url, total, beside, 100, 0); },
              {},
              {}},
             {"engine, " + std::to_string(beside) + " in flight",
              [&] { engine.run(url, total, beside, 100); },
              {},
              {}}});
}

void compare_bodies(const settings& how, engine_client& engine, const std::string& kind) {
    curl_client plain;
    const std::size_t bytes = how.mib << 20U;
    const std::string url = server_url(how) + '/' + kind + '/' + std::to_string(bytes);
    compare(how, kind, static_cast<double>(how.mib), "MiB",
            {{"engine", [&] { engine.run(url, 1, 1, bytes); }, {}, {}},
             {"libcurl, 16 KiB buffer", [&] { plain.run(url, 1, 1, bytes, 0); }, {}, {}},
             {"libcurl, 512 KiB buffer", [&] { plain.run(url, 1, 1, bytes, 512L * 1024); }, {}, {}}});
}

// To be measured before anything else is.
void report_peak_memory(const settings& how, engine_client& engine) {
    const std::size_t bytes = how.mib << 20U;
    engine.run(server_url(how) + "/known/" + std::to_string(bytes), 1, 1, bytes);
    rusage use{};
    ::getrusage(RUSAGE_SELF, &use);
    std::printf("memory     peak %.1f MiB for a body of %zu MiB: %.3f\n",
                static_cast<double>(use.ru_maxrss) / 1024, how.mib,
                static_cast<double>(use.ru_maxrss) / 1024 / static_cast<double>(how.mib));
}

}  // namespace

int main(int count, char** arguments) {
    const settings how = settings_of(count, arguments);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    if (how.limit != 0) {
        os::inet().set_connection_limit(how.limit);
    }
    engine_client engine;
    if (how.wants("memory")) {
        report_peak_memory(how, engine);  // first: the peak counts from the process's start
    }
    for (const int in_flight : {64, 1, 10'000}) {
        if (how.wants(std::to_string(in_flight))) {
            compare_requests(how, engine, in_flight);
        }
    }
    for (const char* const kind : {"known", "chunked"}) {
        if (how.wants(kind)) {
            compare_bodies(how, engine, kind);
        }
    }
    return 0;
}
