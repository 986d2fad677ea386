#pragma once
// Loopback peers for the socket suites: a listening server, a client that
// exposes the protected whole-buffer transfers, and stream helpers.
#include "../support/TestSupport.h"
#include <memory>
#include <string>
#include <tmain/net/ClientSocket.h>
#include <tmain/net/ServerSocket.h>
#include <tmain/net/SocketClosedException.h>
#include <tmain/net/SocketInputStream.h>
#include <tmain/net/SocketOutputStream.h>

namespace nettest {

// Native options the classes do not offer (NetNative_posix.cpp, NetNative_win32.cpp).
/// SO_RCVBUF (receive) or SO_SNDBUF of the socket.
void setBufferSize(unsigned handle, bool receive, int bytes);
/// SO_LINGER {on, 0 s}: closing the socket then resets the connection.
void setHardClose(unsigned handle);

class TestClient : public net::ClientSocket {
public:
    using net::ClientSocket::ClientSocket;
    using net::Socket::readAll;
    using net::Socket::writeAll;
};

/// A server on 127.0.0.1 (with TCP no-delay as serverNoDelay) with one client
/// connected to it and the accepted peer. smallBuffers shrinks the peer's
/// receive and the client's send buffer, so a peer that does not read soon
/// blocks the client.
struct Connection {
    net::ServerSocket server;
    std::unique_ptr<TestClient> client;
    std::unique_ptr<net::StreamSocket> peer;

    explicit Connection(unsigned readTimeout = 2000, unsigned writeTimeout = 2000, bool smallBuffers = false,
                        bool serverNoDelay = true)
        : server(false, serverNoDelay) {
        server.bind("127.0.0.1", 0);
        if (smallBuffers)
            setBufferSize(server.getNativeSocket(), true, 4096);
        server.listen(8);
        client.reset(
            new TestClient("127.0.0.1", (int)server.getLocalPort(), 2000, readTimeout, writeTimeout));
        if (smallBuffers)
            setBufferSize(client->getNativeSocket(), false, 4096);
        peer.reset(server.accept());
    }
};

inline void sendAll(net::StreamSocket& s, const std::string& data) {
    EXPECT_EQ(data.size(), s.getOutputStream()->write(data.data(), 1, (unsigned)data.size()));
}

/// Reads exactly n bytes through the socket's input adapter.
inline std::string receive(net::StreamSocket& s, size_t n) {
    std::string out(n, '\0');
    for (size_t got = 0; got < n;)
        got += s.getInputStream()->read(&out[got], 1, (unsigned)(n - got));
    return out;
}

/// "closed" when the call throws a SocketClosedException for `socket` with an
/// empty message; otherwise what happened instead.
template <class F> std::string closedBy(const net::Socket* socket, F f) {
    try {
        f();
    } catch (const net::SocketClosedException& e) {
        return std::string(e.getSocket() == socket ? "closed" : "closed by another socket") +
               (*e.getMessage() ? ": " : "") + e.getMessage();
    }
    return "<no exception>";
}

} // namespace nettest
