// Synchronous sessions beside libcurl's easy interface in the same run: as a host would use either, sending
// the same headers. Ratios are the times of the other side over ours.
//
//   sync_bench [--rounds N] [--requests N] [--mib N] [--side TEXT] [name ...]
//   names: memory run download threads known chunked upload

#include "support/bench_server.h"
#include "support/curl_client.h"
#include "support/measuring.h"
#include "tessel/tessel.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <functional>
#include <string>
#include <thread>
#include <vector>

namespace {

using namespace tessel_bench;
using namespace kro::tessel;

constexpr int k_threads = 8;
constexpr long k_large_buffer = 512L * 1024;

const char* const k_agent = "User-Agent: Mozilla/4.0 (compatible; MSIE 6.0; Win32)";

CTString wide(const std::string& text) {
    return {wide_string(text.begin(), text.end())};
}

/// One session, used for one transfer after another.
class session_client {
public:
    session_client(const std::string& url, http::http_session::ACTION_TYPE action) {
        m_session.set_sync(true);
        m_session.set_url(wide(url));
        m_session.set_action_data(action);
    }
    void upload(const std::string& body) {
        m_session.set_method(http_method_put);
        m_session.set_data_to_post(body.data(), static_cast<unsigned>(body.size()));
    }
    void run(int total, std::size_t body_bytes) {
        for (int i = 0; i < total; ++i) {
            const bool ok = m_session.invoke();
            const http::http_response* const response = m_session.get_response();
            if (!ok || response == nullptr || response->get_buffer_content() == nullptr ||
                response->get_buffer_content()->size != body_bytes) {
                std::fprintf(stderr, "a session: transfer failed, error %lu\n", get_last_error());
                std::exit(1);
            }
        }
    }

private:
    http::http_session m_session;
};

/// One easy handle, used for one transfer after another.
class easy_client {
public:
    easy_client(const std::string& url, const std::vector<const char*>& headers) : m_easy(curl_easy_init()) {
        for (const char* const line : headers) {
            m_headers = curl_slist_append(m_headers, line);
        }
        curl_easy_setopt(m_easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(m_easy, CURLOPT_HTTPHEADER, m_headers);
        curl_easy_setopt(m_easy, CURLOPT_WRITEFUNCTION, keep_body);
        curl_easy_setopt(m_easy, CURLOPT_NOSIGNAL, 1L);
    }
    easy_client(const easy_client&) = delete;
    easy_client& operator=(const easy_client&) = delete;
    ~easy_client() {
        curl_easy_cleanup(m_easy);
        curl_slist_free_all(m_headers);
    }
    void use_large_buffers() {
        curl_easy_setopt(m_easy, CURLOPT_BUFFERSIZE, k_large_buffer);
        curl_easy_setopt(m_easy, CURLOPT_UPLOAD_BUFFERSIZE, k_large_buffer);
    }
    void upload(const std::string& body) {
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDS, body.data());
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(body.size()));
        curl_easy_setopt(m_easy, CURLOPT_CUSTOMREQUEST, "PUT");
    }
    void run(int total, std::size_t body_bytes) {
        for (int i = 0; i < total; ++i) {
            curl_body body;
            body.own.reset(new char[body_bytes]);
            body.data = body.own.get();
            body.capacity = body_bytes;
            curl_easy_setopt(m_easy, CURLOPT_WRITEDATA, &body);
            const CURLcode code = curl_easy_perform(m_easy);
            if (code != CURLE_OK || body.size != body_bytes) {
                std::fprintf(stderr, "libcurl: transfer failed: %s\n", curl_easy_strerror(code));
                std::exit(1);
            }
        }
    }

private:
    CURL* m_easy;
    curl_slist* m_headers = nullptr;
};

std::string server_url(const settings& how) {
    return "http://127.0.0.1:" + std::to_string(how.port);
}

const std::vector<const char*> k_run_headers{k_agent,
                                             "Content-Type: application/x-www-form-urlencoded;charset:utf-8",
                                             "Connection: close", "Cache-Control: no-cache", "Accept:"};
const std::vector<const char*> k_bare_headers{k_agent, "Cache-Control: no-cache", "Accept:"};
const std::vector<const char*> k_upload_headers{
    k_agent, "Cache-Control: no-cache", "Accept:", "Expect:", "Content-Type:", "Pragma:"};

// A connection each: they run out of ports when there are too many.
void compare_runs(const settings& how) {
    const std::string url = server_url(how) + "/small";
    const int total = how.requests / 10;
    session_client ours(url, http::http_session::action_run);
    easy_client easy(url, k_run_headers);
    compare(how, "run", total, "req",
            {{"session", [&] { ours.run(total, 100); }, {}, {}},
             {"easy, closing", [&] { easy.run(total, 100); }, {}, {}}});
}

void compare_downloads(const settings& how) {
    const std::string url = server_url(how) + "/small";
    session_client ours(url, http::http_session::action_download);
    easy_client easy(url, k_bare_headers);
    compare(how, "download", how.requests, "req",
            {{"session", [&] { ours.run(how.requests, 100); }, {}, {}},
             {"easy, reused", [&] { easy.run(how.requests, 100); }, {}, {}}});
}

template <class Client, class... Arguments>
std::function<void()> on_threads(int total, const Arguments&... arguments) {
    return [=] {
        std::vector<std::thread> threads;
        threads.reserve(k_threads);
        for (int i = 0; i < k_threads; ++i) {
            threads.emplace_back([=] { Client(arguments...).run(total / k_threads, 100); });
        }
        for (std::thread& thread : threads) {
            thread.join();
        }
    };
}

void compare_threads(const settings& how) {
    const std::string url = server_url(how) + "/small";
    compare(how, "threads", how.requests, "req",
            {{"session",
              on_threads<session_client>(how.requests, url, http::http_session::action_download),
              {},
              {}},
             {"easy, reused", on_threads<easy_client>(how.requests, url, k_bare_headers), {}, {}}});
}

void compare_large_downloads(const settings& how, const std::string& kind) {
    const std::size_t bytes = how.mib << 20U;
    const std::string url = server_url(how) + '/' + kind + '/' + std::to_string(bytes);
    easy_client easy(url, k_bare_headers);
    easy.use_large_buffers();
    const auto fetch = [&] {  // each its own, so that nobody pays for the body of the round before
        session_client(url, http::http_session::action_download).run(1, bytes);
    };
    compare(how, kind, static_cast<double>(how.mib), "MiB",
            {{"session", fetch, {}, {}}, {"easy, 512 KiB buffer", [&] { easy.run(1, bytes); }, {}, {}}});
}

void compare_uploads(const settings& how) {
    const std::string url = server_url(how) + "/sink";
    const std::string body(how.mib << 20U, 'u');
    session_client ours(url, http::http_session::action_upload);
    ours.upload(body);
    easy_client easy(url, k_upload_headers);
    easy.upload(body);
    easy.use_large_buffers();
    compare(how, "upload", static_cast<double>(how.mib), "MiB",
            {{"session", [&] { ours.run(1, 100); }, {}, {}},
             {"easy, 512 KiB buffer", [&] { easy.run(1, 100); }, {}, {}}});
}

// To be measured before anything else is.
void report_peak_memory(const settings& how) {
    rusage before{};
    ::getrusage(RUSAGE_SELF, &before);
    const std::size_t bytes = how.mib << 20U;
    session_client(server_url(how) + "/known/" + std::to_string(bytes), http::http_session::action_download)
        .run(1, bytes);
    rusage use{};
    ::getrusage(RUSAGE_SELF, &use);
    std::printf("memory     peak %.2f MiB more than a download of %zu MiB has, of a process of %.1f MiB\n",
                static_cast<double>(use.ru_maxrss - before.ru_maxrss) / 1024 - static_cast<double>(how.mib),
                how.mib, static_cast<double>(before.ru_maxrss) / 1024);
}

}  // namespace

int main(int count, char** arguments) {
    const settings how = settings_of(count, arguments);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    if (how.wants("memory")) {
        session_client(server_url(how) + "/small", http::http_session::action_download).run(1, 100);
        report_peak_memory(how);  // first: the peak counts from the process's start
    }
    if (how.wants("run")) {
        compare_runs(how);
    }
    if (how.wants("download")) {
        compare_downloads(how);
    }
    if (how.wants("threads")) {
        compare_threads(how);
    }
    for (const char* const kind : {"known", "chunked"}) {
        if (how.wants(kind)) {
            compare_large_downloads(how, kind);
        }
    }
    if (how.wants("upload")) {
        compare_uploads(how);
    }
    return 0;
}
