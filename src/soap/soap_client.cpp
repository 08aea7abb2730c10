#include "tessel/soap/soap_client.h"

#include "os/bstr.h"
#include "os/soap_toolkit.h"

#include "soap/exchange.h"
#include "tessel/base/trace.h"

#include <cstddef>
#include <cstdint>
#include <utility>

using kro::tessel::CTString;
using kro::tessel::trace_debug;
using kro::tessel::trace_debug_line;
using kro::tessel::trace_message;
using kro::tessel::wide_string;
namespace os = kro::tessel::os;
namespace soap = kro::tessel::soap;

namespace {

constexpr std::int32_t k_call_milliseconds = 30000;

void set_up(os::soap_connector& connector, const CTString& url, const CTString& action) {
    connector.set_text(TESSEL_W("EndPointURL"), url);
    connector.set_text(TESSEL_W("SoapAction"), action);
    connector.set_flag(TESSEL_W("UseProxy"), false);
    connector.set_number(TESSEL_W("Timeout"), k_call_milliseconds);
}

void trace_set_up(const CTString& url, const CTString& action) {
    if (kro::tessel::trace_sink_level() == trace_debug) {
        wide_string line = TESSEL_W("CLumSoapClient::Call() : End Point URL=[");
        line.append(url).append(TESSEL_W("] Soap Action=[")).append(action).append(TESSEL_W("]"));
        trace_debug_line(std::move(line));
    }
    trace_debug_line(TESSEL_W("CLumSoapClient::Call() : Soap call use direct connection"));
    trace_debug_line(TESSEL_W("CLumSoapClient::Call() : Connect to the service"));
}

// Writes elements that follow each other, closing as their types say.
class element_writer {
public:
    element_writer(os::soap_serializer& serializer, const CTString& name_space)
        : m_serializer(serializer), m_namespace(name_space) {}

    void write(SOAP_ELEMENT_TYPE type, const CTString& name, const CTString& value) {
        if (!m_is_first && type != SOAP_ELEMENT_CHILD) {
            end();
            if (type == SOAP_ELEMENT_UNCLE) {
                end();
            }
        }
        m_is_first = false;
        m_serializer.start_element(name, m_namespace, {});
        ++m_open;
        if (!value.empty()) {
            m_serializer.write_string(value);
        }
    }

    void end_all() {
        while (m_open > 0) {
            end();
        }
    }

private:
    void end() {
        m_serializer.end_element();
        --m_open;
    }

    os::soap_serializer& m_serializer;
    const CTString& m_namespace;
    bool m_is_first = true;
    std::ptrdiff_t m_open = 0;  // below 0 where uncles have closed the method's element
};

template <class Elements>
void write_message(os::soap_serializer& serializer, const CTString& method, const CTString& name_space,
                   const Elements& elements) {
    serializer.start_envelope({}, {}, {});
    serializer.start_body({});
    serializer.start_element(method, name_space, {});
    element_writer writer(serializer, name_space);
    for (const auto& one : elements) {
        writer.write(one.type, one.name, one.value);
    }
    writer.end_all();
    serializer.end_element();
    serializer.end_body();
    serializer.end_envelope();
}

void trace_failure(soap::outcome outcome, std::uint32_t code) {
    if (outcome == soap::outcome::toolkit_error) {
        trace_message(trace_debug) << TESSEL_W("CLumSoapClient::Call() : Soap Error: ")
                                   << soap::hexadecimal(code);
    } else {
        trace_debug_line(TESSEL_W("CLumSoapClient::Call() Exception"));
    }
}

}  // namespace

CLumSoapClient::CLumSoapClient() = default;
CLumSoapClient::CLumSoapClient(const CLumSoapClient&) = default;
CLumSoapClient::CLumSoapClient(CLumSoapClient&&) noexcept = default;
CLumSoapClient& CLumSoapClient::operator=(const CLumSoapClient&) = default;
CLumSoapClient& CLumSoapClient::operator=(CLumSoapClient&&) noexcept = default;
CLumSoapClient::~CLumSoapClient() = default;

void CLumSoapClient::Initialize() {
    m_elements.clear();
}

void CLumSoapClient::Release() {}

void CLumSoapClient::AddElement(SOAP_ELEMENT_TYPE type, const CTString& name, const CTString& value) {
    m_elements.push_back({name, value, type});
}

CLumSoapClient::client_cfg CLumSoapClient::getClientCfgMap() const {
    return m_clientCfg;
}

int CLumSoapClient::Call(const CTString& endPointUrl, const CTString& method, const CTString& nameSpace) {
    os::soap().initialize_thread();
    std::uint32_t code = 0;
    const soap::outcome outcome = soap::attempt(
        [&] {
            const soap::exchange_objects with;
            const CTString action = nameSpace + method;
            set_up(*with.connector, endPointUrl, action);
            trace_set_up(endPointUrl, action);
            with.connector->connect();
            with.connector->begin_message();
            with.serializer->init(with.connector->input_stream());
            write_message(*with.serializer, method, nameSpace, m_elements);
            trace_debug_line(TESSEL_W("CLumSoapClient::Call() : Send the message to the web service"));
            with.connector->end_message();
            trace_debug_line(TESSEL_W(
                "CLumSoapClient::Call() : Connect the reader to the output stream of the connector"));
            with.reader->load(with.connector->output_stream(), {});
            m_response = os::make_bstr(with.reader->document_xml());
        },
        code);
    if (outcome != soap::outcome::done) {
        trace_failure(outcome, code);
    }
    return outcome == soap::outcome::done ? 1 : 0;
}

_bstr_t CLumSoapClient::GetResponse() const {
    return m_response == nullptr ? _bstr_t() : *m_response;
}
