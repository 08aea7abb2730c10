// Any text as a list of proxies: the routes are those that the rules give, followed one after the other.
#include "tessel/platform/host.h"
#include "tessel/proxy/proxy_util.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <list>
#include <string>
#include <tuple>
#include <vector>

namespace {

using kro::tessel::CTString;
using kro::tessel::wide_string;
using kro::tessel::http::proxy_info;
using route = std::tuple<unsigned, wide_string, unsigned>;

// One byte a unit, so that the fuzzer meets the grammar soon; FF makes a whole unit of the two bytes behind
// it.
wide_string units_of(const std::uint8_t* data, std::size_t size) {
    wide_string text;
    for (std::size_t i = 0; i < size; ++i) {
        const bool whole = data[i] == 0xFFU && size - i > 2;
        text.push_back(static_cast<wchar>(whole ? data[i + 1] << 8U | data[i + 2] : data[i]));
        i += whole ? 2 : 0;
    }
    return text;
}

wide_string without_blanks(const wide_string& item) {
    wide_string dense;
    for (const wchar unit : item) {
        if (unit != ' ') {
            dense += unit;
        }
    }
    return dense;
}

std::uint64_t number_of(const wide_string& text) {
    std::size_t at = text.find_first_not_of(TESSEL_W("\t\n\v\f\r"));
    std::uint64_t number = 0;
    for (; at < text.size() && text[at] >= '0' && text[at] <= '9'; ++at) {
        number = number * 10 + (text[at] - '0');
        if (number > 0xFFFFFFFFU) {
            return 0xFFFF;
        }
    }
    return number & 0xFFFFU;
}

void take_item(const wide_string& item, std::vector<route>& routes) {
    if (item == TESSEL_W("DIRECT") || item == TESSEL_W("DIRECT:0")) {
        routes.emplace_back(0, wide_string(), 0);
        return;
    }
    const wide_string dense = without_blanks(item);
    const bool secure = dense.rfind(TESSEL_W("https="), 0) == 0;
    if (!secure && dense.rfind(TESSEL_W("http="), 0) != 0) {
        return;
    }
    const wide_string rest = dense.substr(secure ? 6 : 5);
    const std::size_t colon = rest.find(wchar(':'));
    if (colon == wide_string::npos || colon == 0) {
        return;
    }
    if (const auto port = static_cast<unsigned>(number_of(rest.substr(colon + 1))); port != 0) {
        routes.emplace_back(secure ? 2 : 1, rest.substr(0, colon), port);
    }
}

std::vector<route> by_the_rules(const wide_string& list) {
    std::vector<route> routes;
    wide_string item;
    for (const wchar unit : list) {
        if (unit == ';') {
            take_item(item, routes);
            item.clear();
        } else {
            item += unit;
        }
    }
    take_item(item, routes);
    return routes;
}

CLumProxyUtil& parser() {
    static CLumProxyUtil* const made = [] {
        kro::tessel::set_proxy_finder_factory([](IProxyFinderSink*) -> IProxyFinder* { return nullptr; });
        return new CLumProxyUtil;
    }();
    return *made;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const wide_string list = units_of(data, size);
    std::list<proxy_info> parsed;
    parser().ParseProxyList(CTString(list), parsed);
    std::vector<route> found;
    found.reserve(parsed.size());
    for (const proxy_info& one : parsed) {
        found.emplace_back(one.type, one.server, one.port);
        if (!one.user.empty() || !one.password.empty()) {
            std::abort();
        }
    }
    if (found != by_the_rules(list)) {
        std::abort();
    }
    return 0;
}
