// What takes a minute to be seen: a connection that serves nobody is closed, whoever it was for.
#include "os/inet_client.h"

#include <poll.h>

namespace tessel_test {
namespace {

// Nobody makes another synchronous call, so the service thread has to see to it, when there is one.
TEST(InetSlow, IdleConnectionsAreClosed) {
    test_server server;
    server_connection peers[2];
    for (const bool async : {false, true}) {
        inet_client client(os::inet(), server.port(), TESSEL_W("127.0.0.1"), async);
        std::thread player([&] {
            peers[async] = server.accept_request();
            peers[async].answer("ok");
        });
        const auto request = client.request();
        client.whole(request);
        EXPECT_EQ(0U, async ? client.log.wait().error : 0U);
        EXPECT_EQ("ok", client.body(request));
        player.join();
    }
    EXPECT_FALSE(peers[0].has_bytes() || peers[1].has_bytes()) << "kept for a while";
    for (const server_connection& peer : peers) {
        pollfd closed{peer.socket(), POLLIN, 0};
        EXPECT_EQ(1, ::poll(&closed, 1, 90'000));
    }
}

}  // namespace
}  // namespace tessel_test
