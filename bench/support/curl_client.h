// Plain libcurl as a host would use it: a new easy handle for each request, curl_multi_poll.
#pragma once

#include <curl/curl.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>

namespace tessel_bench {

struct curl_body {
    std::unique_ptr<char[]> own;
    char* data = nullptr;
    std::size_t size = 0;
    std::size_t capacity = 0;
};

inline std::size_t keep_body(char* data, std::size_t size, std::size_t count, void* to) {
    auto& body = *static_cast<curl_body*>(to);
    const std::size_t bytes = size * count;
    if (body.size + bytes > body.capacity) {
        return 0;
    }
    std::memcpy(body.data + body.size, data, bytes);
    body.size += bytes;
    return bytes;
}

class curl_client {
public:
    curl_client() : m_multi(curl_multi_init()) {}
    ~curl_client() { curl_multi_cleanup(m_multi); }
    curl_client(const curl_client&) = delete;
    curl_client& operator=(const curl_client&) = delete;

    /// into: where the bodies go, one over the other; null for fresh memory each.
    void run(const std::string& url, int total, int in_flight, std::size_t body_bytes, long buffer,
             char* into = nullptr) {
        m_into = into;
        int started = 0;
        int ended = 0;
        while (started < std::min(in_flight, total)) {
            start(url, body_bytes, buffer);
            ++started;
        }
        while (ended < total) {
            int running = 0;
            curl_multi_perform(m_multi, &running);
            int left = 0;
            while (const CURLMsg* const message = curl_multi_info_read(m_multi, &left)) {
                finish(message, body_bytes);
                ++ended;
                if (started < total) {
                    start(url, body_bytes, buffer);
                    ++started;
                }
            }
            if (ended < total) {
                curl_multi_poll(m_multi, nullptr, 0, 1000, nullptr);
            }
        }
    }

private:
    void start(const std::string& url, std::size_t body_bytes, long buffer) {
        CURL* const easy = curl_easy_init();
        auto* const body = new curl_body;
        if (m_into == nullptr) {
            body->own.reset(new char[body_bytes]);
        }
        body->data = m_into == nullptr ? body->own.get() : m_into;
        body->capacity = body_bytes;
        curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, keep_body);
        curl_easy_setopt(easy, CURLOPT_WRITEDATA, body);
        curl_easy_setopt(easy, CURLOPT_PRIVATE, body);
        curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
        if (buffer != 0) {
            curl_easy_setopt(easy, CURLOPT_BUFFERSIZE, buffer);
        }
        curl_multi_add_handle(m_multi, easy);
    }

    void finish(const CURLMsg* message, std::size_t body_bytes) {
        CURL* const easy = message->easy_handle;
        curl_body* body = nullptr;
        curl_easy_getinfo(easy, CURLINFO_PRIVATE, &body);
        if (message->data.result != CURLE_OK || body->size != body_bytes) {
            std::fprintf(stderr, "libcurl: request failed\n");
            std::exit(1);
        }
        curl_multi_remove_handle(m_multi, easy);
        curl_easy_cleanup(easy);
        delete body;
    }

    CURLM* m_multi;
    char* m_into = nullptr;
};

}  // namespace tessel_bench
