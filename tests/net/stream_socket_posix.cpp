#include "NetTestSupport.h"
#include <cerrno>
#include <sys/socket.h>

namespace {

// Wine keeps no pending error for a reset that came after the end of the
// stream, so the reset is checked where the socket option shows it.
TEST(StreamSockets, DisconnectWithoutDrainingResets) {
    for (bool drain : {true, false}) {
        nettest::Connection c;
        nettest::sendAll(*c.peer, std::string(1000, 'd'));
        ASSERT_TRUE(c.client->pollReadable(5000));
        c.client->disconnect(drain);
        ASSERT_TRUE(c.peer->pollReadable(5000));
        // Unread data makes the close a reset; drained, it is an orderly close.
        int pending = -1;
        socklen_t length = sizeof(pending);
        ASSERT_EQ(0, getsockopt((int)c.peer->getNativeSocket(), SOL_SOCKET, SO_ERROR, &pending, &length));
        EXPECT_EQ(drain ? 0 : EPIPE, pending) << drain;
    }
}

} // namespace
