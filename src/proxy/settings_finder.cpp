#include "proxy/settings_finder.h"

#include "os/code_page.h"
#include "os/inet.h"
#include "os/proxy_settings.h"

#include "base/text_conversion.h"
#include "tessel/base/trace.h"

#include <exception>
#include <new>
#include <string>

namespace kro::tessel::proxy {
namespace {

constexpr int k_not_supported = 50;

wide_string wide(const std::string& utf8) {
    return widen(os::k_code_page_utf8, utf8);
}

void append_item(wide_string& list, const os::proxy_route& route) {
    wide_string item = TESSEL_W("DIRECT");
    if (route.type != os::proxy_route::kind::direct) {
        if (route.host.find(':') != std::string::npos) {
            trace_message(trace_warning)
                << TESSEL_W("A proxy whose name is an IPv6 address is left out: ") << wide(route.host);
            return;
        }
        const bool secure = route.type == os::proxy_route::kind::https;
        item = secure ? TESSEL_W("https=") : TESSEL_W("http=");
        item += wide(route.host + ":" + std::to_string(route.port));
    }
    list += (list.empty() ? wide_string() : wide_string(1, ';')) + item;
}

void trace_what_is_missing(const os::proxy_decision& decision) {
    if (!decision.left_out.empty()) {
        trace_message(trace_warning) << TESSEL_W("Left out of the proxies: ") << wide(decision.left_out);
    }
    if (decision.source == os::proxy_source::script) {
        trace_message(trace_warning) << TESSEL_W(
            "The settings name a script for proxies, which isn't evaluated");  // its URL may hold an account
    }
}

class settings_finder final : public IProxyFinder {
public:
    int GetProxyInfo(int first, const wchar* host, unsigned short port, int* notPreconfigured, int* bAsync,
                     wchar* buffer, unsigned long* capacity) override;
    void SetAccount(const wchar* /*user*/, const wchar* /*password*/) override {}
    int BookAccount(const wchar* /*server*/, unsigned short /*port*/, const wchar* /*user*/,
                    const wchar* /*password*/) override {
        return k_not_supported;
    }
};

int settings_finder::GetProxyInfo(int /*first*/, const wchar* host, unsigned short port,
                                  int* notPreconfigured, int* bAsync, wchar* buffer,
                                  unsigned long* capacity) try {
    if (host == nullptr || notPreconfigured == nullptr || bAsync == nullptr || buffer == nullptr ||
        capacity == nullptr) {
        return static_cast<int>(os::k_error_invalid_parameter);
    }
    const os::proxy_decision decision = os::read_proxy_settings(host, port);
    trace_what_is_missing(decision);
    wide_string list;
    for (const os::proxy_route& route : decision.routes) {
        append_item(list, route);
    }
    if (list.size() >= *capacity) {
        return static_cast<int>(os::k_error_insufficient_buffer);
    }
    buffer[list.copy(buffer, list.size())] = 0;
    *bAsync = 0;
    *notPreconfigured =
        decision.source == os::proxy_source::desktop || decision.source == os::proxy_source::script ? 0 : 1;
    return 0;
} catch (const std::exception&) {
    return static_cast<int>(os::k_error_not_enough_memory);
}

}  // namespace

std::unique_ptr<IProxyFinder> make_settings_finder() {
    return std::unique_ptr<IProxyFinder>(new (std::nothrow) settings_finder);
}

}  // namespace kro::tessel::proxy
