#include "NetTestSupport.h"
#include <cerrno>
#include <tmain/net/DatagramSocket.h>
#include <tmain/net/SocketClosedException.h>
#include <tmain/net/TransportProtocol.h>
#include <tmain/net/detail/SocketNative.h>
#include <tmain/stream/IOException.h>

using namespace net;
using nettest::Connection;

namespace {

TEST(Sockets, ErrorTextsAndProtocolNames) {
    const struct {
        int code;
        const char* text;
    } table[] = {
        {Socket::SOCK_EINTR, "Interrupted function call"},
        {Socket::SOCK_EBADF, "Invalid valid descriptor"},
        {Socket::SOCK_EACCES, "Permission denied"},
        {Socket::SOCK_EFAULT, "Invalid memory address"},
        {Socket::SOCK_EINVAL, "Invalid argument"},
        {Socket::SOCK_EMFILE, "Too many open files"},
        {Socket::SOCK_EWOULDBLOCK, "The operation would block"},
        {Socket::SOCK_EINPROGRESS, "Blocking operation already in progress"},
        {Socket::SOCK_EALREADY, "Non-blocking operation already in progress"},
        {Socket::SOCK_ENOTSOCK, "Invalid socket"},
        {Socket::SOCK_EDESTADDRREQ, "Destination address required"},
        {Socket::SOCK_EMSGSIZE, "Message too long"},
        {Socket::SOCK_EPROTOTYPE, "Wrong protocol type"},
        {Socket::SOCK_ENOPROTOOPT, "Bad protocol option"},
        {Socket::SOCK_EPROTONOSUPPORT, "Protocol not supoorted"},
        {Socket::SOCK_ESOCKTNOSUPPORT, "Socket type not supported"},
        {Socket::SOCK_EOPNOTSUPP, "Operation not supported"},
        {Socket::SOCK_EPFNOSUPPORT, "Protocol family not supported"},
        {Socket::SOCK_EAFNOSUPPORT, "Address family not supported"},
        {Socket::SOCK_EADDRINUSE, "Address already in use"},
        {Socket::SOCK_EADDRNOTAVAIL, "Cannot assign requested address"},
        {Socket::SOCK_ENETDOWN, "Network is down"},
        {Socket::SOCK_ENETUNREACH, "Network unreachable"},
        {Socket::SOCK_ENETRESET, "Network dropped connection on reset"},
        {Socket::SOCK_ECONNABORTED, "Software caused connection abort"},
        {Socket::SOCK_ECONNRESET, "Connection reset by peer"},
        {Socket::SOCK_ENOBUFS, "No buffer space available"},
        {Socket::SOCK_EISCONN, "Socket already connected"},
        {Socket::SOCK_ENOTCONN, "Socket is not connected"},
        {Socket::SOCK_ESHUTDOWN, "Socket has been shutdown"},
        {Socket::SOCK_ETOOMANYREFS, "Too many references"},
        {Socket::SOCK_ETIMEDOUT, "Connection timed out"},
        {Socket::SOCK_ECONNREFUSED, "Connection refused"},
        {Socket::SOCK_ELOOP, "Cannot translate name"},
        {Socket::SOCK_ENAMETOOLONG, "Name too long"},
        {Socket::SOCK_EHOSTDOWN, "Host is down"},
        {Socket::SOCK_EHOSTUNREACH, "No route to host"},
        {Socket::SOCK_WSASYSNOTREADY, "Network subsystem is not available"},
        {Socket::SOCK_WSAVERNOTSUPPORTED, "Invalid winsock version"},
        {Socket::SOCK_WSANOTINITIALISED, "Winsock not initialized"},
        {Socket::SOCK_HOST_NOT_FOUND, "Host not found"},
        {Socket::SOCK_TRY_AGAIN, "Non-auhtoritative host not found. Try again"},
        {Socket::SOCK_NO_RECOVERY, "Unrecoverable error"},
        {Socket::SOCK_NO_DATA, "Valid name, no data record of requested type"},
    };
    const int codes[44] = {10004, 10009, 10013, 10014, 10022, 10024, 10035, 10036, 10037, 10038, 10039,
                           10040, 10041, 10042, 10043, 10044, 10045, 10046, 10047, 10048, 10049, 10050,
                           10051, 10052, 10053, 10054, 10055, 10056, 10057, 10058, 10059, 10060, 10061,
                           10062, 10063, 10064, 10065, 10091, 10092, 10093, 11001, 11002, 11003, 11004};
    ASSERT_EQ(44u, sizeof(table) / sizeof(table[0]));
    for (int i = 0; i < 44; ++i) {
        EXPECT_EQ(codes[i], table[i].code);
        EXPECT_STREQ(table[i].text, Socket::error2String(table[i].code)) << table[i].code;
    }
    for (int other : {0, -1, 1, 10000, 10001, 10066, 10090, 10094, 11000, 11005})
        EXPECT_STREQ("Unknown error", Socket::error2String(other)) << other;

    EXPECT_EQ((std::vector<unsigned>{2000, 1000, 1000}),
              (std::vector<unsigned>{Socket::DEFAULT_CONNECT_TIMEOUT, Socket::DEFAULT_READ_TIMEOUT,
                                     Socket::DEFAULT_WRITE_TIMEOUT}));
    EXPECT_EQ((std::vector<int>{-1, 0, 1, 2}),
              (std::vector<int>{Socket::SOCK_ERROR, Socket::SOCK_SHUT_RD, Socket::SOCK_SHUT_WR,
                                Socket::SOCK_SHUT_RDWR}));

    EXPECT_STREQ("TP_NONE", unparse(TP_NONE));
    EXPECT_STREQ("TP_TCP", unparse(TP_TCP));
    EXPECT_STREQ("TP_UDP", unparse(TP_UDP));
    EXPECT_STREQ("TP_???", unparse((TransportProtocol)7));
    EXPECT_STREQ("TP_???", unparse((TransportProtocol)-1));
    const struct {
        const char* text;
        TransportProtocol expected;
    } parses[] = {{"TP_TCP", TP_TCP},   {"TP_UDP", TP_UDP}, {"TP_NONE", TP_NONE}, {"tp_tcp", TP_NONE},
                  {"TP_TCP ", TP_NONE}, {"", TP_NONE},      {nullptr, TP_NONE}};
    for (const auto& p : parses)
        EXPECT_EQ(p.expected, parseProtocol(p.text)) << (p.text ? p.text : "(null)");
}

TEST(Sockets, ErrnoValuesBecomeWinSockCodes) {
    const int table[][2] = {
        {0, 0},
        {EINTR, 10004},
        {EBADF, 10009},
        {EACCES, 10013},
        {EPERM, 10013},
        {EFAULT, 10014},
        {EINVAL, 10022},
        {EMFILE, 10024},
        {ENFILE, 10024},
        {EAGAIN, 10035},
        {EWOULDBLOCK, 10035},
        {EINPROGRESS, 10036},
        {EALREADY, 10037},
        {ENOTSOCK, 10038},
        {EDESTADDRREQ, 10039},
        {EMSGSIZE, 10040},
        {EPROTOTYPE, 10041},
        {ENOPROTOOPT, 10042},
        {EPROTONOSUPPORT, 10043},
        {ESOCKTNOSUPPORT, 10044},
        {EOPNOTSUPP, 10045},
        {EPFNOSUPPORT, 10046},
        {EAFNOSUPPORT, 10047},
        {EADDRINUSE, 10048},
        {EADDRNOTAVAIL, 10049},
        {ENETDOWN, 10050},
        {ENETUNREACH, 10051},
        {ENETRESET, 10052},
        {ECONNABORTED, 10053},
        {ECONNRESET, 10054},
        {EPIPE, 10054},
        {ENOBUFS, 10055},
        {ENOMEM, 10055},
        {EISCONN, 10056},
        {ENOTCONN, 10057},
        {ESHUTDOWN, 10058},
        {ETOOMANYREFS, 10059},
        {ETIMEDOUT, 10060},
        {ECONNREFUSED, 10061},
        {ELOOP, 10062},
        {ENAMETOOLONG, 10063},
        {EHOSTDOWN, 10064},
        {EHOSTUNREACH, 10065},
        {ENOENT, ENOENT},
    };
    for (const auto& row : table)
        EXPECT_EQ(row[1], detail::errorFromErrno(row[0])) << "errno " << row[0];
}

TEST(Sockets, AddressResolutionAndPorts) {
    SocketAddress empty;
    EXPECT_TRUE(empty.isResolved());
    EXPECT_EQ(SocketAddress::CAPACITY, empty.getNativeLength());
    SocketAddress nullHost(nullptr, 5);
    EXPECT_EQ(std::string(), nullHost.getHost());
    EXPECT_FALSE(nullHost.isResolved());

    std::string text;
    SocketAddress v4("127.0.0.1", 8080);
    EXPECT_FALSE(v4.isResolved());
    EXPECT_STREQ("127.0.0.1", v4.getPrintableAddress(text));
    EXPECT_TRUE(v4.isResolved()) << "printing resolves";
    EXPECT_EQ(8080u, nettest::nativePort(v4));

    v4.setPort(81);
    EXPECT_TRUE(v4.isResolved());
    EXPECT_EQ(81u, v4.getPort());
    EXPECT_EQ(8080u, nettest::nativePort(v4)) << "old port kept";
    v4.setHost("127.0.0.1");
    EXPECT_TRUE(v4.isResolved()) << "same host keeps the resolution";
    SocketAddress copy(v4), moved(std::move(SocketAddress(v4)));
    EXPECT_TRUE(copy.isResolved() && moved.isResolved());
    EXPECT_EQ(8080u, nettest::nativePort(moved));
    ASSERT_TRUE(v4.resolve());
    EXPECT_EQ(81u, nettest::nativePort(v4));
    v4.set("127.0.0.2", 90);
    EXPECT_FALSE(v4.isResolved());
    EXPECT_STREQ("127.0.0.2", v4.getPrintableAddress(text));
    EXPECT_EQ(90u, nettest::nativePort(v4));
    copy = v4;
    EXPECT_EQ(std::string("127.0.0.2"), copy.getHost());

    SocketAddress v6("::1", 1);
    EXPECT_STREQ("::1", v6.getPrintableAddress(text));
    SocketAddress nowhere("no-such-host.invalid", 80);
    EXPECT_FALSE(nowhere.resolve());
    EXPECT_STREQ("no-such-host.invalid", nowhere.getPrintableAddress(text));
    EXPECT_FALSE(nowhere.isResolved());
    EXPECT_FALSE(SocketAddress("127.0.0.1", 70000).resolve()) << "ports end at 65535";
}

TEST(Sockets, SocketClosedExceptionRecord) {
    DatagramSocket socket;
    SocketClosedException plain(&socket, nullptr);
    EXPECT_STREQ("", plain.getMessage());
    EXPECT_EQ(&socket, plain.getSocket());
    EXPECT_STREQ("net::SocketClosedException", plain.getType().getName());
    EXPECT_TRUE(plain.instanceOf(core::Exception::TYPE));
    EXPECT_EQ(&SocketClosedException::TYPE, core::Type::Reflection()["net::SocketClosedException"]);
    std::string longText(3000, 'x');
    SocketClosedException formatted(&socket, "%s:%d", longText.c_str(), 7);
    EXPECT_EQ(longText.substr(0, strlen("%s:%d") + 1023), formatted.getMessage()) << "format length + 1024";
    std::unique_ptr<core::Exception> clone(formatted.clone());
    EXPECT_EQ(&SocketClosedException::TYPE, &clone->getType());
}

TEST(Sockets, TcpNoDelayQuirk) {
    Connection c;
    EXPECT_TRUE(c.client->getTCPNoDelay()) << "a client connects with no-delay on";
    EXPECT_TRUE(c.peer->getTCPNoDelay()) << "accepted sockets take the server's setting";
    c.client->setTCPNoDelay(false);
    EXPECT_FALSE(c.client->getTCPNoDelay()) << "the option's real state";
    c.client->setTCPNoDelay(true);
    EXPECT_TRUE(c.client->getTCPNoDelay());
    c.client->setTCPNoDelay(false);
    c.client->disconnect(false);
    EXPECT_TRUE(c.client->getTCPNoDelay()) << "the stored flag kept its old value";
    c.client->setTCPNoDelay(false);
    EXPECT_FALSE(c.client->getTCPNoDelay()) << "without a handle the flag is stored";

    ServerSocket plain(false, false);
    plain.bind("127.0.0.1", 0);
    plain.listen(1);
    nettest::TestClient other("127.0.0.1", (int)plain.getLocalPort());
    std::unique_ptr<StreamSocket> accepted(plain.accept());
    EXPECT_FALSE(accepted->getTCPNoDelay());
    DatagramSocket udp;
    udp.bind("127.0.0.1", 0);
    EXPECT_TRUE(udp.getTCPNoDelay());
    udp.setTCPNoDelay(false);
    EXPECT_FALSE(udp.getTCPNoDelay());
}

TEST(Sockets, InstancesCountedFromManyThreads) {
    ASSERT_EQ(0, Socket::INSTANCES.load());
    tmaintest::onThreads(8, [](int i) {
        for (int round = 0; round < 100; ++round) {
            std::unique_ptr<Socket> s;
            switch ((i + round) % 3) {
            case 0:
                s.reset(new ClientSocket());
                break;
            case 1:
                s.reset(new ServerSocket());
                break;
            default: {
                DatagramSocket* d = new DatagramSocket(10, 10, 10);
                s.reset(d);
                d->bind("127.0.0.1", 0);
                EXPECT_TRUE(d->isConnected());
            }
            }
            EXPECT_GE(Socket::INSTANCES.load(), 1);
        }
    });
    EXPECT_EQ(0, Socket::INSTANCES.load());
    {
        Connection c;
        EXPECT_EQ(3, Socket::INSTANCES.load()) << "server, client and accepted peer";
    }
    EXPECT_EQ(0, Socket::INSTANCES.load());
}

TEST(Sockets, StaticPollsOverSeveralSockets) {
    Connection a, b, c;
    ClientSocket idle;
    nettest::sendAll(*a.peer, "x");
    nettest::sendAll(*c.peer, "yz");
    ASSERT_TRUE(c.client->pollReadable(5000));
    ASSERT_TRUE(a.client->pollReadable(5000));

    Socket* sockets[6] = {a.client.get(), b.client.get(), nullptr, &idle, c.client.get(), a.client.get()};
    Socket* ready[6] = {};
    bool flags[6];
    EXPECT_EQ(2, Socket::pollReadable(6, sockets, ready, flags, 1000));
    EXPECT_EQ((std::vector<Socket*>{a.client.get(), c.client.get(), nullptr}),
              std::vector<Socket*>(ready, ready + 3));
    EXPECT_EQ((std::vector<bool>{true, false, false, false, true, true}),
              std::vector<bool>(flags, flags + 6));

    Socket* writable[6] = {};
    bool writeFlags[6];
    EXPECT_EQ(3, Socket::pollWritable(6, sockets, writable, writeFlags, 1000));
    EXPECT_EQ((std::vector<bool>{true, true, false, false, true, true}),
              std::vector<bool>(writeFlags, writeFlags + 6));

    int nr = -1, nw = -1;
    Socket* rd[6] = {};
    Socket* wr[6] = {};
    EXPECT_EQ(3, Socket::poll(6, sockets, nr, rd, nullptr, nw, wr, nullptr, 0));
    EXPECT_EQ(2, nr);
    EXPECT_EQ(3, nw);
    EXPECT_EQ(b.client.get(), wr[1]);

    Socket* quiet[2] = {b.client.get(), &idle};
    EXPECT_EQ(0, Socket::pollReadable(2, quiet, ready, flags, 20)) << "the timeout fires";
    EXPECT_EQ(0, Socket::poll(2, quiet, nr, rd, nullptr, nw, nullptr, nullptr, 0) & 1);
    EXPECT_EQ(0, nr);
    Socket* none[1] = {&idle};
    EXPECT_EQ(0, Socket::poll(1, none, nr, rd, nullptr, nw, wr, nullptr, -1)) << "nothing to wait for";

    // Only the first 64 entries count: a readable socket at index 64 is not seen.
    std::vector<Socket*> many(70, b.client.get());
    many[64] = a.client.get();
    bool manyFlags[70];
    std::fill(manyFlags, manyFlags + 70, true);
    EXPECT_EQ(0, Socket::pollReadable(70, many.data(), nullptr, manyFlags, 0));
    EXPECT_EQ(std::vector<bool>(70, false), std::vector<bool>(manyFlags, manyFlags + 70));
    many[63] = a.client.get();
    EXPECT_EQ(1, Socket::pollReadable(70, many.data(), nullptr, nullptr, 0));

    EXPECT_TRUE(a.client->pollReadable(0));
    EXPECT_FALSE(b.client->pollReadable(0));
    EXPECT_TRUE(b.client->pollWritable(0));
    EXPECT_FALSE(idle.pollReadable(0));
    EXPECT_EQ(Socket::SOCK_EBADF, idle.getError()) << "a wait without a handle fails";
    idle.clearError();
    EXPECT_EQ(0, idle.getError());
}

} // namespace
