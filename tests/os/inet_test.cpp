// The HTTP service against a server that misbehaves byte by byte.
#include "os/inet_contract.h"
#include "os/inet_sync_contract.h"

namespace tessel_test {
namespace {

using testing::ElementsAre;

INSTANTIATE_TEST_SUITE_P(System, InetContract,
                         testing::Values(inet_under_test{"system", [] { return &os::inet(); }}));
INSTANTIATE_TEST_SUITE_P(System, InetSyncContract,
                         testing::Values(inet_under_test{"system", [] { return &os::inet(); }}));

TEST(Inet, CarriesARequestFromConnectToTheLastByte) {
    test_server server;
    inet_client client(os::inet(), server.port());
    const auto request = client.request(TESSEL_W("POST"), TESSEL_W("/a b?q=1"));
    const std::string body = "hello";
    ASSERT_TRUE(client.net
                    .send(request, TESSEL_W("X-One: 1\r\n"), body.data(), 5, os::inet_send_mode::begin,
                          client.log.context())
                    .pending());
    auto peer = server.accept();
    const std::string received = peer.read_request();
    EXPECT_EQ(1U, client.log.wait().result);
    EXPECT_EQ(
        "POST /a%20b?q=1 HTTP/1.1\r\nHost: 127.0.0.1:" + std::to_string(server.port()) +
            "\r\nContent-Length: 5\r\nUser-Agent: agent/1\r\nX-One: 1\r\nConnection: Keep-Alive\r\n\r\nhello",
        received);
    peer.send("HTTP/1.1 200 OK\r\nContent-Length: 3\r\nX: y\r\n\r\nabc");
    EXPECT_EQ(0U, client.end(request));
    EXPECT_EQ(200U, client.status(request));
    EXPECT_EQ("abc", client.body(request));
    client.net.close(request);
    EXPECT_THAT(client.log.codes(), ElementsAre(60, 10, 11, 20, 21, 30, 31, 100, 40, 41, 100, 70));
}

}  // namespace
}  // namespace tessel_test
