#include "os/linux/transfer_logins.h"

#include <algorithm>
#include <functional>

namespace kro::tessel::os {
namespace {

constexpr std::size_t k_most_logins = 64;

std::size_t hash_of(const transfer_credentials& account) {
    return std::hash<std::string>()(account.user + '\0' + account.password);
}

}  // namespace

bool plain_logins::knows(std::string_view place, const transfer_credentials& account) {
    const std::size_t hash = hash_of(account);
    const std::lock_guard lock(m_mutex);
    return std::any_of(m_known.begin(), m_known.end(), [&](const login& one) {
        return one.account == hash && place.compare(0, one.place.size(), one.place) == 0;
    });
}

void plain_logins::taken(std::string_view place, const transfer_credentials& account) {
    login one{std::string(place), hash_of(account)};
    const std::lock_guard lock(m_mutex);
    if (m_known.size() == k_most_logins) {
        m_known.erase(m_known.begin());
    }
    m_known.push_back(std::move(one));
}

void plain_logins::refused(std::string_view place, const transfer_credentials& account) {
    const std::size_t hash = hash_of(account);
    const std::lock_guard lock(m_mutex);
    m_known.erase(std::remove_if(m_known.begin(), m_known.end(),
                                 [&](const login& one) {
                                     return one.account == hash &&
                                            place.compare(0, one.place.size(), one.place) == 0;
                                 }),
                  m_known.end());
}

plain_logins& known_logins() {
    static auto* const all = new plain_logins;
    return *all;
}

std::string_view server_place(const transfer_request& request) noexcept {
    const std::string_view url = request.url;
    const std::string_view path = url.substr(0, url.find('?'));
    return path.substr(0, path.rfind('/') + 1);
}

std::string proxy_place(const transfer_request& request) {
    return "proxy " + request.proxy + ' ';
}

}  // namespace kro::tessel::os
