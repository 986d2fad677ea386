#include "NetTestSupport.h"
#include <tmain/net/DatagramSocket.h>
#include <tmain/stream/IOException.h>

using namespace net;
using tarso::stream::IOException;
using tarso::stream::TimeoutException;

namespace {

/// One datagram as "<bytes> from <host>:<port>"; `from` is the sender.
std::string receiveFrom(DatagramSocket& socket, SocketAddress& from) {
    char buf[64];
    int n = socket.read(buf, sizeof(buf), from);
    return std::string(buf, n) + " from " + from.getHost() + ":" + std::to_string(from.getPort()) +
           (from.isResolved() ? "" : " unresolved");
}

TEST(Datagrams, RoundTripBetweenTwoSockets) {
    DatagramSocket server, client(2000, 2000, 2000, false);
    server.bind("127.0.0.1", 0);
    ASSERT_TRUE(server.isConnected() && server.getProtocol() == TP_UDP);
    SocketAddress serverAddress("127.0.0.1", server.getLocalPort()), from, back;
    EXPECT_EQ(Socket::INVALID_HANDLE, client.getNativeSocket());
    EXPECT_EQ(5, client.write("hello", 5, serverAddress)) << "the first write makes the handle";
    EXPECT_FALSE(client.isConnected());
    EXPECT_EQ("hello from 127.0.0.1:" + std::to_string(client.getLocalPort()), receiveFrom(server, from));
    EXPECT_EQ(5, server.write("world", 5, from));
    EXPECT_EQ("world from 127.0.0.1:" + std::to_string(server.getLocalPort()), receiveFrom(client, back));

    char buf[16];
    client.writeAll("0123456789", 10, serverAddress, 1);
    client.write("abcdef", 6, serverAddress);
    server.readAll(buf, 16, from, 1);
    EXPECT_EQ("0123456789abcdef", std::string(buf, 16)) << "two datagrams make one read";
    EXPECT_EQ(0, server.read(buf, 0, from));
}

TEST(Datagrams, Errors) {
    DatagramSocket socket(2000, 60, 60), unbound;
    char buf[16];
    SocketAddress from;
    EXPECT_MESSAGE(IOException, "Socket read error: Invalid socket", socket.read(buf, 16, from));
    socket.bind("127.0.0.1", 0);
    EXPECT_MESSAGE(IOException, "Socket already bound", socket.bind("127.0.0.1", 0));
    EXPECT_MESSAGE(TimeoutException, "Socket read timeout (>60ms)", socket.read(buf, 16, from));
    EXPECT_EQ(Socket::SOCK_ETIMEDOUT, socket.getError());

    SocketAddress nowhere("no-such-host.invalid", 9);
    auto unresolvable = [](const char* op) {
        return "DatagramSocket::" + std::string(op) + ":unable to resolve address no-such-host.invalid:9";
    };
    EXPECT_MESSAGE(IOException, unresolvable("write"), socket.write("x", 1, nowhere));
    EXPECT_MESSAGE(IOException, unresolvable("read"), socket.read(buf, 1, nowhere));
    EXPECT_MESSAGE(IOException, unresolvable("readAll"), socket.readAll(buf, 1, nowhere, 1));
    EXPECT_MESSAGE(IOException, unresolvable("writeAll"), socket.writeAll("x", 1, nowhere, 1));
    EXPECT_MESSAGE(IOException, unresolvable("bind"), unbound.bind(nowhere));
    EXPECT_EQ(Socket::SOCK_HOST_NOT_FOUND, unbound.getError());
    unbound.bind("127.0.0.1", (int)socket.getLocalPort());
    EXPECT_EQ(Socket::INVALID_HANDLE, unbound.getNativeSocket()) << "an address in use binds nothing";

    // Non-blocking: nothing there is 0, and readAll gives up with the difference.
    socket.setNonBlocking(true);
    EXPECT_EQ(0, socket.read(buf, 16, from));
    EXPECT_EQ(0, socket.getError());
    unbound.write("abcd", 4, SocketAddress("127.0.0.1", socket.getLocalPort()));
    ASSERT_TRUE(socket.pollReadable(5000));
    EXPECT_MESSAGE(IOException, "DatagramSocket::readAll:2 bytes could not be written",
                   socket.readAll(buf, 10, from, 2));
    EXPECT_EQ("abcd", std::string(buf, 4));
}

} // namespace
