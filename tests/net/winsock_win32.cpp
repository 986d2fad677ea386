#include "NetTestSupport.h"
#include <winsock2.h>

namespace {

/// Whether WinSock is started: socket() refuses with WSANOTINITIALISED when not.
bool winsockStarted() {
    SOCKET probe = socket(AF_INET, SOCK_DGRAM, 0);
    if (probe == INVALID_SOCKET)
        return WSAGetLastError() != WSANOTINITIALISED;
    closesocket(probe);
    return true;
}

TEST(WinSock, StartedByTheFirstSocketCleanedUpWithTheLast) {
    ASSERT_EQ(0, net::Socket::INSTANCES.load());
    for (int round = 0; round < 3; ++round) {
        EXPECT_FALSE(winsockStarted()) << "cleaned up with the last socket, round " << round;
        {
            nettest::Connection c;
            EXPECT_TRUE(winsockStarted());
            nettest::sendAll(*c.client, "again");
            EXPECT_EQ("again", nettest::receive(*c.peer, 5))
                << "a socket after the clean-up works, round " << round;
        }
    }
    EXPECT_FALSE(winsockStarted());
}

} // namespace
