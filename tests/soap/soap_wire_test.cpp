// Catches: a message that a service wouldn't know as SOAP, an outcome of HTTP that is taken for another one,
// a server that can hold a caller for longer than the time-out, an account that doesn't reach the proxy.
#include "os/soap_toolkit.h"

#include "support/ascii.h"
#include "support/test_server.h"
#include "support/trace_recorder.h"
#include "tessel/proxy/proxy_util.h"
#include "tessel/soap/soap_client.h"

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <string>
#include <string_view>
#include <thread>

using kro::tessel::CTString;
using kro::tessel::wide_string;
using tessel_test::plain;
using tessel_test::server_connection;
using tessel_test::test_server;
using tessel_test::trace_recorder;
using tessel_test::wide;
namespace os = kro::tessel::os;

namespace {

constexpr const char* k_envelope =
    R"(<e:Envelope xmlns:e="http://schemas.xmlsoap.org/soap/envelope/"><e:Body><r><x><i><n>a</n><v>1</v></i></x></r></e:Body></e:Envelope>)";

std::string response(std::string_view head, std::string_view body) {
    return "HTTP/1.1 " + std::string(head) +
           "\r\nConnection: close\r\nContent-Length: " + std::to_string(body.size()) + "\r\n\r\n" +
           std::string(body);
}

class one_exchange : public CLumSoapClient {
public:
    int through(const std::string& url, CLumProxyInfo& proxy) {
        CTString texts[] = {wide(url),      TESSEL_W("act"), TESSEL_W("me"),
                            TESSEL_W("pw"), TESSEL_W("app"), TESSEL_W("1")};
        return _TryConnect(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5], proxy);
    }
};

class SoapWire : public testing::Test {
public:
    ~SoapWire() override { os::shorten_soap_timeout_for_test(0); }

protected:
    std::string url() const { return m_server.url("/service?a=b"); }

    // A call that the server meets so; the error as the trace tells it, empty for a success.
    std::string call(const std::function<void(server_connection&)>& serve) {
        trace_recorder::clear();
        std::thread serving([&] {
            server_connection connection = m_server.accept();
            serve(connection);
        });
        const int result = m_client.Call(wide(url()), TESSEL_W("m\u00FC"), TESSEL_W("urn:x#"));
        serving.join();
        return result == 1 ? std::string() : error();
    }
    static std::string error() {
        for (const auto& [level, text] : trace_recorder::lines()) {
            const std::string line = plain(text.c_str());
            const std::size_t at = line.find("Soap Error: ");
            if (at != std::string::npos) {
                return line.substr(at + 12);
            }
        }
        return "none";
    }

    test_server m_server;
    trace_recorder m_trace;
    one_exchange m_client;
};

}  // namespace

TEST_F(SoapWire, PostsTheMessage) {
    m_client.AddElement(SOAP_ELEMENT_SIBLING, TESSEL_W("a"), TESSEL_W("<\u20AC>"));
    std::string request;
    EXPECT_EQ(call([&](server_connection& connection) {
                  request = connection.read_request();
                  connection.send(
                      response("200 OK\r\nContent-Type: text/xml", "<?xml version='1.0'?>\n<a> <b/></a>"));
              }),
              "");
    EXPECT_EQ(plain(wide_string(m_client.GetResponse())), "<?xml version=\"1.0\"?>\r\n<a><b/></a>\r\n");
    EXPECT_EQ(request.rfind("POST /service?a=b HTTP/1.1\r\n", 0), 0U) << request;
    for (const char* const part :
         {"\r\nContent-Type: text/xml; charset=\"utf-8\"\r\n", "\r\nSOAPAction: \"urn:x#m%C3%BC\"\r\n",
          "<SOAPSDK1:m\u00FC "
          "xmlns:SOAPSDK1=\"urn:x#\"><SOAPSDK1:a>&lt;\u20AC&gt;</SOAPSDK1:a></SOAPSDK1:m\u00FC>"
          "</SOAP-ENV:Body></SOAP-ENV:Envelope>"}) {
        EXPECT_NE(request.find(part), std::string::npos) << part << "\nin\n" << request;
    }
    EXPECT_EQ(request.find("Expect:"), std::string::npos);
}

TEST_F(SoapWire, TellsEachOutcomeOfHttp) {
    const std::string large(65U << 20U, ' ');
    const struct {
        const char* name;
        std::string answer, error;
    } rows[] = {
        {"202", response("202 Accepted", k_envelope), ""},
        {"a fault", response("500 Oops\r\nContent-Type: application/soap+xml", k_envelope), ""},
        {"500 without XML", response("500 Oops\r\nContent-Type: text/html", k_envelope), "801901f4"},
        {"a redirect", response("307 There\r\nLocation: /other", ""), "80190133"},
        {"407", response("407 Who\r\nProxy-Authenticate: Basic realm=\"x\"", ""), "800a13ba"},
        {"gzip", response("200 OK\r\nContent-Encoding: gzip", k_envelope), "8007000d"},
        {"the transport's character set",
         response("200 OK\r\nContent-Type: text/xml; charset=\"iso-8859-1\"", "<a>\xE9</a>"), ""},
        {"a body that is cut", "HTTP/1.1 200 OK\r\nContent-Length: 1000\r\n\r\n<a></a", "80004005"},
        {"too large", response("200 OK", large), "800700df"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(call([&](server_connection& connection) {
                      connection.read_request();
                      try {
                          connection.send(row.answer);
                      } catch (const std::exception&) {  // the client has closed
                      }
                      connection.close();
                  }),
                  row.error)
            << row.name;
    }
}

TEST_F(SoapWire, IsNotHeldByAServer) {
    os::shorten_soap_timeout_for_test(300);
    const auto begin = std::chrono::steady_clock::now();
    EXPECT_EQ(call([](server_connection& connection) {
                  connection.read_request();
                  connection.wait_for_close();
              }),
              "80072ee2")
        << "no answer";
    EXPECT_EQ(call([](server_connection& connection) {
                  connection.read_request();
                  connection.send("HTTP/1.1 200 OK\r\nContent-Length: 100\r\n\r\n<a>");
                  connection.wait_for_close();
              }),
              "80072ee2")
        << "half an answer";
    for (const char* const drop :
         {"HTTP/1.1 200 OK\r\nContent-Length: 1000000\r\n\r\n", "HTTP/1.1 200 OK\r\nX: "}) {
        EXPECT_EQ(call([drop](server_connection& connection) {
                      connection.read_request();
                      connection.send(drop);
                      try {
                          while (!connection.has_bytes()) {  // until the client closes
                              connection.send("<");
                              std::this_thread::yield();
                          }
                      } catch (const std::exception&) {
                      }
                  }),
                  "80072ee2")
            << "drop by drop behind " << drop;
    }
    EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(10));
}

TEST_F(SoapWire, TellsWhyNobodyAnswers) {
    EXPECT_EQ(call([](server_connection& connection) {
                  connection.read_request();
                  connection.reset();
              }),
              "80072eff");
    m_server.stop_listening();
    const struct {
        std::string url;
        const char* error;
    } rows[] = {{url(), "80072efd"},
                {"ftp://host/", "80072ee6"},
                {"nonsense", "80072ee6"},
                {"http://no.such.host.invalid/", "80072ee7"}};
    for (const auto& row : rows) {
        trace_recorder::clear();
        EXPECT_EQ(m_client.Call(wide(row.url), TESSEL_W("m"), TESSEL_W("u")), 0);
        EXPECT_EQ(error(), row.error) << row.url;
    }
}

TEST_F(SoapWire, SendsNothingOfAMessageThatXmlCanNotCarry) {
    const wide_string control(1, 1);
    const struct {
        const char* name;
        CTString element, value, name_space;
    } rows[] = {{"a name with a blank", TESSEL_W("a b"), TESSEL_W(""), TESSEL_W("u")},
                {"a value with a control", TESSEL_W("a"), control, TESSEL_W("u")},
                {"an action with a line end", TESSEL_W("a"), TESSEL_W(""), TESSEL_W("u\r\nX: y")},
                {"an action with a quote", TESSEL_W("a"), TESSEL_W(""), TESSEL_W("u\"")}};
    for (const auto& row : rows) {
        trace_recorder::clear();
        m_client.Initialize();
        m_client.AddElement(SOAP_ELEMENT_SIBLING, row.element, row.value);
        EXPECT_EQ(m_client.Call(wide(url()), TESSEL_W("m"), row.name_space), 0) << row.name;
        EXPECT_EQ(error(), "80070057") << row.name;
    }
    EXPECT_FALSE(m_server.has_client());
}

TEST_F(SoapWire, GoesThroughAProxyWithItsAccount) {
    const auto through_proxy = [&](const wchar* password, std::string& account) {
        CLumProxyInfo proxy(kro::tessel::http::proxy_http, TESSEL_W("127.0.0.1"), m_server.port(),
                            TESSEL_W("ann"), password);
        std::thread serving([&] {
            std::string request;
            const std::string refusal = response("407 Who\r\nProxy-Authenticate: Basic realm=\"x\"", "");
            for (int requests = 0; requests < 2; ++requests) {
                server_connection connection = m_server.accept();
                request = connection.read_request();
                const bool knows_ann = request.find("YW5uOnNlY3JldA==") != std::string::npos;  // ann:secret
                connection.send(knows_ann ? response("200 OK", k_envelope) : refusal);
            }
            account = request.substr(0, request.find("\r\n"));
        });
        const int result = m_client.through("http://service.test:81/x", proxy);
        serving.join();
        return result;
    };
    std::string line;
    EXPECT_EQ(through_proxy(TESSEL_W("wrong"), line), 0);
    EXPECT_EQ(error(), "800a13ba");
    EXPECT_EQ(through_proxy(TESSEL_W("secret"), line), 1);
    EXPECT_EQ(line, "POST http://service.test:81/x HTTP/1.1");
    EXPECT_EQ(m_client.getClientCfgMap().size(), 1U);
}
