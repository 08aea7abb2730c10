// The servers that are reached without the proxy.
#pragma once

#include "os/linux/inet_address.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace kro::tessel::os {

/// Calls visit with each entry of a list, empty ones left out.
template <class Visitor>
void each_list_entry(std::string_view list, std::string_view dividers, Visitor&& visit) {
    while (!list.empty()) {
        const auto end = std::min(list.find_first_of(dividers), list.size());
        if (end != 0) {
            visit(list.substr(0, end));
        }
        list.remove_prefix(std::min(end + 1, list.size()));
    }
}

/// Whether a host stands with its port; an IPv6 address needs brackets then.
bool has_port(std::string_view host) noexcept;

/// A list of exceptions; this machine itself is one unless "<-loopback>" says otherwise.
class proxy_bypass {
public:
    enum class rule {
        patterns,  ///< "[scheme://]host[:port]" with "*", "<local>" for names without a dot
        domains,   ///< an entry covers the names below it, too; networks as "10.0.0.0/8", "fd00::/8"
    };

    explicit proxy_bypass(rule how = rule::patterns) : m_rule(how) {}
    void add(std::string_view entry);
    bool covers(const inet_address& address) const;

private:
    bool covers_by_domain(std::string_view pattern, const inet_address& address) const;
    bool covers_by_pattern(std::string_view pattern, const inet_address& address) const;

    rule m_rule;
    bool m_loopback = true;
    std::vector<std::string> m_entries;  // lower case
};

}  // namespace kro::tessel::os
