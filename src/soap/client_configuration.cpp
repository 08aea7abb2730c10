// The one call that the client makes by itself: getClientConfiguration.
#include "os/soap_toolkit.h"

#include "soap/exchange.h"
#include "soap/service_namespace.h"
#include "tessel/base/trace.h"
#include "tessel/proxy/proxy_util.h"
#include "tessel/soap/soap_client.h"

#include <cstddef>
#include <cstdint>
#include <exception>
#include <list>
#include <optional>
#include <utility>

using kro::tessel::CTString;
using kro::tessel::trace_debug;
using kro::tessel::trace_debug_line;
using kro::tessel::trace_error;
using kro::tessel::trace_message;
using kro::tessel::wide_string;
using kro::tessel::http::proxy_info;
namespace os = kro::tessel::os;
namespace soap = kro::tessel::soap;

namespace {

constexpr std::int32_t k_exchange_milliseconds = 60000;
constexpr int k_attempts = 3;

bool names_client(const CTString& url, const CTString& screen_name, const CTString& client_name,
                  const CTString& client_version) {
    return !url.empty() && !screen_name.empty() && !client_name.empty() && !client_version.empty();
}

// As the C locale lowers. Compared in one byte: U+0120 and U+4E20 go as the blank goes.
CTString normalised(const CTString& screen_name) {
    CTString name;
    for (const wchar unit : screen_name) {
        if ((unit & 0xFFU) != 0x20) {
            const bool is_capital = unit >= TESSEL_W('A') && unit <= TESSEL_W('Z');
            name.push_back(is_capital ? static_cast<wchar>(unit + 0x20) : unit);
        }
    }
    return name;
}

// The routes of a server; the direct one when the utility knows none.
std::list<proxy_info> routes_of(const CTString& url) {
    std::list<proxy_info> routes;
    GetProxyUtil().GetProxyInfo(url, routes);
    if (routes.empty()) {
        routes.emplace_back();
    }
    return routes;
}

void set_proxy(os::soap_connector& connector, const proxy_info& proxy) {
    if (proxy.server.empty()) {
        connector.set_flag(TESSEL_W("UseProxy"), false);
        trace_debug_line(TESSEL_W("Soap use direct connection"));
        return;
    }
    connector.set_flag(TESSEL_W("UseProxy"), true);
    connector.set_text(TESSEL_W("ProxyServer"), proxy.server);
    connector.set_number(TESSEL_W("ProxyPort"), proxy.port);
    if (!proxy.user.empty()) {
        connector.set_text(TESSEL_W("ProxyUser"), proxy.user);
    }
    if (!proxy.password.empty()) {
        connector.set_text(TESSEL_W("ProxyPassword"), proxy.password);
    }
    // The password too: who looks for the reason of a refusal has to see what was sent.
    trace_message(trace_debug) << TESSEL_W("Soap use proxy: ") << proxy.server << TESSEL_W(":")
                               << static_cast<unsigned>(proxy.port) << TESSEL_W(":") << proxy.user
                               << TESSEL_W(":") << proxy.password;
}

struct parameter {
    const wchar* name;
    const CTString& value;
};

template <std::size_t N>
void write_request(os::soap_serializer& serializer, const parameter (&parameters)[N]) {
    const CTString name_space = soap::service_namespace();
    serializer.start_envelope({}, {}, {});
    serializer.start_body({});
    serializer.start_element(TESSEL_W("getClientConfiguration"), name_space, {});
    for (const parameter& one : parameters) {
        serializer.start_element(one.name, name_space, {});
        serializer.write_string(one.value);
        serializer.end_element();
    }
    serializer.end_element();
    serializer.end_body();
    serializer.end_envelope();
}

void trace_fault(os::soap_reader& reader) {
    wide_string code;
    wide_string text;
    if (reader.fault(code, text)) {
        // A CTString is cut where it is long: this goes to standard error unless the host takes it.
        trace_message(trace_error) << TESSEL_W("Soap Fault: ") << CTString(code) << TESSEL_W(": ")
                                   << CTString(text);
    }
}

void read_pairs(os::soap_reader& reader, CLumSoapClient::client_cfg& pairs) {
    trace_fault(reader);
    pairs.clear();
    const auto nodes = reader.rpc_result_nodes();
    const std::int32_t length = nodes->length();
    for (std::int32_t node = 0; node < length; ++node) {
        CTString name = nodes->first_child_text(node);
        pairs.emplace_back(std::move(name), nodes->last_child_text(node));
    }
}

void trace_outcome(soap::outcome outcome, std::uint32_t code) {
    if (outcome == soap::outcome::toolkit_error) {
        trace_message(trace_debug) << TESSEL_W("Soap Error: ") << soap::hexadecimal(code);
    } else if (outcome == soap::outcome::other_error) {
        trace_debug_line(TESSEL_W("CLumSoapClient::_TryConnect()"));
    }
    trace_message(trace_debug) << TESSEL_W("Soap connection ")
                               << (outcome == soap::outcome::done ? TESSEL_W("OK") : TESSEL_W("FAILED"));
}

}  // namespace

int CLumSoapClient::CallService(CTString& endPointUrl, CTString& soapAction, CTString& screenName,
                                CTString& password, CTString& clientName, CTString& clientVersion) try {
    CTString name = normalised(screenName);
    for (int i = 0; i < k_attempts; ++i) {
        trace_message(trace_debug) << TESSEL_W("Call TryConnect ") << i << TESSEL_W(" time(s)");
        if (TryConnect(endPointUrl, soapAction, name, password, clientName, clientVersion) != 0) {
            return 1;
        }
    }
    return 0;
} catch (const std::exception&) {  // no memory
    return 0;
}

int CLumSoapClient::TryConnect(CTString& endPointUrl, CTString& soapAction, CTString& screenName,
                               CTString& password, CTString& clientName, CTString& clientVersion) try {
    if (!names_client(endPointUrl, screenName, clientName, clientVersion)) {
        return 0;
    }
    os::soap().initialize_thread();
    for (const proxy_info& route : routes_of(endPointUrl)) {
        CLumProxyInfo proxy(route.type, route.server, route.port, route.user, route.password);
        const int result =
            _TryConnect(endPointUrl, soapAction, screenName, password, clientName, clientVersion, proxy);
        if (result != 0) {
            return result;
        }
    }
    return 0;
} catch (const std::exception&) {  // no memory
    return 0;
}

int CLumSoapClient::_TryConnect(CTString& endPointUrl, CTString& soapAction, CTString& screenName,
                                CTString& password, CTString& clientName, CTString& clientVersion,
                                CLumProxyInfo& proxy) {
    if (!names_client(endPointUrl, screenName, clientName, clientVersion)) {
        return 0;
    }
    os::soap().initialize_thread();
    const parameter parameters[] = {{TESSEL_W("screenName"), screenName},
                                    {TESSEL_W("password"), password},
                                    {TESSEL_W("clientName"), clientName},
                                    {TESSEL_W("clientVersion"), clientVersion}};
    std::uint32_t code = 0;
    soap::outcome outcome = soap::outcome::done;
    do {
        m_clientCfg.clear();
        std::optional<soap::exchange_objects> with;
        outcome = soap::attempt(
            [&] {
                with.emplace();
                with->connector->set_text(TESSEL_W("EndPointURL"), endPointUrl);
                with->connector->set_text(TESSEL_W("SoapAction"), soapAction);
                set_proxy(*with->connector, proxy);
                with->connector->set_number(TESSEL_W("Timeout"), k_exchange_milliseconds);
                trace_debug_line(TESSEL_W("CLumSoapClient::_TryConnect Connect"));
                with->connector->connect();
                with->connector->begin_message();
                with->serializer->init(with->connector->input_stream());
                write_request(*with->serializer, parameters);
                trace_debug_line(TESSEL_W("CLumSoapClient::_TryConnect EndMessage"));
                with->connector->end_message();
                trace_debug_line(TESSEL_W("CLumSoapClient::_TryConnect Load"));
                with->reader->load(with->connector->output_stream(), {});
                read_pairs(*with->reader, m_clientCfg);
            },
            code);
        trace_outcome(outcome, code);
    } while (outcome == soap::outcome::toolkit_error && code == os::k_soap_proxy_account &&
             GetProxyUtil().ShowInputDialog(proxy, CTString()) != 0);
    os::soap().uninitialize_thread();
    return outcome == soap::outcome::done ? 1 : 0;
}
