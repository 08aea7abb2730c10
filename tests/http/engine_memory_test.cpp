// Memory stays flat over many requests, whatever they end in.
#include "os/inet.h"

#include "support/ascii.h"
#include "support/test_server.h"
#include "tessel/tessel.h"

#include <gtest/gtest.h>
#include <malloc.h>

#include <string>
#include <thread>

namespace {

using namespace kro::tessel::http;
namespace os = kro::tessel::os;
using kro::tessel::CTString;
using tessel_test::server_connection;
using tessel_test::test_server;

constexpr int k_in_flight = 32;

// Keeps each connection for a hundred requests, answers them in turn with a page, a packed page, a missing
// one and a body without a length, and closes now and then in the middle.
void serve(test_server& server) {
    const std::string ok = "HTTP/1.1 200 OK\r\n";
    const std::string answers[] = {ok + "Content-Length: 4\r\n\r\ntext",
                                   "HTTP/1.1 404 Not Found\r\nContent-Length: 4\r\n\r\ngone",
                                   ok + "Transfer-Encoding: chunked\r\n\r\n5\r\nhello\r\n0\r\n\r\n",
                                   ok + "Content-Encoding: gzip\r\nContent-Length: 12\r\n\r\nnot a gzip!!",
                                   ok + "Content-Length: 30000\r\n\r\n" + std::string(30000, 'x')};
    for (;;) {
        server_connection client = server.accept();
        for (int i = 0; i < 100; ++i) {
            const std::string request = client.read_request();
            if (request.empty()) {
                break;
            }
            if (request.rfind("GET /stop", 0) == 0) {
                client.answer("");
                return;
            }
            client.send(answers[i % 5]);
        }
    }
}

class many_requests {
public:
    explicit many_requests(const test_server& server) : m_server(server) { s_self = this; }

    // Returns the bytes in use afterwards.
    std::size_t run(int total) {
        m_left = total;
        m_running = 0;
        for (int i = 0; i < k_in_flight; ++i) {
            start("/");
        }
        kro::tessel::message_loop::run();
        return mallinfo2().uordblks;
    }

    void start(const char* path) {
        --m_left;
        ++m_running;
        const CTString url(tessel_test::wide(m_server.url(path)));
        const auto flags = k_invoke_accept_gzip | k_invoke_decode_gzip;
        ASSERT_NE(invoke2(url, {}, nullptr, 0, flags, complete, 0, http_method_get), nullptr);
    }

private:
    static void complete(unsigned long /*user_context*/, session_context* context) {
        set_auto_delete(context, true);
        --s_self->m_running;
        if (s_self->m_left > 0) {
            s_self->start("/");
        } else if (s_self->m_running == 0) {
            kro::tessel::message_loop::quit();
        }
    }

    static inline many_requests* s_self = nullptr;
    const test_server& m_server;
    int m_left = 0;
    int m_running = 0;
};

TEST(EngineMemory, StaysFlatOverAHundredThousandRequests) {
    test_server server;
    std::thread player([&] { serve(server); });
    http_init();
    os::inet().set_connection_limit(1);  // the server looks after one connection at a time
    many_requests requests(server);
    const std::size_t early = requests.run(10000);
    const std::size_t late = requests.run(90000);
    EXPECT_LT(late, early + 0x10000);
    requests.start("/stop");
    kro::tessel::message_loop::run();
    player.join();
}

}  // namespace
