#pragma once
// Loopback peers for the socket suites: a listening server, a client that
// exposes the protected whole-buffer transfers, and stream helpers.
#include "../support/TestSupport.h"
#include <arpa/inet.h>
#include <memory>
#include <netinet/in.h>
#include <string>
#include <sys/socket.h>
#include <tmain/net/ClientSocket.h>
#include <tmain/net/ServerSocket.h>
#include <tmain/net/SocketInputStream.h>
#include <tmain/net/SocketOutputStream.h>

namespace nettest {

class TestClient : public net::ClientSocket {
public:
    using net::ClientSocket::ClientSocket;
    using net::Socket::readAll;
    using net::Socket::writeAll;
};

/// A server on 127.0.0.1 with one client connected to it and the accepted
/// peer. rcvBuf > 0 shrinks the receive buffer of accepted sockets.
struct Connection {
    net::ServerSocket server;
    std::unique_ptr<TestClient> client;
    std::unique_ptr<net::StreamSocket> peer;

    explicit Connection(unsigned readTimeout = 2000, unsigned writeTimeout = 2000, int rcvBuf = 0) {
        server.bind("127.0.0.1", 0);
        if (rcvBuf > 0)
            setsockopt((int)server.getNativeSocket(), SOL_SOCKET, SO_RCVBUF, &rcvBuf, sizeof(rcvBuf));
        server.listen(8);
        client.reset(
            new TestClient("127.0.0.1", (int)server.getLocalPort(), 2000, readTimeout, writeTimeout));
        peer.reset(server.accept());
    }
};

/// The port held in a resolved IPv4 or IPv6 address.
inline unsigned nativePort(const net::SocketAddress& a) {
    const sockaddr* sa = static_cast<const sockaddr*>(a.getNativeAddress());
    if (sa->sa_family == AF_INET)
        return ntohs(static_cast<const sockaddr_in*>(a.getNativeAddress())->sin_port);
    return ntohs(static_cast<const sockaddr_in6*>(a.getNativeAddress())->sin6_port);
}

/// The pending error (errno value) of a native handle.
inline int pendingErrno(unsigned handle) {
    int value = -1;
    socklen_t length = sizeof(value);
    EXPECT_EQ(0, getsockopt((int)handle, SOL_SOCKET, SO_ERROR, &value, &length));
    return value;
}

inline void sendAll(net::StreamSocket& s, const std::string& data) {
    EXPECT_EQ(data.size(), s.getOutputStream()->write(data.data(), 1, (unsigned)data.size()));
}

/// Reads exactly n bytes through the socket's input adapter.
inline std::string receive(net::StreamSocket& s, size_t n) {
    std::string out(n, '\0');
    size_t got = 0;
    while (got < n)
        got += s.getInputStream()->read(&out[got], 1, (unsigned)(n - got));
    return out;
}

} // namespace nettest
