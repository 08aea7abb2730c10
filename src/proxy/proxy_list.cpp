// The grammar of proxy lists.
#include "proxy/decimal.h"
#include "proxy/trace_proxy.h"
#include "tessel/base/trace.h"
#include "tessel/proxy/proxy_util.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <new>
#include <string_view>

namespace {

using namespace kro::tessel;
using view = std::basic_string_view<wchar>;

http::proxy_type type_of(view scheme) {
    return scheme == TESSEL_W("http")    ? http::proxy_http
           : scheme == TESSEL_W("https") ? http::proxy_https
                                         : http::proxy_none;
}

// scheme=host:port, without blanks.
bool read_proxy(view item, http::proxy_info& route) {
    const std::size_t equals = item.find('=');
    const std::size_t colon = equals == view::npos ? view::npos : item.find(':', equals + 1);
    if (colon == view::npos) {
        return false;
    }
    const view host = item.substr(equals + 1, colon - equals - 1);
    const http::proxy_type type = type_of(item.substr(0, equals));
    const auto port = static_cast<std::uint16_t>(proxy::decimal(item.substr(colon + 1), 0xFFFFFFFFU));
    if (type == http::proxy_none || host.empty() || port == 0) {
        return false;
    }
    route.server.assign(host.data(), host.size());  // the only step that may fail
    route.type = type;
    route.port = port;
    route.user.clear();
    route.password.clear();
    return true;
}

void trace_item(view item) {
    trace_message message(trace_debug);
    message << TESSEL_W("strProxyItem: ") << item.substr(0, k_max_traced_text);
    if (item.size() > k_max_traced_text) {
        message << TESSEL_W("...");
    }
}

// Copies the item only where it has blanks: there may be a million of them.
bool read_item(view item, bool has_blanks, http::proxy_info& route) {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::ParseProxyItem()"));
    trace_item(item);
    // Compared before blanks are removed, unlike what follows (kept).
    if (item == TESSEL_W("DIRECT") || item == TESSEL_W("DIRECT:0")) {
        trace_message(trace_debug) << TESSEL_W("Receive a direct connection setting.");
        route = http::proxy_info();
        return true;
    }
    wide_string dense;
    if (has_blanks) {
        std::copy_if(item.begin(), item.end(), std::back_inserter(dense),
                     [](wchar unit) { return unit != ' '; });
        item = dense;
    }
    if (!read_proxy(item, route)) {
        return false;
    }
    proxy::trace_proxy_info(route);
    return true;
}

}  // namespace

int CLumProxyUtil::ParseProxyList(const CTString& text, std::list<proxy_info>& routes) try {
    const trace_scope scope(TESSEL_W("ParseProxyList()"));
    trace_message(trace_debug) << TESSEL_W("strProxyList: ") << text;
    const view list = text;
    std::list<proxy_info> next(1);  // moves over whole
    for (std::size_t begin = 0; begin < list.size() || begin == 0;) {
        std::size_t end = begin;
        bool has_blanks = false;
        for (; end < list.size() && list[end] != ';'; ++end) {
            has_blanks = has_blanks || list[end] == ' ';
        }
        if (read_item(list.substr(begin, end - begin), has_blanks, next.front())) {
            routes.splice(routes.end(), next);
            next.emplace_back();
        }
        begin = end + 1;
    }
    return 1;
} catch (const std::bad_alloc&) {
    return 1;
}

int CLumProxyUtil::ParseProxyItem(const CTString& item, proxy_info& route) try {
    return read_item(item, item.find(' ') != wide_string::npos, route) ? 1 : 0;
} catch (const std::bad_alloc&) {
    return 0;
}
