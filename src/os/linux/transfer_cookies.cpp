#include "os/linux/transfer_cookies.h"

#include "os/linux/inet_text.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <ctime>
#include <memory>
#include <mutex>
#include <string_view>

namespace kro::tessel::os {
namespace {

// As many as browsers keep. libcurl takes 50 of a response and has no limit of its own: a server could fill
// the memory. To tell which are the flood's costs more than logging in once more.
constexpr std::size_t k_most_cookies = 3000;
constexpr std::uint32_t k_count_after = 500;  // counting goes through all of them

std::array<std::mutex, CURL_LOCK_DATA_LAST>& share_mutexes() {
    static auto* const mutexes =
        new std::array<std::mutex, CURL_LOCK_DATA_LAST>;  // never destroyed, as the share
    return *mutexes;
}

void lock(CURL* /*easy*/, curl_lock_data what, curl_lock_access /*how*/, void* /*unused*/) {
    share_mutexes()[what].lock();
}

void unlock(CURL* /*easy*/, curl_lock_data what, void* /*unused*/) {
    share_mutexes()[what].unlock();
}

template <class T, void (*Free)(T*)>
struct freeing {
    void operator()(T* what) const noexcept { Free(what); }
};
using cookie_lines = std::unique_ptr<curl_slist, freeing<curl_slist, curl_slist_free_all>>;
using parsed_url = std::unique_ptr<CURLU, freeing<CURLU, curl_url_cleanup>>;

cookie_lines all_cookies(CURL* easy) {
    curl_slist* lines = nullptr;
    curl_easy_getinfo(easy, CURLINFO_COOKIELIST, &lines);
    return cookie_lines(lines);
}

std::string part_of(CURLU* url, CURLUPart which) {
    char* part = nullptr;
    curl_url_get(url, which, &part, 0);
    const std::unique_ptr<char, freeing<void, curl_free>> owner(part);
    return part == nullptr ? std::string() : part;
}

struct place {
    std::string host, path;
    bool secure = false;
};

std::string_view next_field(std::string_view& line) {
    const std::string_view field = line.substr(0, line.find('\t'));
    line.remove_prefix(std::min(line.size(), field.size() + 1));
    return field;
}

bool ends_with(std::string_view text, std::string_view end) {
    return text.size() >= end.size() && text.substr(text.size() - end.size()) == end;
}

bool is_for_host(std::string_view domain, bool with_subdomains, const std::string& host) {
    domain.remove_prefix(!domain.empty() && domain.front() == '.' ? 1 : 0);
    return host == domain || (with_subdomains && ends_with(host, '.' + std::string(domain)));
}

bool is_for_path(std::string_view folder, std::string_view path) {
    return path.substr(0, folder.size()) == folder &&
           (path.size() == folder.size() || ends_with(folder, "/") || path[folder.size()] == '/');
}

// time: seconds since 1970, 0 for the end of the process. One that is over stays in the list for a while.
bool is_over(std::string_view time) {
    long long ends = 0;
    std::from_chars(time.data(), time.data() + time.size(), ends);
    return ends != 0 && ends <= static_cast<long long>(std::time(nullptr));
}

// A line is in the form of Netscape's files: domain, whether subdomains count, path, https only, when it
// ends, and more.
bool is_for(std::string_view line, const place& to) {
    constexpr std::string_view k_not_for_scripts = "#HttpOnly_";
    if (line.substr(0, k_not_for_scripts.size()) == k_not_for_scripts) {
        line.remove_prefix(k_not_for_scripts.size());
    }
    const std::string domain = lowered(next_field(line));
    const bool with_subdomains = next_field(line) == "TRUE";
    const std::string_view folder = next_field(line);
    const bool is_secret = next_field(line) == "TRUE";
    return is_for_host(domain, with_subdomains, to.host) && is_for_path(folder, to.path) &&
           (!is_secret || to.secure) && !is_over(next_field(line));
}

}  // namespace

CURLSH* shared_cookies() {
    static CURLSH* const share = [] {
        CURLSH* const made = curl_share_init();
        curl_share_setopt(made, CURLSHOPT_LOCKFUNC, lock);
        curl_share_setopt(made, CURLSHOPT_UNLOCKFUNC, unlock);
        curl_share_setopt(made, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
        return made;
    }();
    return share;
}

bool has_cookie_for(CURL* easy, const std::string& url) {
    const parsed_url parsed(curl_url());
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) {
        return false;
    }
    const place to{lowered(part_of(parsed.get(), CURLUPART_HOST)), part_of(parsed.get(), CURLUPART_PATH),
                   part_of(parsed.get(), CURLUPART_SCHEME) == "https"};
    const cookie_lines all = all_cookies(easy);
    for (const curl_slist* one = all.get(); one != nullptr; one = one->next) {
        if (is_for(one->data, to)) {
            return true;
        }
    }
    return false;
}

void count_cookie(CURL* easy) {
    static std::atomic<std::uint32_t> s_come{0};
    if (s_come.fetch_add(1, std::memory_order_relaxed) % k_count_after != k_count_after - 1) {
        return;
    }
    std::size_t count = 0;
    const cookie_lines all = all_cookies(easy);
    for (const curl_slist* one = all.get(); one != nullptr; one = one->next) {
        ++count;
    }
    if (count > k_most_cookies) {
        curl_easy_setopt(easy, CURLOPT_COOKIELIST, "ALL");
    }
}

}  // namespace kro::tessel::os
