#include "NetTestSupport.h"
#include <tmain/stream/IOException.h>

using namespace net;
using nettest::closedBy;
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
    const StreamSocket& p = *c.peer;
    EXPECT_EQ("127.0.0.1", std::string(p.getPeerAddress().getHost()));
    EXPECT_EQ((std::vector<long long>{c.client->getLocalPort(), 2000, 2000, 2000, TP_TCP, 2048,
                                      c.server.getLocalPort()}),
              (std::vector<long long>{p.getPeerAddress().getPort(), p.getConnectTimeout(), p.getReadTimeout(),
                                      p.getWriteTimeout(), p.getProtocol(), p.getBufferSize(),
                                      c.client->getPeerAddress().getPort()}));

    SocketInputStream* in = c.peer->getInputStream();
    EXPECT_EQ(0u, in->available());
    std::string data = tmaintest::randomBytes(200000, 7);
    SocketOutputStream* clientOut = c.client->getOutputStream();
    std::thread writer(
        [&] { EXPECT_EQ(data.size(), clientOut->write(data.data(), 1, (unsigned)data.size())); });
    std::string got = receive(*c.peer, data.size());
    writer.join();
    EXPECT_TRUE(got == data);
    EXPECT_EQ(std::make_pair(200000u, 200000u), std::make_pair(in->tell(), clientOut->tell()));
    EXPECT_EQ(clientOut, c.client->getOutputStream());
    EXPECT_EQ(0u, clientOut->tell()) << "asking again resets the adapter";

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
    EXPECT_TRUE(out->isOpen()) << "the output side only asks the socket";
    char b;
    EXPECT_MESSAGE(core::IllegalStateException, "Stream no yet opened", in->read(&b, 1, 1));
    in->open(Stream::OM_READ);
    EXPECT_EQ(std::make_pair(true, 0u), std::make_pair(in->isOpen(), in->tell()));
}

TEST(StreamSockets, PeerCloseEndsTheConnection) {
    Connection c;
    sendAll(*c.peer, "bye");
    c.peer.reset();
    SocketInputStream* in = c.client->getInputStream();
    EXPECT_EQ("bye", receive(*c.client, 3));
    char buf[8];
    EXPECT_EQ("closed", closedBy(c.client.get(), [&] { in->read(buf, 1, sizeof(buf)); }));
    EXPECT_TRUE(in->eof());
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
    nettest::setHardClose(c.peer->getNativeSocket());
    c.peer.reset(); // closing with a zero linger resets the connection
    std::string chunk(1024, 'w'), message = "<no exception>";
    for (int i = 0; i < 1000 && message == "<no exception>"; ++i)
        message = tmaintest::messageOf<IOException>([&] { sendAll(*c.client, chunk); });
    EXPECT_EQ("Socket write error: Connection reset by peer", message);
    EXPECT_EQ(Socket::SOCK_ECONNRESET, c.client->getError());
    EXPECT_TRUE(c.client->getOutputStream()->hasError());
    EXPECT_TRUE(c.client->isConnected()) << "an error is not a close";
}

TEST(StreamSockets, TimeoutsAndWholeBufferTransfers) {
    Connection c(50);
    EXPECT_MESSAGE(TimeoutException, "Socket read timeout (>50ms)", receive(*c.client, 1));
    EXPECT_EQ(Socket::SOCK_ETIMEDOUT, c.client->getError());
    sendAll(*c.peer, "0123");
    sendAll(*c.peer, "456789");
    char buf[10];
    c.client->readAll(buf, 10, 0);
    EXPECT_EQ("0123456789", std::string(buf, 10)) << "the socket still works";
    c.client->writeAll("abcdef", 6, 0);
    EXPECT_EQ("abcdef", receive(*c.peer, 6));

    c.client->setNonBlocking(true);
    EXPECT_EQ(0u, c.client->getInputStream()->read(buf, 1, 1)) << "nothing there yet";
    EXPECT_EQ(0, c.client->getError());
    sendAll(*c.peer, "abcd");
    ASSERT_TRUE(c.client->pollReadable(5000));
    EXPECT_MESSAGE(IOException, "Socket::readAll:2 bytes could not be written",
                   c.client->readAll(buf, 10, 3));
    EXPECT_EQ("abcd", std::string(buf, 4));
    EXPECT_MESSAGE(IOException, "Socket::readAll:10 bytes could not be written",
                   c.client->readAll(buf, 10, 1));

    // A blocking write that times out reports the read timeout in the read wording.
    Connection stuck(333, 50, true);
    std::string chunk(65536, 'f');
    EXPECT_MESSAGE(TimeoutException, "Socket read timeout (>333ms)",
                   stuck.client->getOutputStream()->write(chunk.data(), 1, (unsigned)chunk.size()));
    EXPECT_EQ(Socket::SOCK_ETIMEDOUT, stuck.client->getError());
    // Non-blocking, the same stall ends after one writable wait: no spinning,
    // the call reports its last send's count.
    Connection stalled(30, 50, true);
    stalled.client->setNonBlocking(true);
    const std::string big(4 << 20, 'w');
    EXPECT_EQ(0u, stalled.client->getOutputStream()->write(big.data(), 1, (unsigned)big.size()));
    EXPECT_EQ(0u, stalled.client->getOutputStream()->tell());
    EXPECT_EQ(0, stalled.client->getError());

    // A peer that does not read: writeAll gives up after one wait of the read
    // timeout. What got through is counted at the peer after an orderly close.
    Connection full(30, 1000, true);
    full.client->setNonBlocking(true);
    std::string message =
        tmaintest::messageOf<IOException>([&] { full.client->writeAll(big.data(), (int)big.size(), 1); });
    full.client->disconnect(false);
    long long arrived = 0;
    char piece[65536];
    EXPECT_EQ("closed", closedBy(full.peer.get(), [&] {
                  for (;;)
                      arrived += full.peer->getInputStream()->read(piece, 1, sizeof(piece));
              }));
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
    EXPECT_MESSAGE(TimeoutException, expected, client.connect("127.0.0.1", port, true));
    EXPECT_EQ(Socket::SOCK_ECONNREFUSED, client.getError());
    EXPECT_FALSE(client.isNonBlocking());
    EXPECT_EQ(Socket::INVALID_HANDLE, client.getNativeSocket());
    EXPECT_MESSAGE(
        IOException,
        "StreamSocket::connect:unable to connect to address no-such-host.invalid:80 (Host not found)",
        client.connect("no-such-host.invalid", 80, false));
    EXPECT_MESSAGE(IOException,
                   "StreamSocket::connect:unable to connect to address 127.0.0.1:70000 (Invalid argument)",
                   client.connect("127.0.0.1", 70000, false));

    Connection live;
    int open = (int)live.server.getLocalPort();
    TestClient blocking("127.0.0.1", open, 2000, 1000, 1000, true);
    EXPECT_TRUE(blocking.isConnected() && !blocking.isNonBlocking())
        << "the connecting constructor leaves the socket blocking";
    client.connect("127.0.0.1", open, true);
    EXPECT_EQ(std::make_pair(true, 0), std::make_pair(client.isNonBlocking(), client.getError()));
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
    ServerSocket first, second, polling(true, true);
    SocketAddress any(nullptr, 0);
    first.bind(any);
    EXPECT_EQ(first.getLocalPort(), any.getPort()) << "the bound port is reported";
    first.listen(4);
    EXPECT_MESSAGE(IOException, "Socket already bound", first.bind("127.0.0.1", 0));

    second.bind(nullptr, (int)first.getLocalPort());
    EXPECT_EQ(Socket::INVALID_HANDLE, second.getNativeSocket()) << "an address in use binds nothing";
    EXPECT_EQ(Socket::SOCK_EADDRINUSE, second.getError());
    EXPECT_MESSAGE(IOException, "Unable to listen on socket: Invalid socket", second.listen(4));
    EXPECT_MESSAGE(IOException, "Error accepting new connection: Invalid socket", second.accept());
    EXPECT_MESSAGE(IOException, "ServerSocket::bind:unable to resolve address no-such-host.invalid:80",
                   second.bind("no-such-host.invalid", 80));

    polling.bind("127.0.0.1", 0);
    polling.listen(4);
    EXPECT_EQ(nullptr, polling.accept()) << "nobody waiting";
    EXPECT_EQ(0, polling.getError());
    ClientSocket client("127.0.0.1", (int)polling.getLocalPort());
    ASSERT_TRUE(polling.pollReadable(5000));
    std::unique_ptr<StreamSocket> peer(polling.accept());
    ASSERT_TRUE(peer);
    char b;
    EXPECT_EQ(0u, peer->getInputStream()->read(&b, 1, 1)) << "the server's mode: non-blocking";
}

TEST(StreamSockets, DisconnectDrainsWhatThePeerSent) {
    for (bool drain : {true, false}) {
        Connection c;
        sendAll(*c.peer, std::string(1000, 'd'));
        ASSERT_TRUE(c.client->pollReadable(5000));
        c.client->disconnect(drain);
        EXPECT_FALSE(c.client->isConnected() || c.client->isNonBlocking()) << "the mode is restored";
        ASSERT_TRUE(c.peer->pollReadable(5000));
        char b;
        EXPECT_EQ("closed",
                  nettest::closedBy(c.peer.get(), [&] { c.peer->getInputStream()->read(&b, 1, 1); }))
            << "the sending side was shut down first: " << drain;
    }
}

} // namespace
