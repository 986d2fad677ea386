#include "NetTestSupport.h"
#include <netinet/in.h>
#include <tmain/net/SocketClosedException.h>
#include <tmain/stream/IOException.h>

using namespace net;
using nettest::Connection;
using nettest::receive;
using nettest::sendAll;
using nettest::TestClient;
using tarso::stream::IOException;
using tarso::stream::Stream;
using tarso::stream::TimeoutException;

namespace {

/// A port on 127.0.0.1 that nothing listens on.
int closedPort() {
    ServerSocket s;
    s.bind("127.0.0.1", 0);
    return (int)s.getLocalPort();
}

TEST(StreamSockets, EchoThroughStreamAdapters) {
    Connection c;
    EXPECT_TRUE(c.client->isConnected() && c.peer->isConnected());
    EXPECT_EQ(c.server.getLocalPort(), c.client->getPeerAddress().getPort());
    EXPECT_EQ(std::string("127.0.0.1"), c.peer->getPeerAddress().getHost());
    EXPECT_EQ(c.client->getLocalPort(), c.peer->getPeerAddress().getPort());
    EXPECT_EQ((std::vector<unsigned>{2000, 2000, 2000}),
              (std::vector<unsigned>{c.peer->getConnectTimeout(), c.peer->getReadTimeout(),
                                     c.peer->getWriteTimeout()}));
    EXPECT_EQ(TP_TCP, c.peer->getProtocol());
    EXPECT_EQ(2048, c.peer->getBufferSize());

    SocketInputStream* in = c.peer->getInputStream();
    EXPECT_EQ(in, c.peer->getInputStream());
    EXPECT_EQ(0u, in->available());
    std::string data = tmaintest::randomBytes(200000, 7);
    SocketOutputStream* clientOut = c.client->getOutputStream();
    std::thread writer(
        [&] { EXPECT_EQ(data.size(), clientOut->write(data.data(), 1, (unsigned)data.size())); });
    std::string got = receive(*c.peer, data.size());
    writer.join();
    EXPECT_TRUE(got == data);
    EXPECT_EQ(data.size(), in->tell());
    EXPECT_EQ(data.size(), clientOut->tell());
    EXPECT_EQ(clientOut, c.client->getOutputStream());
    EXPECT_EQ(0u, clientOut->tell()) << "asking again resets the adapter";

    // Typed values in stream order, and back the other way.
    SocketOutputStream* out = c.peer->getOutputStream();
    out->setEndianness(tarso::platform::ENDIAN_BIG);
    ASSERT_TRUE(out->write(0x01020304) && out->write(std::string("echo")));
    out->flush();
    ASSERT_TRUE(c.client->pollReadable(5000));
    EXPECT_EQ(1u, c.client->getInputStream()->available());
    EXPECT_EQ(std::string("\1\2\3\4\0\0\0\4echo", 12), receive(*c.client, 12));
    EXPECT_FALSE(out->hasError() || in->hasError() || in->eof());

    EXPECT_MESSAGE(core::UnsupportedOperationException, "SocketInputStream::readLine", char line[8];
                   in->readLine(line, 8, '\n'));
    EXPECT_MESSAGE(core::UnsupportedOperationException, "SocketInputStream::getSTLStream",
                   in->getSTLStream());
    EXPECT_MESSAGE(core::UnsupportedOperationException, "SocketOutputStream::getSTLStream",
                   out->getSTLStream());
    in->close();
    out->close();
    EXPECT_FALSE(in->isOpen());
    EXPECT_TRUE(out->isOpen()) << "the output side only asks the socket";
    EXPECT_TRUE(c.peer->isConnected());
    char b;
    EXPECT_MESSAGE(core::IllegalStateException, "Stream no yet opened", in->read(&b, 1, 1));
    in->open(Stream::OM_READ);
    EXPECT_TRUE(in->isOpen());
    EXPECT_EQ(0u, in->tell());
}

TEST(StreamSockets, PeerCloseEndsTheConnection) {
    Connection c;
    sendAll(*c.peer, "bye");
    c.peer.reset();
    SocketInputStream* in = c.client->getInputStream();
    EXPECT_EQ("bye", receive(*c.client, 3));
    char buf[8];
    try {
        in->read(buf, 1, sizeof(buf));
        FAIL() << "no exception";
    } catch (const SocketClosedException& e) {
        EXPECT_STREQ("", e.getMessage());
        EXPECT_EQ(c.client.get(), e.getSocket());
    }
    EXPECT_FALSE(c.client->isConnected());
    EXPECT_TRUE(in->eof());
    EXPECT_FALSE(in->isOpen());
    EXPECT_MESSAGE(core::IllegalStateException, "Stream no yet opened", in->read(buf, 1, 1));
    EXPECT_MESSAGE(core::IllegalStateException, "Stream not yet opened",
                   c.client->getOutputStream()->write(buf, 1, 1));
    EXPECT_MESSAGE(IOException, "Socket disconnected", c.client->readAll(buf, 1, 1));
    EXPECT_MESSAGE(IOException, "Socket disconnected", c.client->writeAll(buf, 1, 1));
    EXPECT_NO_THROW(c.client->disconnect(true));
    EXPECT_EQ(Socket::INVALID_HANDLE, c.client->getNativeSocket());
}

TEST(StreamSockets, ResetByPeerIsAnErrorNotASignal) {
    Connection c;
    linger hard = {1, 0};
    ASSERT_EQ(0, setsockopt((int)c.peer->getNativeSocket(), SOL_SOCKET, SO_LINGER, &hard, sizeof(hard)));
    c.peer.reset(); // closing with a zero linger resets the connection
    std::string chunk(1024, 'w');
    std::string message;
    for (int i = 0; i < 1000 && message.empty(); ++i)
        message = tmaintest::messageOf<IOException>([&] { sendAll(*c.client, chunk); });
    EXPECT_EQ("Socket write error: Connection reset by peer", message);
    EXPECT_EQ(Socket::SOCK_ECONNRESET, c.client->getError());
    EXPECT_TRUE(c.client->getOutputStream()->hasError());
    EXPECT_TRUE(c.client->isConnected()) << "an error is not a close";
}

TEST(StreamSockets, ReadTimeoutOnBlockingSocket) {
    Connection c(50);
    EXPECT_MESSAGE(TimeoutException, "Socket read timeout (>50ms)", receive(*c.client, 1));
    EXPECT_EQ(Socket::SOCK_ETIMEDOUT, c.client->getError());
    EXPECT_TRUE(c.client->isConnected());
    c.client->clearError();
    sendAll(*c.peer, "late");
    EXPECT_EQ("late", receive(*c.client, 4)) << "the socket still works";

    c.client->setNonBlocking(true);
    char b;
    EXPECT_EQ(0u, c.client->getInputStream()->read(&b, 1, 1)) << "nothing there yet";
    EXPECT_EQ(0, c.client->getError());
}

TEST(StreamSockets, WriteTimeoutReportsTheReadTimeout) {
    Connection c(333, 50, 4096);
    int small = 4096;
    setsockopt((int)c.client->getNativeSocket(), SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
    std::string chunk(65536, 'f');
    std::string message;
    for (int i = 0; i < 1000 && message.empty(); ++i)
        message = tmaintest::messageOf<TimeoutException>(
            [&] { c.client->getOutputStream()->write(chunk.data(), 1, (unsigned)chunk.size()); });
    EXPECT_EQ("Socket read timeout (>333ms)", message);
    EXPECT_EQ(Socket::SOCK_ETIMEDOUT, c.client->getError());
}

TEST(StreamSockets, ReadAllAndWriteAll) {
    Connection c(50);
    sendAll(*c.peer, "0123");
    sendAll(*c.peer, "456789");
    char buf[10];
    c.client->readAll(buf, 10, 0);
    EXPECT_EQ("0123456789", std::string(buf, 10));
    c.client->writeAll("abcdef", 6, 0);
    EXPECT_EQ("abcdef", receive(*c.peer, 6));
    c.client->readAll(buf, 0, 0);

    c.client->setNonBlocking(true);
    sendAll(*c.peer, "abcd");
    ASSERT_TRUE(c.client->pollReadable(5000));
    EXPECT_MESSAGE(IOException, "Socket::readAll:2 bytes could not be written",
                   c.client->readAll(buf, 10, 3));
    EXPECT_EQ("abcd", std::string(buf, 4));
    EXPECT_MESSAGE(IOException, "Socket::readAll:10 bytes could not be written",
                   c.client->readAll(buf, 10, 1));

    // A peer that does not read: writeAll gives up after one wait of the read
    // timeout. What got through is counted at the peer after an orderly close.
    Connection full(30, 1000, 4096);
    int small = 4096;
    setsockopt((int)full.client->getNativeSocket(), SOL_SOCKET, SO_SNDBUF, &small, sizeof(small));
    full.client->setNonBlocking(true);
    std::string big(4 << 20, 'w');
    std::string message =
        tmaintest::messageOf<IOException>([&] { full.client->writeAll(big.data(), (int)big.size(), 1); });
    full.client->disconnect(false);
    long long arrived = 0;
    char piece[65536];
    EXPECT_THROW(for (;;) arrived += full.peer->getInputStream()->read(piece, 1, sizeof(piece)),
                 SocketClosedException);
    ASSERT_GT(arrived, 0);
    EXPECT_EQ("Socket::writeAll:" + std::to_string((long long)big.size() - 2 * arrived) +
                  " bytes could not be written",
              message);
}

TEST(StreamSockets, ConnectFailures) {
    int port = closedPort();
    std::string expected =
        "StreamSocket::connect:timeout for address 127.0.0.1:" + std::to_string(port) + " (700ms)";
    EXPECT_MESSAGE(TimeoutException, expected, ClientSocket("127.0.0.1", port, 700, 100, 100));
    EXPECT_EQ(0, Socket::INSTANCES.load()) << "a failed constructor counts itself out";
    TestClient client(nullptr, 0, 700);
    EXPECT_FALSE(client.isConnected());
    EXPECT_MESSAGE(TimeoutException, expected, client.connect("127.0.0.1", port, true));
    EXPECT_EQ(Socket::SOCK_ECONNREFUSED, client.getError());
    EXPECT_FALSE(client.isConnected() || client.isNonBlocking());
    EXPECT_EQ(Socket::INVALID_HANDLE, client.getNativeSocket());

    EXPECT_MESSAGE(
        IOException,
        "StreamSocket::connect:unable to connect to address no-such-host.invalid:80 (Host not found)",
        client.connect("no-such-host.invalid", 80, false));
    EXPECT_EQ(Socket::SOCK_HOST_NOT_FOUND, client.getError());
    EXPECT_MESSAGE(IOException,
                   "StreamSocket::connect:unable to connect to address 127.0.0.1:70000 (Invalid argument)",
                   client.connect("127.0.0.1", 70000, false));

    ServerSocket server;
    server.bind("127.0.0.1", 0);
    server.listen(4);
    int open = (int)server.getLocalPort();
    TestClient blocking("127.0.0.1", open, 2000, 1000, 1000, true);
    EXPECT_TRUE(blocking.isConnected());
    EXPECT_FALSE(blocking.isNonBlocking()) << "the connecting constructor leaves the socket blocking";
    client.connect("127.0.0.1", open, true);
    EXPECT_TRUE(client.isConnected() && client.isNonBlocking());
    EXPECT_EQ(0, client.getError());
    unsigned handle = client.getNativeSocket();
    client.connect("127.0.0.1", closedPort(), false);
    EXPECT_EQ(handle, client.getNativeSocket()) << "connected already: nothing to do";
    SocketAddress address("localhost", (unsigned)open);
    TestClient viaAddress;
    viaAddress.connect(address, false);
    EXPECT_TRUE(address.isResolved());
    std::string text;
    EXPECT_STREQ("127.0.0.1", address.getPrintableAddress(text));
}

TEST(StreamSockets, ServerBindListenAndAcceptErrors) {
    ServerSocket first;
    SocketAddress any(nullptr, 0);
    first.bind(any);
    EXPECT_TRUE(first.isConnected());
    EXPECT_NE(0u, any.getPort()) << "the bound port is reported";
    EXPECT_EQ(first.getLocalPort(), any.getPort());
    first.listen(4);
    EXPECT_MESSAGE(IOException, "Socket already bound", first.bind("127.0.0.1", 0));

    ServerSocket second;
    second.bind(nullptr, (int)first.getLocalPort());
    EXPECT_EQ(Socket::INVALID_HANDLE, second.getNativeSocket()) << "an address in use binds nothing";
    EXPECT_FALSE(second.isConnected());
    EXPECT_EQ(Socket::SOCK_EADDRINUSE, second.getError());
    EXPECT_MESSAGE(IOException, "Unable to listen on socket: Invalid valid descriptor", second.listen(4));
    EXPECT_MESSAGE(IOException, "Error accepting new connection: Invalid valid descriptor", second.accept());
    EXPECT_MESSAGE(IOException, "ServerSocket::bind:unable to resolve address no-such-host.invalid:80",
                   second.bind("no-such-host.invalid", 80));

    ServerSocket polling(true, true);
    polling.bind("127.0.0.1", 0);
    polling.listen(4);
    EXPECT_EQ(nullptr, polling.accept()) << "nobody waiting";
    EXPECT_EQ(0, polling.getError());
    ClientSocket client("127.0.0.1", (int)polling.getLocalPort());
    ASSERT_TRUE(polling.pollReadable(5000));
    std::unique_ptr<StreamSocket> peer(polling.accept());
    ASSERT_TRUE(peer);
    EXPECT_TRUE(peer->isNonBlocking()) << "the server's mode";
    char b;
    EXPECT_EQ(0u, peer->getInputStream()->read(&b, 1, 1));
}

TEST(StreamSockets, DisconnectDrainsWhatThePeerSent) {
    for (bool drain : {true, false}) {
        Connection c;
        sendAll(*c.peer, std::string(1000, 'd'));
        ASSERT_TRUE(c.client->pollReadable(5000));
        c.client->disconnect(drain);
        EXPECT_FALSE(c.client->isConnected());
        EXPECT_FALSE(c.client->isNonBlocking()) << "the mode is restored";
        ASSERT_TRUE(c.peer->pollReadable(5000));
        // Unread data makes the close a reset; drained, it is an orderly close.
        EXPECT_EQ(drain ? 0 : EPIPE, nettest::pendingErrno(c.peer->getNativeSocket())) << drain;
    }
}

} // namespace
