#include "os/linux/transfer_cookies.h"

#include "os/linux/inet_text.h"
#include "os/thread.h"

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <ctime>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace kro::tessel::os {
namespace {

// As many as browsers keep. libcurl takes 50 of a response and has no limit of its own: a server could fill
// the memory.
constexpr std::size_t k_most_cookies = 3000;
constexpr std::uint32_t k_count_after = 500;  // counting goes through all of them
constexpr std::string_view k_not_for_scripts = "#HttpOnly_";

std::array<std::mutex, CURL_LOCK_DATA_LAST>& share_mutexes() {
    static auto* const mutexes =
        new std::array<std::mutex, CURL_LOCK_DATA_LAST>;  // never destroyed, as the share
    return *mutexes;
}

// In a forked process a thread that isn't there may hold them, and nobody else is left.
void lock(CURL* /*easy*/, curl_lock_data what, curl_lock_access /*how*/, void* /*unused*/) {
    if (!process_was_forked()) {
        share_mutexes()[what].lock();
    }
}

void unlock(CURL* /*easy*/, curl_lock_data what, void* /*unused*/) {
    if (!process_was_forked()) {
        share_mutexes()[what].unlock();
    }
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

// The folder as the server wrote it; libcurl leaves out quotes and the last slash, and takes "/" for none.
bool is_for_path(std::string_view folder, std::string_view path) {
    folder.remove_prefix(!folder.empty() && folder.front() == '"' ? 1 : 0);
    folder.remove_suffix(!folder.empty() && folder.back() == '"' ? 1 : 0);
    if (folder.empty() || folder.front() != '/') {
        return true;
    }
    folder.remove_suffix(folder.back() == '/' ? 1 : 0);
    return path.substr(0, folder.size()) == folder &&
           (path.size() == folder.size() || path[folder.size()] == '/');
}

// A line in the form of Netscape's files: domain, whether subdomains count, path, https only, when it ends
// (seconds since 1970, 0 for the end of the process), and more.
struct cookie {
    explicit cookie(std::string_view line) {
        const bool is_marked = line.substr(0, k_not_for_scripts.size()) == k_not_for_scripts;
        std::string_view rest = line.substr(is_marked ? k_not_for_scripts.size() : 0);
        domain = next_field(rest);
        with_subdomains = next_field(rest) == "TRUE";
        folder = next_field(rest);
        is_secret = next_field(rest) == "TRUE";
        before_end = line.substr(0, line.size() - rest.size());
        const std::string_view time = next_field(rest);
        std::from_chars(time.data(), time.data() + time.size(), end);
        behind_end = rest;
    }

    // One that is over stays in the list for a while.
    bool is_over() const { return end != 0 && end < static_cast<long long>(std::time(nullptr)); }

    bool is_for(const place& to) const {
        return is_for_host(lowered(domain), with_subdomains, to.host) && is_for_path(folder, to.path) &&
               (!is_secret || to.secure) && !is_over();
    }

    // Of all hosts whose names end alike, as somebody who owns one owns many: the last two labels.
    std::string_view owner() const {
        const auto last = domain.rfind('.');
        const auto before = last == 0 || last == std::string_view::npos ? last : domain.rfind('.', last - 1);
        return before == std::string_view::npos ? domain : domain.substr(before + 1);
    }

    std::string_view domain, folder, before_end, behind_end;
    bool with_subdomains = false, is_secret = false;
    long long end = 0;
};

// libcurl says secure of the machine's own names too.
place place_of(CURLU* url, std::string_view host) {
    const std::string_view given = trimmed(host);
    std::string name = given.empty() ? part_of(url, CURLUPART_HOST) : std::string(given);
    name = name.substr(0, 1) == "[" ? name.substr(1, name.find(']') - 1) : name.substr(0, name.find(':'));
    place to{lowered(name), part_of(url, CURLUPART_PATH), part_of(url, CURLUPART_SCHEME) == "https"};
    to.secure = to.secure || to.host == "localhost" || to.host == "127.0.0.1" || to.host == "::1";
    return to;
}

std::size_t count_of(const cookie_lines& all) {
    std::size_t count = 0;
    for (const curl_slist* one = all.get(); one != nullptr; one = one->next) {
        ++count;
    }
    return count;
}

// How many everybody may keep so that half of the jar comes free.
std::size_t fair_share(const std::unordered_map<std::string_view, std::size_t>& counts) {
    std::size_t share = k_most_cookies / 2;
    for (;; share /= 2) {
        std::size_t left = 0;
        for (const auto& owner : counts) {
            left += std::min(owner.second, share);
        }
        if (left <= k_most_cookies / 2) {
            return share;
        }
    }
}

// Those that have the most lose theirs: else a flood from one place would log the user out everywhere. The
// jar has no other way to drop a cookie than to let it end.
void make_room(CURL* easy, const cookie_lines& all) {
    std::unordered_map<std::string_view, std::size_t> counts;
    for (const curl_slist* one = all.get(); one != nullptr; one = one->next) {
        ++counts[cookie(one->data).owner()];
    }
    const std::size_t share = fair_share(counts);
    for (const curl_slist* one = all.get(); one != nullptr; one = one->next) {
        const cookie old(one->data);
        if (std::size_t& count = counts[old.owner()]; count > share) {
            --count;
            const std::string ended = std::string(old.before_end).append("1\t").append(old.behind_end);
            curl_easy_setopt(easy, CURLOPT_COOKIELIST, ended.c_str());
        }
    }
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

bool has_cookie_for(CURL* easy, const std::string& url, std::string_view host) {
    const parsed_url parsed(curl_url());
    if (curl_url_set(parsed.get(), CURLUPART_URL, url.c_str(), 0) != CURLUE_OK) {
        return false;
    }
    const place to = place_of(parsed.get(), host);
    const cookie_lines all = all_cookies(easy);
    for (const curl_slist* one = all.get(); one != nullptr; one = one->next) {
        if (cookie(one->data).is_for(to)) {
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
    const cookie_lines all = all_cookies(easy);
    if (count_of(all) <= k_most_cookies) {
        return;
    }
    make_room(easy, all);
    if (count_of(all_cookies(easy)) > k_most_cookies) {
        curl_easy_setopt(easy, CURLOPT_COOKIELIST, "ALL");  // some are written so that they don't end
    }
}

}  // namespace kro::tessel::os
