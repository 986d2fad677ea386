#pragma once
#include <tmain/net/StreamSocket.h>

namespace net {

/// A listening TCP socket: bind, listen, then accept connections as new
/// StreamSockets. Its three timeouts are 2000 ms; accepted sockets inherit
/// them with the blocking mode and the TCP no-delay state.
class TMAIN_API ServerSocket : public StreamSocket {
public:
    explicit ServerSocket(bool nonBlocking = false, bool tcpNoDelay = true);

    /// Binds to the first address the host resolves to (passive: a null or
    /// empty host is every interface) that can be bound; the address then
    /// holds the bound one, port included (so port 0 learns the port the
    /// system chose). When no address can be bound it returns normally and the
    /// socket stays without a handle. Throws tarso::stream::IOException
    /// "Socket already bound" when bound, and
    /// "ServerSocket::bind:unable to resolve address %s:%d".
    void bind(SocketAddress& address);
    void bind(const char* host, int port);
    /// Throws tarso::stream::IOException "Unable to listen on socket: %s".
    void listen(int backlog);
    /// The next connection, owned by the caller; null when a non-blocking
    /// socket has none waiting. Throws tarso::stream::IOException
    /// "Error accepting new connection: %s".
    StreamSocket* accept();
};

} // namespace net
