#include "os/linux/proxy_bypass.h"

#include <arpa/inet.h>

#include <algorithm>
#include <charconv>
#include <cstring>
#include <optional>

namespace kro::tessel::os {
namespace {

// "*" stands for any run of characters. Linear in practice: only the last star is gone back to.
bool matches(std::string_view pattern, std::string_view text) noexcept {
    std::size_t p = 0;
    std::size_t t = 0;
    std::size_t star = std::string_view::npos;
    std::size_t retry = 0;
    while (t < text.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            retry = t;
        } else if (p < pattern.size() && pattern[p] == text[t]) {
            ++p;
            ++t;
        } else if (star != std::string_view::npos) {
            p = star + 1;
            t = ++retry;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == std::string_view::npos;
}

struct network_address {
    unsigned char bytes[16] = {};
    unsigned bits = 0;  // of the whole address: 32 or 128
};

std::optional<network_address> parse_address(std::string_view text) {
    if (text.size() > 2 && text.front() == '[' && text.back() == ']') {
        text = text.substr(1, text.size() - 2);
    }
    const std::string ended(text);
    network_address address;
    if (::inet_pton(AF_INET, ended.c_str(), address.bytes) == 1) {
        address.bits = 32;
    } else if (::inet_pton(AF_INET6, ended.c_str(), address.bytes) == 1) {
        address.bits = 128;
    } else {
        return std::nullopt;
    }
    return address;
}

bool same_bits(const network_address& left, const network_address& right, unsigned count) {
    const std::size_t whole = count / 8;
    const unsigned rest = count % 8;
    const auto mask = static_cast<unsigned char>(0xFFU << (8 - rest));
    return std::memcmp(left.bytes, right.bytes, whole) == 0 &&
           (rest == 0 || ((left.bytes[whole] ^ right.bytes[whole]) & mask) == 0);
}

// "network/bits" or a plain address, which may be written in several ways.
bool is_in_network(std::string_view pattern, std::string_view host) {
    const auto slash = pattern.find('/');
    const auto network = parse_address(pattern.substr(0, slash));
    const auto address = network ? parse_address(host) : std::nullopt;
    if (!address || address->bits != network->bits) {
        return false;
    }
    unsigned count = network->bits;
    if (slash != std::string_view::npos) {
        const std::string_view digits = pattern.substr(slash + 1);
        const auto end = std::from_chars(digits.data(), digits.data() + digits.size(), count);
        if (end.ec != std::errc() || end.ptr != digits.data() + digits.size() || count > network->bits) {
            return false;
        }
    }
    return same_bits(*network, *address, count);
}

// An address, that is: names may begin with "127." as well.
bool is_loopback(std::string_view host) {
    return host == "localhost" || host == "loopback" || host == "[::1]" || is_in_network("127.0.0.0/8", host);
}

}  // namespace

bool has_port(std::string_view host) noexcept {
    const auto bracket = host.rfind(']');
    const auto colon = host.rfind(':');
    return colon != std::string_view::npos && (bracket == std::string_view::npos || colon > bracket);
}

void proxy_bypass::add(std::string_view entry) {
    const std::string pattern = lowered(entry);
    if (pattern == "<-loopback>") {
        m_loopback = false;
    } else if (!pattern.empty()) {
        m_entries.push_back(pattern);
    }
}

bool proxy_bypass::covers(const inet_address& address) const {
    if (m_loopback && is_loopback(address.host)) {
        return true;
    }
    return std::any_of(m_entries.begin(), m_entries.end(), [&](const std::string& pattern) {
        return m_rule == rule::domains ? covers_by_domain(pattern, address)
                                       : covers_by_pattern(pattern, address);
    });
}

bool proxy_bypass::covers_by_domain(std::string_view pattern, const inet_address& address) const {
    const std::string_view host = address.host;
    if (pattern.size() > 1 && pattern.front() == '.') {
        pattern.remove_prefix(1);
    }
    const bool ends_so = host.size() > pattern.size() &&
                         host.substr(host.size() - pattern.size()) == pattern &&
                         host[host.size() - pattern.size() - 1] == '.';
    return ends_so || matches(pattern, host) || is_in_network(pattern, host) ||
           matches(pattern, address.host + ':' + std::to_string(address.port));
}

bool proxy_bypass::covers_by_pattern(std::string_view pattern, const inet_address& address) const {
    const std::string_view host = address.host;
    if (pattern == "<local>") {
        return host.find('.') == std::string_view::npos && host.front() != '[';
    }
    const auto scheme_end = pattern.find("://");
    if (scheme_end != std::string_view::npos) {
        if (pattern.substr(0, scheme_end + 3) != (address.secure ? "https://" : "http://")) {
            return false;
        }
        pattern.remove_prefix(scheme_end + 3);
    }
    return has_port(pattern) ? matches(pattern, address.host + ':' + std::to_string(address.port))
                             : matches(pattern, host);
}

}  // namespace kro::tessel::os
