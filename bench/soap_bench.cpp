// SOAP beside the libraries under it: a call beside a POST by libcurl and a parse by libxml2, written by
// hand; the writing of a message beside a bare loop that escapes and appends.
#include "os/linux/soap_buffer.h"
#include "os/linux/soap_serializer.h"

#include "support/beside.h"
#include "support/test_server.h"
#include "tessel/soap/soap_client.h"

#include <benchmark/benchmark.h>
#include <curl/curl.h>
#include <libxml/parser.h>
#include <libxml/tree.h>

#include <cstddef>
#include <cstdlib>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace {

using kro::tessel::CTString;
using kro::tessel::wide_string;
using tessel_bench::compare;
namespace os = kro::tessel::os;

constexpr std::size_t k_answer_bytes = 4096;
constexpr int k_elements = 20;

std::string make_answer() {
    std::string text =
        R"(<?xml version="1.0" encoding="UTF-8"?><e:Envelope xmlns:e="http://schemas.xmlsoap.org/soap/envelope/"><e:Body><r><x>)";
    while (text.size() < k_answer_bytes - 120) {
        text += "<item><name>a name of a value</name><value>a value that it stands for</value></item>";
    }
    return text + "</x></r></e:Body></e:Envelope>";
}

// Answers every request on every connection; a thread for each.
class answering_server {
public:
    answering_server() {
        std::thread([this] {
            for (;;) {
                std::thread([connection = m_server.accept()]() mutable {
                    try {
                        while (!connection.read_request().empty()) {
                            connection.send(k_response);
                        }
                    } catch (...) {  // the end of the program
                    }
                }).detach();
            }
        }).detach();
    }

    std::uint16_t port() const { return m_server.port(); }

private:
    static inline const std::string k_body = make_answer();
    static inline const std::string k_response =
        "HTTP/1.1 200 OK\r\nContent-Type: text/xml; charset=utf-8\r\nContent-Length: " +
        std::to_string(k_body.size()) + "\r\n\r\n" + k_body;

    tessel_test::test_server m_server;
};

std::size_t append(char* data, std::size_t size, std::size_t count, void* to) {
    static_cast<std::string*>(to)->append(data, size * count);
    return size * count;
}

class plain_client {
public:
    explicit plain_client(const std::string& url) : m_easy(curl_easy_init()) {
        m_headers = curl_slist_append(m_headers, "Content-Type: text/xml; charset=\"utf-8\"");
        m_headers = curl_slist_append(m_headers, "SOAPAction: \"urn:benchmethod\"");
        m_headers = curl_slist_append(m_headers, "Expect:");
        curl_easy_setopt(m_easy, CURLOPT_URL, url.c_str());
        curl_easy_setopt(m_easy, CURLOPT_HTTPHEADER, m_headers);
        curl_easy_setopt(m_easy, CURLOPT_WRITEFUNCTION, append);
        curl_easy_setopt(m_easy, CURLOPT_NOSIGNAL, 1L);
    }
    plain_client(const plain_client&) = delete;
    plain_client& operator=(const plain_client&) = delete;
    ~plain_client() {
        curl_slist_free_all(m_headers);
        curl_easy_cleanup(m_easy);
    }

    void call() {
        std::string body =
            R"(<?xml version="1.0"?><e:Envelope xmlns:e="http://schemas.xmlsoap.org/soap/envelope/"><e:Body><m:method xmlns:m="urn:bench">)";
        for (int i = 0; i < k_elements; ++i) {
            body += "<m:element>a value that the service is told</m:element>";
        }
        body += "</m:method></e:Body></e:Envelope>";
        std::string answer;
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDS, body.c_str());
        curl_easy_setopt(m_easy, CURLOPT_POSTFIELDSIZE, static_cast<long>(body.size()));
        curl_easy_setopt(m_easy, CURLOPT_WRITEDATA, &answer);
        if (curl_easy_perform(m_easy) != CURLE_OK) {
            std::abort();
        }
        xmlDoc* const document =
            xmlReadMemory(answer.data(), static_cast<int>(answer.size()), nullptr, nullptr, XML_PARSE_NONET);
        if (document == nullptr) {
            std::abort();
        }
        xmlFreeDoc(document);
    }

private:
    CURL* m_easy;
    curl_slist* m_headers = nullptr;
};

void call(benchmark::State& state) {
    static answering_server s_server;
    const std::string url = "http://127.0.0.1:" + std::to_string(s_server.port()) + "/service";
    plain_client plain(url);
    CLumSoapClient client;
    for (int i = 0; i < k_elements; ++i) {
        client.AddElement(SOAP_ELEMENT_SIBLING, TESSEL_W("element"),
                          TESSEL_W("a value that the service is told"));
    }
    const CTString wide_url(wide_string(url.begin(), url.end()));
    compare(
        state, k_answer_bytes, [&] { plain.call(); },
        [&] {
            if (client.Call(wide_url, TESSEL_W("method"), TESSEL_W("urn:bench")) != 1) {
                std::abort();
            }
        });
}
BENCHMARK(call)->UseManualTime();

// What a message costs at least: a loop over the units, without a check of any.
void escape_and_append(std::string& out, const wide_string& text) {
    for (const wchar unit : text) {
        switch (unit) {
            case '<':
                out += "&lt;";
                break;
            case '>':
                out += "&gt;";
                break;
            case '&':
                out += "&amp;";
                break;
            case '\r':
                out += "&#xD;";
                break;
            default:
                out += static_cast<char>(unit);
        }
    }
}

void message(benchmark::State& state) {
    const std::size_t bytes = std::size_t{1} << 20U;
    const auto piece = static_cast<std::size_t>(std::max<std::int64_t>(state.range(0), 1));
    wide_string value(piece, TESSEL_W('v'));
    for (std::size_t i = 0; i < piece; i += 50) {
        value[i] = TESSEL_W('&');
    }
    compare(
        state, bytes,
        [&] {
            std::string out;
            for (std::size_t i = 0; i < bytes / piece; ++i) {
                out += "<m:element>";
                escape_and_append(out, value);
                out += "</m:element>";
            }
            benchmark::DoNotOptimize(out.data());
        },
        [&] {
            os::soap_buffer out;
            os::message_serializer serializer;
            serializer.init(out);
            serializer.start_envelope({}, {}, {});
            serializer.start_body({});
            serializer.start_element(TESSEL_W("method"), TESSEL_W("urn:bench"), {});
            for (std::size_t i = 0; i < bytes / piece; ++i) {
                serializer.start_element(TESSEL_W("element"), TESSEL_W("urn:bench"), {});
                serializer.write_string(value);
                serializer.end_element();
            }
            serializer.end_element();
            serializer.end_body();
            serializer.end_envelope();
            benchmark::DoNotOptimize(out.bytes.data());
        });
}
BENCHMARK(message)->Arg(1024)->Arg(1 << 20)->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
