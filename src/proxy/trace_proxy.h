// How proxies and their accounts stand in the trace.
#pragma once

#include "tessel/base/trace.h"
#include "tessel/http/proxy_info.h"

namespace kro::tessel::proxy {

/// A line at level 9: the label, then server:port:user:password, in clear (kept).
inline void trace_proxy(const wchar* label, const http::proxy_info& proxy) {
    trace_message(trace_debug) << label << proxy.server << TESSEL_W(":") << proxy.port << TESSEL_W(":")
                               << proxy.user << TESSEL_W(":") << proxy.password;
}

/// The same with its type: what the list and the registry hold.
inline void trace_proxy_info(const http::proxy_info& proxy) {
    trace_message(trace_debug) << TESSEL_W("Proxy Info: ") << static_cast<unsigned>(proxy.type)
                               << TESSEL_W(" ") << proxy.server << TESSEL_W(":") << proxy.port
                               << TESSEL_W(":") << proxy.user << TESSEL_W(":") << proxy.password;
}

}  // namespace kro::tessel::proxy
