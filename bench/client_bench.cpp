// The client that tries routes, with its route known, beside one of libcurl's easy handles that sends the
// same headers: GETs of 1 KiB one after another, a connection each. The ratio is libcurl's time over ours;
// below 0.85 the client costs too much.
//
//   client_bench [--rounds N] [--requests N]

#include "support/bench_server.h"
#include "support/curl_client.h"
#include "support/measuring.h"
#include "tessel/tessel.h"

#include <curl/curl.h>

#include <cstdio>
#include <cstdlib>
#include <string>

namespace {

using namespace tessel_bench;
using namespace kro::tessel;

constexpr std::size_t k_body = 1024;
constexpr unsigned long k_buffer_too_small = 122;

void request(http::CLumHttpClient& client, const CTString& url) {
    unsigned long size = 0;
    if (client.Request(url.c_str(), http_method_get, nullptr, nullptr, 0) != 200 ||
        client.GetResponse()->GetRawContent(nullptr, &size) != k_buffer_too_small || size != k_body) {
        std::fprintf(stderr, "the client: request failed, error %lu\n", get_last_error());
        std::exit(1);
    }
}

void request(CURL* easy) {
    curl_body body;
    body.own.reset(new char[k_body]);
    body.data = body.own.get();
    body.capacity = k_body;
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &body);
    const CURLcode code = curl_easy_perform(easy);
    if (code != CURLE_OK || body.size != k_body) {
        std::fprintf(stderr, "libcurl: request failed: %s\n", curl_easy_strerror(code));
        std::exit(1);
    }
}

}  // namespace

int main(int count, char** arguments) {
    const settings how = settings_of(count, arguments);
    curl_global_init(CURL_GLOBAL_DEFAULT);
    const std::string url =
        "http://127.0.0.1:" + std::to_string(how.port) + "/known/" + std::to_string(k_body);
    const CTString wide_url = wide_string(url.begin(), url.end());
    const int total = how.requests / 10;  // they run out of ports when there are too many

    http::CLumHttpClient client;
    request(client, wide_url);  // from here on its route is known
    CURL* const easy = curl_easy_init();
    curl_slist* headers = nullptr;
    for (const char* const line : {"User-Agent: Mozilla/4.0 (compatible; MSIE 6.0; Win32)",
                                   "Content-Type: application/x-www-form-urlencoded;charset:utf-8",
                                   "Connection: close", "Cache-Control: no-cache", "Accept:"}) {
        headers = curl_slist_append(headers, line);
    }
    curl_easy_setopt(easy, CURLOPT_URL, url.c_str());
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, headers);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, keep_body);
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    const auto times = [total](const auto& one) {
        for (int i = 0; i < total; ++i) {
            one();
        }
    };
    compare(how, "client", total, "req",
            {{"client", [&] { times([&] { request(client, wide_url); }); }, {}, {}},
             {"easy, closing", [&] { times([&] { request(easy); }); }, {}, {}}});
    curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
    return 0;
}
