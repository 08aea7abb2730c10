// Catches: elements in the wrong place, steps in the wrong order or with wrong values, a failure at any step
// that is taken for a success or leaves something behind that it shouldn't, wrong counts of COM
// initialisation.
#include "tessel/soap/soap_client.h"

#include "support/list_finder.h"
#include "support/scripted_soap_toolkit.h"
#include "support/trace_recorder.h"

#include <gmock/gmock.h>
#if __has_include(<comutil.h>)
#include <comutil.h>  // the platform's own _bstr_t
#endif
#include <gtest/gtest.h>

#include <algorithm>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

using kro::tessel::CTString;
using kro::tessel::wide_string;
using tessel_test::scripted_soap_toolkit;
using tessel_test::trace_recorder;
using testing::ElementsAre;

namespace {

std::vector<std::string> traced() {
    std::vector<std::string> lines;
    for (const auto& [level, text] : trace_recorder::lines()) {
        const std::string line = tessel_test::plain(text);
        if (line.find("oap") != std::string::npos || line.find("TryConnect") != std::string::npos) {
            lines.push_back(line);
        }
    }
    return lines;
}

class SoapClient : public testing::Test {
protected:
    // Two proxies for every host that begins with "two", none for the others.
    static void SetUpTestSuite() {
        tessel_test::list_finder::install([](const wide_string& host) {
            return wide_string(host.rfind(TESSEL_W("two"), 0) == 0
                                   ? TESSEL_W("http=first:1;http=second:2;DIRECT")
                                   : TESSEL_W(""));
        });
    }

    int configure(const CTString& host, const CTString& name = TESSEL_W("My Name")) {
        CTString texts[] = {TESSEL_W("http://") + host + TESSEL_W("/s"),
                            TESSEL_W("act"),
                            name,
                            TESSEL_W("pw"),
                            TESSEL_W("app"),
                            TESSEL_W("1.2")};
        return (m_client.*m_way)(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5]);
    }

    scripted_soap_toolkit m_toolkit;
    trace_recorder m_trace;
    CLumSoapClient m_client;
    decltype(&CLumSoapClient::TryConnect) m_way = &CLumSoapClient::TryConnect;
};

}  // namespace

TEST_F(SoapClient, PutsEachElementInItsPlace) {
    const auto S = SOAP_ELEMENT_SIBLING;
    const auto C = SOAP_ELEMENT_CHILD;
    const auto U = SOAP_ELEMENT_UNCLE;
    const struct {
        std::vector<SOAP_ELEMENT_TYPE> types;  // of a, b, c, d
        const char* body;
    } rows[] = {
        {{}, ""},
        {{S, S, C, U}, "<u|a'1><u|b'1<u|c'1>><u|d'1>"},
        {{S, S, C, S}, "<u|a'1><u|b'1<u|c'1><u|d'1>>"},
        {{U, C, C}, "<u|a'1<u|b'1<u|c'1>>>"},
        {{C, U, S}, "<u|a'1>><u|b'1><u|c'1"},  // an uncle of the first has closed the method
    };
    for (const auto& row : rows) {
        m_client.Initialize();
        m_toolkit.log.clear();
        for (std::size_t i = 0; i < row.types.size(); ++i) {
            m_client.AddElement(row.types[i], wide_string(1, static_cast<wchar>('a' + i)), TESSEL_W("1"));
        }
        EXPECT_EQ(m_client.Call(TESSEL_W("e"), TESSEL_W("m"), TESSEL_W("u")), 1);
        EXPECT_EQ(m_toolkit.message(), std::string("<Envelope<Body<u|m") + row.body + ">>>");
    }
}

TEST_F(SoapClient, CallsInThisOrder) {
    m_client.AddElement(SOAP_ELEMENT_UNCLE, TESSEL_W("empty"), TESSEL_W(""));
    m_toolkit.xml = "<a/>";
    ASSERT_EQ(m_client.Call(TESSEL_W("http://e"), TESSEL_W("m"), TESSEL_W("urn:")), 1);
    EXPECT_THAT(m_toolkit.log, ElementsAre("connector", "serializer", "reader", "EndPointURL=http://e",
                                           "SoapAction=urn:m", "UseProxy=false", "Timeout=30000", "Connect",
                                           "BeginMessage", "Init", "<Envelope", "<Body", "<urn:|m",
                                           "<urn:|empty", ">", ">", ">", ">", "EndMessage", "Load", "xml"));
    EXPECT_THAT(
        traced(),
        ElementsAre(
            "Debug: CLumSoapClient::Call() : End Point URL=[http://e] Soap Action=[urn:m]",
            "Debug: CLumSoapClient::Call() : Soap call use direct connection",
            "Debug: CLumSoapClient::Call() : Connect to the service",
            "Debug: CLumSoapClient::Call() : Send the message to the web service",
            "Debug: CLumSoapClient::Call() : Connect the reader to the output stream of the connector"));
    EXPECT_EQ(m_toolkit.initialized, 1);
    EXPECT_EQ(m_toolkit.uninitialized, 0);
}

TEST_F(SoapClient, ACallThatFailsAnywhereKeepsTheResponse) {
    m_client.AddElement(SOAP_ELEMENT_SIBLING, TESSEL_W("a"), TESSEL_W("1"));
    m_toolkit.xml = "<first/>";
    ASSERT_EQ(m_client.Call(TESSEL_W("e"), TESSEL_W("m"), TESSEL_W("u")), 1);
    const CLumSoapClient copy = m_client;
    const std::size_t operations = m_toolkit.log.size();
    m_toolkit.xml = "<second/>";
    for (std::size_t at = 0; at < 2 * operations; ++at) {
        m_toolkit.log.clear();
        trace_recorder::clear();
        m_toolkit.fails_at = at % operations;
        m_toolkit.code = at < operations ? 0x800a0b0cU : 0;
        EXPECT_EQ(m_client.Call(TESSEL_W("e"), TESSEL_W("m"), TESSEL_W("u")), 0) << at;
        EXPECT_EQ(traced().back(), at < operations ? "Debug: CLumSoapClient::Call() : Soap Error: 800a0b0c"
                                                   : "Debug: CLumSoapClient::Call() Exception")
            << at;
        EXPECT_EQ(wide_string(m_client.GetResponse()), TESSEL_W("<first/>")) << at;
        EXPECT_EQ(m_toolkit.log.size(), m_toolkit.fails_at + 1) << "nothing follows a failure";
    }
    m_toolkit.fails_at = scripted_soap_toolkit::k_never;
    EXPECT_EQ(m_client.Call(TESSEL_W("e"), TESSEL_W("m"), TESSEL_W("u")), 1);
    EXPECT_EQ(wide_string(m_client.GetResponse()), TESSEL_W("<second/>"));
    EXPECT_EQ(wide_string(copy.GetResponse()), TESSEL_W("<first/>"));
    EXPECT_FALSE(CLumSoapClient().GetResponse().length());
}

TEST_F(SoapClient, GetsTheConfigurationInThisOrder) {
    m_toolkit.pairs = {{"a", "1"}, {"a", "2"}};
    ASSERT_EQ(configure(TESSEL_W("direct.test")), 1);
    const std::string ns = "<" + tessel_test::plain(kro::tessel::k_soap_service_namespace) + "|";
    EXPECT_THAT(m_toolkit.log,
                ElementsAre("connector", "serializer", "reader", "EndPointURL=http://direct.test/s",
                            "SoapAction=act", "UseProxy=false", "Timeout=60000", "Connect", "BeginMessage",
                            "Init", "<Envelope", "<Body", ns + "getClientConfiguration", ns + "screenName",
                            "'My Name", ">", ns + "password", "'pw", ">", ns + "clientName", "'app", ">",
                            ns + "clientVersion", "'1.2", ">", ">", ">", ">", "EndMessage", "Load", "result",
                            "length", "first", "last", "first", "last"));
    EXPECT_THAT(traced(),
                ElementsAre("Debug: Soap use direct connection", "Debug: CLumSoapClient::_TryConnect Connect",
                            "Debug: CLumSoapClient::_TryConnect EndMessage",
                            "Debug: CLumSoapClient::_TryConnect Load", "Debug: Soap connection OK"));
    EXPECT_EQ(m_client.getClientCfgMap(),
              (CLumSoapClient::client_cfg{{TESSEL_W("a"), TESSEL_W("1")}, {TESSEL_W("a"), TESSEL_W("2")}}));
    EXPECT_EQ(m_toolkit.initialized, 2);
    EXPECT_EQ(m_toolkit.uninitialized, 1);
}

TEST_F(SoapClient, AConfigurationThatFailsAnywhereKeepsWhatWasRead) {
    m_toolkit.pairs = {{"a", "1"}, {"b", "2"}};
    ASSERT_EQ(configure(TESSEL_W("direct.test")), 1);
    const std::vector<std::string> whole = m_toolkit.log;
    for (std::size_t at = 0; at < whole.size(); ++at) {
        for (const std::uint32_t code : {0x800A13BAU, 0U}) {
            m_toolkit.log.clear();
            trace_recorder::clear();
            m_toolkit.fails_at = at;
            m_toolkit.code = code;
            EXPECT_EQ(configure(TESSEL_W("direct.test")), 0);
            const auto read =
                std::count(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(at), "last");
            EXPECT_EQ(m_client.getClientCfgMap().size(), static_cast<std::size_t>(read)) << at;
            const auto lines = traced();
            ASSERT_GE(lines.size(), 2U);
            EXPECT_EQ(lines.back(), "Debug: Soap connection FAILED");
            const bool other = code == 0;
            EXPECT_EQ(other ? "Debug: CLumSoapClient::_TryConnect()" : "Debug: Soap Error: 800a13ba",
                      *std::find_if(lines.begin(), lines.end(), [other](const std::string& line) {
                          return line.find(other ? "Connect()" : "Error") != std::string::npos;
                      }));
            EXPECT_EQ(m_toolkit.log.size(), at + 1) << "the prompt is cancelled, so nothing is sent again";
        }
    }
    EXPECT_EQ(m_toolkit.initialized, 2 * m_toolkit.uninitialized);
}

TEST_F(SoapClient, TellsAFault) {
    m_toolkit.fault_code = "Server";
    m_toolkit.fault_text = "closed on Sundays";
    configure(TESSEL_W("direct.test"));
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("Error: Soap Fault: Server: closed on Sundays")));
}

TEST_F(SoapClient, TriesEachRouteUntilOneSucceeds) {
    m_toolkit.fails_at = 0;  // of the first exchange
    ASSERT_EQ(configure(TESSEL_W("two.test")), 1);
    EXPECT_THAT(m_toolkit.log, testing::IsSupersetOf({"ProxyServer=second", "ProxyPort=2", "UseProxy=true"}));
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("Debug: Soap use proxy: second:2::")));
    EXPECT_EQ(std::count(m_toolkit.log.begin(), m_toolkit.log.end(), "connector"), 2);
    EXPECT_EQ(std::count_if(m_toolkit.log.begin(), m_toolkit.log.end(),
                            [](const std::string& one) {
                                return one.rfind("ProxyUser", 0) == 0 || one.rfind("ProxyP", 0) == 0;
                            }),
              1)
        << "an empty account isn't set";
}

TEST_F(SoapClient, TriesThreeTimesUnderTheNormalisedName) {
    m_way = &CLumSoapClient::CallService;
    m_toolkit.fails = 1000;
    m_toolkit.fails_at = 29;  // "Load" of the first exchange, and all that follows
    EXPECT_EQ(configure(TESSEL_W("direct.test"), TESSEL_W("My \u0120N\u00C4me\u4E20")), 0);
    EXPECT_TRUE(std::count(m_toolkit.log.begin(), m_toolkit.log.end(), "'myn?me"));
    EXPECT_EQ(trace_recorder::count(TESSEL_W("Debug: Call TryConnect ")), 3U);
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("Debug: Call TryConnect 0 time(s)")));
    EXPECT_TRUE(trace_recorder::has(TESSEL_W("Debug: Call TryConnect 2 time(s)")));
    EXPECT_EQ(m_toolkit.initialized, 6);
    EXPECT_EQ(m_toolkit.uninitialized, 3);
    EXPECT_EQ(configure(TESSEL_W("direct.test"), TESSEL_W(" ")), 0) << "nothing left of the name";
    EXPECT_EQ(m_toolkit.initialized, 6) << "COM isn't touched without a name";
}
