#include "NetTestSupport.h"
#include <algorithm>
#include <tmain/net/DatagramSocket.h>
#include <tmain/net/TransportProtocol.h>

using namespace net;
using nettest::Connection;

namespace {

TEST(Sockets, ErrorCodesTextsAndProtocolNames) {
    // WinSock code, its constant and its text.
    const struct {
        int code, constant;
        const char* text;
    } table[] = {
        {10004, Socket::SOCK_EINTR, "Interrupted function call"},
        {10009, Socket::SOCK_EBADF, "Invalid valid descriptor"},
        {10013, Socket::SOCK_EACCES, "Permission denied"},
        {10014, Socket::SOCK_EFAULT, "Invalid memory address"},
        {10022, Socket::SOCK_EINVAL, "Invalid argument"},
        {10024, Socket::SOCK_EMFILE, "Too many open files"},
        {10035, Socket::SOCK_EWOULDBLOCK, "The operation would block"},
        {10036, Socket::SOCK_EINPROGRESS, "Blocking operation already in progress"},
        {10037, Socket::SOCK_EALREADY, "Non-blocking operation already in progress"},
        {10038, Socket::SOCK_ENOTSOCK, "Invalid socket"},
        {10039, Socket::SOCK_EDESTADDRREQ, "Destination address required"},
        {10040, Socket::SOCK_EMSGSIZE, "Message too long"},
        {10041, Socket::SOCK_EPROTOTYPE, "Wrong protocol type"},
        {10042, Socket::SOCK_ENOPROTOOPT, "Bad protocol option"},
        {10043, Socket::SOCK_EPROTONOSUPPORT, "Protocol not supoorted"},
        {10044, Socket::SOCK_ESOCKTNOSUPPORT, "Socket type not supported"},
        {10045, Socket::SOCK_EOPNOTSUPP, "Operation not supported"},
        {10046, Socket::SOCK_EPFNOSUPPORT, "Protocol family not supported"},
        {10047, Socket::SOCK_EAFNOSUPPORT, "Address family not supported"},
        {10048, Socket::SOCK_EADDRINUSE, "Address already in use"},
        {10049, Socket::SOCK_EADDRNOTAVAIL, "Cannot assign requested address"},
        {10050, Socket::SOCK_ENETDOWN, "Network is down"},
        {10051, Socket::SOCK_ENETUNREACH, "Network unreachable"},
        {10052, Socket::SOCK_ENETRESET, "Network dropped connection on reset"},
        {10053, Socket::SOCK_ECONNABORTED, "Software caused connection abort"},
        {10054, Socket::SOCK_ECONNRESET, "Connection reset by peer"},
        {10055, Socket::SOCK_ENOBUFS, "No buffer space available"},
        {10056, Socket::SOCK_EISCONN, "Socket already connected"},
        {10057, Socket::SOCK_ENOTCONN, "Socket is not connected"},
        {10058, Socket::SOCK_ESHUTDOWN, "Socket has been shutdown"},
        {10059, Socket::SOCK_ETOOMANYREFS, "Too many references"},
        {10060, Socket::SOCK_ETIMEDOUT, "Connection timed out"},
        {10061, Socket::SOCK_ECONNREFUSED, "Connection refused"},
        {10062, Socket::SOCK_ELOOP, "Cannot translate name"},
        {10063, Socket::SOCK_ENAMETOOLONG, "Name too long"},
        {10064, Socket::SOCK_EHOSTDOWN, "Host is down"},
        {10065, Socket::SOCK_EHOSTUNREACH, "No route to host"},
        {10091, Socket::SOCK_WSASYSNOTREADY, "Network subsystem is not available"},
        {10092, Socket::SOCK_WSAVERNOTSUPPORTED, "Invalid winsock version"},
        {10093, Socket::SOCK_WSANOTINITIALISED, "Winsock not initialized"},
        {11001, Socket::SOCK_HOST_NOT_FOUND, "Host not found"},
        {11002, Socket::SOCK_TRY_AGAIN, "Non-auhtoritative host not found. Try again"},
        {11003, Socket::SOCK_NO_RECOVERY, "Unrecoverable error"},
        {11004, Socket::SOCK_NO_DATA, "Valid name, no data record of requested type"},
    };
    for (const auto& row : table) {
        EXPECT_EQ(row.code, row.constant) << row.text;
        EXPECT_STREQ(row.text, Socket::error2String(row.code)) << row.code;
    }
    for (int other : {0, -1, 1, 10000, 10001, 10066, 10090, 10094, 11000, 11005})
        EXPECT_STREQ("Unknown error", Socket::error2String(other)) << other;
    EXPECT_EQ((std::vector<long long>{2000, 1000, 1000, -1, 0, 1, 2}),
              (std::vector<long long>{Socket::DEFAULT_CONNECT_TIMEOUT, Socket::DEFAULT_READ_TIMEOUT,
                                      Socket::DEFAULT_WRITE_TIMEOUT, Socket::SOCK_ERROR, Socket::SOCK_SHUT_RD,
                                      Socket::SOCK_SHUT_WR, Socket::SOCK_SHUT_RDWR}));

    std::string names, parsed;
    for (int p : {0, 1, 2, 7, -1})
        names += std::string(unparse((TransportProtocol)p)) + " ";
    EXPECT_EQ("TP_NONE TP_TCP TP_UDP TP_??? TP_??? ", names);
    for (const char* text : {"TP_TCP", "TP_UDP", "TP_NONE", "tp_tcp", "TP_TCP ", "", (const char*)nullptr})
        parsed += std::to_string(parseProtocol(text));
    EXPECT_EQ("1200000", parsed);
}

/// "host:port" and then " @<port of the resolution>" or " unresolved".
std::string state(const SocketAddress& a) {
    // The port of a sockaddr_in: bytes 2 and 3, in network order.
    const unsigned char* native = static_cast<const unsigned char*>(a.getNativeAddress());
    return std::string(a.getHost()) + ":" + std::to_string(a.getPort()) +
           (a.isResolved() ? " @" + std::to_string(native[2] << 8 | native[3]) : " unresolved");
}

TEST(Sockets, AddressResolutionAndPorts) {
    EXPECT_EQ(SocketAddress::CAPACITY, SocketAddress().getNativeLength());
    EXPECT_EQ(":5 unresolved", state(SocketAddress(nullptr, 5)));

    std::string text;
    SocketAddress v4("127.0.0.1", 8080);
    EXPECT_EQ("127.0.0.1:8080 unresolved", state(v4));
    EXPECT_STREQ("127.0.0.1", v4.getPrintableAddress(text));
    EXPECT_EQ("127.0.0.1:8080 @8080", state(v4)) << "printing resolves";
    v4.setPort(81);
    v4.setHost("127.0.0.1");
    EXPECT_EQ("127.0.0.1:81 @8080", state(v4)) << "a new port and the same host keep the resolution";
    SocketAddress copy(v4), moved(std::move(SocketAddress(v4)));
    EXPECT_EQ("127.0.0.1:81 @8080 127.0.0.1:81 @8080", state(copy) + " " + state(moved));
    ASSERT_TRUE(v4.resolve());
    EXPECT_EQ("127.0.0.1:81 @81", state(v4));
    v4.set("127.0.0.2", 90);
    EXPECT_EQ("127.0.0.2:90 unresolved", state(v4));
    EXPECT_STREQ("127.0.0.2", v4.getPrintableAddress(text));
    copy = v4;
    EXPECT_EQ("127.0.0.2:90 @90", state(copy));

    EXPECT_STREQ("::1", SocketAddress("::1", 1).getPrintableAddress(text));
    SocketAddress nowhere("no-such-host.invalid", 80);
    EXPECT_FALSE(nowhere.resolve());
    EXPECT_STREQ("no-such-host.invalid", nowhere.getPrintableAddress(text));
    EXPECT_EQ("no-such-host.invalid:80 unresolved", state(nowhere));
    EXPECT_FALSE(SocketAddress("127.0.0.1", 70000).resolve()) << "ports end at 65535";
}

TEST(Sockets, SocketClosedExceptionRecord) {
    DatagramSocket socket;
    std::string longText(3000, 'x');
    SocketClosedException formatted(&socket, "%s:%d", longText.c_str(), 7);
    EXPECT_EQ(longText.substr(0, strlen("%s:%d") + 1023), formatted.getMessage()) << "format length + 1024";
    EXPECT_TRUE(formatted.instanceOf(core::Exception::TYPE));
    EXPECT_EQ(&SocketClosedException::TYPE, core::Type::Reflection()["net::SocketClosedException"]);
    EXPECT_EQ(&SocketClosedException::TYPE, &std::unique_ptr<core::Exception>(formatted.clone())->getType());
}

TEST(Sockets, TcpNoDelayQuirk) {
    Connection c, plain(2000, 2000, false, false);
    EXPECT_TRUE(c.client->getTCPNoDelay() && c.peer->getTCPNoDelay())
        << "on for clients and the server's peers";
    EXPECT_FALSE(plain.peer->getTCPNoDelay()) << "accepted sockets take the server's setting";
    for (bool on : {false, true, false}) {
        c.client->setTCPNoDelay(on);
        EXPECT_EQ(on, c.client->getTCPNoDelay()) << "the option's real state";
    }
    c.client->disconnect(false);
    EXPECT_TRUE(c.client->getTCPNoDelay()) << "the stored flag kept its old value";
    c.client->setTCPNoDelay(false);
    EXPECT_FALSE(c.client->getTCPNoDelay()) << "without a handle the flag is stored";
    DatagramSocket udp;
    udp.bind("127.0.0.1", 0);
    EXPECT_TRUE(udp.getTCPNoDelay());
    udp.setTCPNoDelay(false);
    EXPECT_FALSE(udp.getTCPNoDelay());
}

TEST(Sockets, InstancesCountedFromManyThreads) {
    ASSERT_EQ(0, Socket::INSTANCES.load());
    tmaintest::onThreads(8, [](int) {
        for (int round = 0; round < 100; ++round) {
            ClientSocket client;
            ServerSocket server;
            DatagramSocket udp(10, 10, 10);
            udp.bind("127.0.0.1", 0);
            EXPECT_TRUE(udp.isConnected());
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

    // Null entries, sockets without a handle and repeated ones are not waited on.
    Socket* sockets[6] = {a.client.get(), b.client.get(), nullptr, &idle, c.client.get(), a.client.get()};
    Socket* ready[6] = {};
    bool flags[70];
    std::fill(flags, flags + 70, true);
    EXPECT_EQ(2, Socket::pollReadable(6, sockets, ready, flags, 1000));
    EXPECT_EQ((std::vector<Socket*>{a.client.get(), c.client.get(), nullptr}),
              std::vector<Socket*>(ready, ready + 3));
    EXPECT_EQ((std::vector<bool>{true, false, false, false, true, true}),
              std::vector<bool>(flags, flags + 6));
    std::fill(flags, flags + 70, true);
    EXPECT_EQ(3, Socket::pollWritable(6, sockets, nullptr, flags, 1000));
    EXPECT_EQ((std::vector<bool>{true, true, false, false, true, true}), std::vector<bool>(flags, flags + 6));

    int nr = -1, nw = -1;
    Socket* rd[6] = {};
    Socket* wr[6] = {};
    EXPECT_EQ(3, Socket::poll(6, sockets, nr, rd, nullptr, nw, wr, nullptr, 0));
    EXPECT_EQ(std::make_pair(2, 3), std::make_pair(nr, nw));
    EXPECT_EQ(b.client.get(), wr[1]);

    Socket* quiet[2] = {b.client.get(), &idle};
    EXPECT_EQ(0, Socket::pollReadable(2, quiet, ready, flags, 20)) << "the timeout fires";
    int bits = Socket::poll(2, quiet, nr, rd, nullptr, nw, nullptr, nullptr, 0);
    EXPECT_EQ(std::make_pair(2, 0), std::make_pair(bits, nr)) << "writable only";
    EXPECT_EQ(0, Socket::poll(1, quiet + 1, nr, rd, nullptr, nw, wr, nullptr, -1)) << "nothing to wait for";

    // Only the first 64 entries count: a readable socket at index 64 is not seen.
    std::vector<Socket*> many(70, b.client.get());
    many[64] = a.client.get();
    std::fill(flags, flags + 70, true);
    EXPECT_EQ(0, Socket::pollReadable(70, many.data(), nullptr, flags, 0));
    EXPECT_EQ(std::vector<bool>(70, false), std::vector<bool>(flags, flags + 70));
    many[63] = a.client.get();
    EXPECT_EQ(1, Socket::pollReadable(70, many.data(), nullptr, nullptr, 0));

    EXPECT_FALSE(b.client->pollReadable(0));
    EXPECT_TRUE(b.client->pollWritable(0));
    EXPECT_FALSE(idle.pollReadable(0));
    EXPECT_EQ(Socket::SOCK_ENOTSOCK, idle.getError()) << "a wait without a handle fails";
    idle.clearError();
    EXPECT_EQ(0, idle.getError());
}

} // namespace
