// The grammar of proxy lists.
#include "proxy/decimal.h"
#include "proxy/trace_proxy.h"
#include "tessel/base/trace.h"
#include "tessel/proxy/proxy_util.h"

#include <algorithm>
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
    const auto port = static_cast<std::uint16_t>(proxy::decimal(item.substr(colon + 1), 0xFFFFFFFFU));
    const http::proxy_type type = type_of(item.substr(0, equals));
    if (type == http::proxy_none || host.empty() || port == 0) {
        return false;
    }
    route = http::proxy_info(type, CTString(host.data(), host.size()), port, CTString(), CTString());
    return true;
}

}  // namespace

int CLumProxyUtil::ParseProxyList(const CTString& text, std::list<proxy_info>& routes) try {
    const trace_scope scope(TESSEL_W("ParseProxyList()"));
    trace_message(trace_debug) << TESSEL_W("strProxyList: ") << text;
    for (std::size_t begin = 0; begin < text.size() || begin == 0;) {
        const std::size_t end = std::min(text.find(';', begin), text.size());
        proxy_info route;
        if (ParseProxyItem(CTString(text.data() + begin, end - begin), route) != 0) {
            routes.push_back(route);
        }
        begin = end + 1;
    }
    return 1;
} catch (const std::bad_alloc&) {
    return 1;
}

int CLumProxyUtil::ParseProxyItem(const CTString& item, proxy_info& route) try {
    const trace_scope scope(TESSEL_W("CLumProxyUtil::ParseProxyItem()"));
    trace_message(trace_debug) << TESSEL_W("strProxyItem: ") << item;
    // Compared before blanks are removed, unlike what follows (kept).
    if (view(item) == TESSEL_W("DIRECT") || view(item) == TESSEL_W("DIRECT:0")) {
        trace_message(trace_debug) << TESSEL_W("Receive a direct connection setting.");
        route = proxy_info();
        return 1;
    }
    wide_string dense = item;
    dense.erase(std::remove(dense.begin(), dense.end(), wchar(' ')), dense.end());
    if (!read_proxy(dense, route)) {
        return 0;
    }
    proxy::trace_proxy_info(route);
    return 1;
} catch (const std::bad_alloc&) {
    return 0;
}
