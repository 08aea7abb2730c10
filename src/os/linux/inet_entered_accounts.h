// The accounts that have been entered for servers and proxies which redirects led a request to.
#pragma once

#include "os/linux/inet_session.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

namespace kro::tessel::os {

class entered_accounts {
public:
    /// An empty one for a place that has none.
    wide_account at(const std::string& place) const {
        const auto known = std::find_if(m_known.begin(), m_known.end(),
                                        [&place](const auto& one) { return one.first == place; });
        return known == m_known.end() ? wide_account() : known->second;
    }
    void enter(const std::string& place, wide_account account) {
        const auto is_old = [&place](const auto& one) { return one.first == place; };
        m_known.erase(std::remove_if(m_known.begin(), m_known.end(), is_old), m_known.end());
        if (m_known.size() == k_most) {
            m_known.erase(m_known.begin());
        }
        m_known.emplace_back(place, std::move(account));
    }

private:
    static constexpr std::size_t k_most = 16;

    std::vector<std::pair<std::string, wide_account>> m_known;  // the latest last
};

}  // namespace kro::tessel::os
