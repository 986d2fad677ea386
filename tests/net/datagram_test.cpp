#include "NetTestSupport.h"
#include <tmain/net/DatagramSocket.h>
#include <tmain/stream/IOException.h>

using namespace net;
using tarso::stream::IOException;
using tarso::stream::TimeoutException;

namespace {

TEST(Datagrams, RoundTripBetweenTwoSockets) {
    DatagramSocket server;
    server.bind("127.0.0.1", 0);
    ASSERT_TRUE(server.isConnected());
    EXPECT_EQ(TP_UDP, server.getProtocol());
    SocketAddress serverAddress("127.0.0.1", server.getLocalPort());

    DatagramSocket client(2000, 2000, 2000, false);
    EXPECT_EQ(Socket::INVALID_HANDLE, client.getNativeSocket());
    EXPECT_EQ(5, client.write("hello", 5, serverAddress));
    EXPECT_NE(Socket::INVALID_HANDLE, client.getNativeSocket()) << "the first write makes the handle";
    EXPECT_FALSE(client.isConnected());

    char buf[64];
    SocketAddress from;
    ASSERT_EQ(5, server.read(buf, sizeof(buf), from));
    EXPECT_EQ("hello", std::string(buf, 5));
    EXPECT_EQ(std::string("127.0.0.1"), from.getHost());
    EXPECT_EQ(client.getLocalPort(), from.getPort());
    EXPECT_TRUE(from.isResolved());

    EXPECT_EQ(5, server.write("world", 5, from));
    SocketAddress back;
    ASSERT_EQ(5, client.read(buf, sizeof(buf), back));
    EXPECT_EQ("world", std::string(buf, 5));
    EXPECT_EQ(server.getLocalPort(), back.getPort());

    client.writeAll("0123456789", 10, serverAddress, 1);
    client.write("abcdef", 6, serverAddress);
    server.readAll(buf, 16, from, 1);
    EXPECT_EQ("0123456789abcdef", std::string(buf, 16)) << "two datagrams make one read";
    EXPECT_EQ(0, server.read(buf, 0, from));
}

TEST(Datagrams, Errors) {
    DatagramSocket socket(2000, 60, 60);
    char buf[16];
    SocketAddress from;
    EXPECT_MESSAGE(IOException, "Socket read error: Invalid valid descriptor", socket.read(buf, 16, from));
    socket.bind("127.0.0.1", 0);
    EXPECT_MESSAGE(IOException, "Socket already bound", socket.bind("127.0.0.1", 0));
    EXPECT_MESSAGE(TimeoutException, "Socket read timeout (>60ms)", socket.read(buf, 16, from));
    EXPECT_EQ(Socket::SOCK_ETIMEDOUT, socket.getError());

    SocketAddress nowhere("no-such-host.invalid", 9);
    EXPECT_MESSAGE(IOException, "DatagramSocket::write:unable to resolve address no-such-host.invalid:9",
                   socket.write("x", 1, nowhere));
    EXPECT_MESSAGE(IOException, "DatagramSocket::read:unable to resolve address no-such-host.invalid:9",
                   socket.read(buf, 1, nowhere));
    EXPECT_MESSAGE(IOException, "DatagramSocket::readAll:unable to resolve address no-such-host.invalid:9",
                   socket.readAll(buf, 1, nowhere, 1));
    EXPECT_MESSAGE(IOException, "DatagramSocket::writeAll:unable to resolve address no-such-host.invalid:9",
                   socket.writeAll("x", 1, nowhere, 1));
    DatagramSocket unbound;
    EXPECT_MESSAGE(IOException, "DatagramSocket::bind:unable to resolve address no-such-host.invalid:9",
                   unbound.bind(nowhere));
    EXPECT_EQ(Socket::SOCK_HOST_NOT_FOUND, unbound.getError());

    DatagramSocket taken;
    taken.bind("127.0.0.1", (int)socket.getLocalPort());
    EXPECT_EQ(Socket::INVALID_HANDLE, taken.getNativeSocket()) << "an address in use binds nothing";

    // Non-blocking: nothing there is 0, and readAll gives up with the difference.
    socket.setNonBlocking(true);
    EXPECT_EQ(0, socket.read(buf, 16, from));
    EXPECT_EQ(0, socket.getError());
    DatagramSocket sender;
    sender.write("abcd", 4, SocketAddress("127.0.0.1", socket.getLocalPort()));
    ASSERT_TRUE(socket.pollReadable(5000));
    EXPECT_MESSAGE(IOException, "DatagramSocket::readAll:2 bytes could not be written",
                   socket.readAll(buf, 10, from, 2));
    EXPECT_EQ("abcd", std::string(buf, 4));
}

} // namespace
