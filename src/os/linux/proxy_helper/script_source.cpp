#include "os/linux/proxy_helper/script_source.h"

#include <curl/curl.h>

#include <memory>

namespace kro::tessel::os {
namespace {

constexpr std::chrono::minutes k_script_lives(5);
// A server that can't be reached takes the whole of a question's time: the next ones don't ask it again at
// once.
constexpr std::chrono::seconds k_failure_lives(10);
constexpr long k_most_redirects = 5;

struct clean_up {
    void operator()(CURL* handle) const noexcept { curl_easy_cleanup(handle); }
};

std::size_t append(char* bytes, std::size_t one, std::size_t count, void* text) {
    auto& whole = *static_cast<std::string*>(text);
    if (one * count > k_largest_script - whole.size()) {
        return 0;
    }
    whole.append(bytes, one * count);
    return one * count;
}

void set_options(CURL* handle, const std::string& url, std::chrono::milliseconds limit, std::string& text) {
    curl_easy_setopt(handle, CURLOPT_URL, url.c_str());
    curl_easy_setopt(handle, CURLOPT_PROTOCOLS_STR, "http,https,file");
    curl_easy_setopt(handle, CURLOPT_REDIR_PROTOCOLS_STR, "http,https");
    curl_easy_setopt(handle, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(handle, CURLOPT_MAXREDIRS, k_most_redirects);
    curl_easy_setopt(handle, CURLOPT_FAILONERROR, 1L);
    curl_easy_setopt(handle, CURLOPT_PROXY, "");
    curl_easy_setopt(handle, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(handle, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(handle, CURLOPT_TIMEOUT_MS, static_cast<long>(limit.count()));
    curl_easy_setopt(handle, CURLOPT_WRITEFUNCTION, append);
    curl_easy_setopt(handle, CURLOPT_WRITEDATA, &text);
    if (const char* const certificates = std::getenv("SSL_CERT_FILE")) {
        curl_easy_setopt(handle, CURLOPT_CAINFO, certificates);
    }
}

}  // namespace

fetched_script fetch_script(const std::string& url, std::chrono::milliseconds limit) {
    fetched_script script;
    const std::unique_ptr<CURL, clean_up> handle(curl_easy_init());
    if (handle == nullptr) {
        script.text = "it can't be fetched: no memory";
        return script;
    }
    char reason[CURL_ERROR_SIZE] = {};
    set_options(handle.get(), url, limit, script.text);
    curl_easy_setopt(handle.get(), CURLOPT_ERRORBUFFER, reason);
    const CURLcode code = curl_easy_perform(handle.get());
    script.fetched = code == CURLE_OK;
    if (code == CURLE_WRITE_ERROR) {
        script.text = "it is larger than 4 MiB";
    } else if (code != CURLE_OK) {
        script.text =
            std::string("it can't be fetched: ") + (reason[0] != 0 ? reason : curl_easy_strerror(code));
    }
    return script;
}

bool script_source::is_fresh() const {
    const auto age = std::chrono::steady_clock::now() - m_fetched_at;
    return m_script.fetched ? age < k_script_lives : age < k_failure_lives;
}

const fetched_script& script_source::get(const std::string& url, bool& is_new) {
    is_new = url != m_url || !is_fresh();
    if (is_new) {
        m_url = url;
        m_script = fetch_script(url, m_limit);
        m_fetched_at = std::chrono::steady_clock::now();
    }
    return m_script;
}

}  // namespace kro::tessel::os
