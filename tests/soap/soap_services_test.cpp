// Catches: a message that services of other makers don't understand, an answer of theirs that we don't.
#include "support/trace_recorder.h"
#include "tessel/platform/host.h"
#include "tessel/proxy/proxy_finder.h"
#include "tessel/soap/soap_client.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <vector>

using kro::tessel::CTString;
using kro::tessel::wide_string;

namespace {

// A service in a process of its own; ended with the object.
class service_process {
public:
    explicit service_process(const std::vector<std::string>& command) {
        int ends[2] = {};
        if (::pipe(ends) != 0) {
            return;
        }
        m_process = ::fork();
        if (m_process == 0) {
            ::dup2(ends[1], STDOUT_FILENO);
            ::dup2(ends[1], STDERR_FILENO);
            ::close(ends[0]);
            std::vector<char*> words;
            words.reserve(command.size() + 1);
            for (const std::string& word : command) {
                words.push_back(const_cast<char*>(word.c_str()));
            }
            words.push_back(nullptr);
            ::execvp(words[0], words.data());
            ::_exit(127);
        }
        ::close(ends[1]);
        m_output = ::fdopen(ends[0], "r");
    }
    service_process(const service_process&) = delete;
    service_process& operator=(const service_process&) = delete;
    ~service_process() {
        ::kill(m_process, SIGKILL);
        ::waitpid(m_process, nullptr, 0);
        std::fclose(m_output);
    }

    /// As the service tells it when it listens; empty when it ends without a word.
    std::string url() {
        char line[512];
        while (std::fgets(line, sizeof line, m_output) != nullptr) {
            const std::string text = line;
            const std::size_t begin = text.find("http://");
            if (begin != std::string::npos) {
                return text.substr(begin, text.find_first_of("/)\r\n", begin + 7) - begin);
            }
        }
        return {};
    }

private:
    pid_t m_process = -1;
    FILE* m_output = nullptr;
};

struct toolkit {
    const char* name;
    std::vector<std::string> command;
    const char* path;
};

void PrintTo(const toolkit& one, std::ostream* out) {
    *out << one.name;
}

bool is_there(const toolkit& one) {
    if (one.command[0] == "php") {
        return std::system("php -m 2>/dev/null | grep -qx soap") == 0;
    }
    return one.command[0] == "perl" ? std::system("perl -MSOAP::Lite -e 1 2>/dev/null") == 0
                                    : ::access(one.command[0].c_str(), X_OK) == 0;
}

class SoapServices : public testing::TestWithParam<toolkit> {};

std::string folder(const char* file) {
    return std::string(TESSEL_SERVICES) + "/" + file;
}

}  // namespace

TEST_P(SoapServices, UnderstandUsAndAreUnderstood) {
    if (!is_there(GetParam())) {
        GTEST_SKIP() << GetParam().name << " isn't installed";
    }
    service_process service(GetParam().command);
    const std::string address = service.url();
    ASSERT_FALSE(address.empty());
    kro::tessel::set_proxy_finder_factory([](IProxyFinderSink*) -> IProxyFinder* { return nullptr; });
    kro::tessel::set_soap_service_namespace(TESSEL_W("urn:tessel-test"));
    const tessel_test::trace_recorder trace;
    const std::string url = address + GetParam().path;
    CTString texts[] = {wide_string(url.begin(), url.end()),
                        TESSEL_W("urn:tessel-test#getClientConfiguration"),
                        TESSEL_W("Ann"),
                        TESSEL_W("p<&>w"),
                        TESSEL_W("app"),
                        TESSEL_W("1.2")};
    CLumSoapClient client;
    EXPECT_EQ(client.CallService(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5]), 1);
    EXPECT_EQ(client.getClientCfgMap(),
              (CLumSoapClient::client_cfg{{TESSEL_W("screen"), TESSEL_W("ann")},
                                          {TESSEL_W("client"), TESSEL_W("app 1.2")},
                                          {TESSEL_W("gr\u00FC\u00DFe"), TESSEL_W("<&> \u20AC")}}));
    texts[3] = TESSEL_W("wrong");
    EXPECT_EQ(client.TryConnect(texts[0], texts[1], texts[2], texts[3], texts[4], texts[5]), 0);
    EXPECT_TRUE(trace.has(TESSEL_W("Error: Soap Fault: "))) << "with status 500";
    EXPECT_TRUE(trace.has(TESSEL_W(": wrong password")));
}

INSTANTIATE_TEST_SUITE_P(
    Toolkits, SoapServices,
    testing::Values(toolkit{"PHP", {"php", "-S", "127.0.0.1:0", folder("service.php")}, "/encoded"},
                    toolkit{"PHP, literal", {"php", "-S", "127.0.0.1:0", folder("service.php")}, "/literal"},
                    toolkit{"SOAP::Lite", {"perl", folder("service.pl")}, "/"},
                    toolkit{"gSOAP", {TESSEL_GSOAP_SERVICE}, "/"}));
