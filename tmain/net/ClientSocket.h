#pragma once
#include <tmain/net/StreamSocket.h>

namespace net {

/// A TCP client socket: connects with a time limit, then reads and writes
/// through its stream adapters. TCP no-delay is on.
class TMAIN_API ClientSocket : public StreamSocket {
public:
    /// With a host and a non-zero port, connects at once and leaves the socket
    /// blocking whatever nonBlocking says (the flag is then only the mode the
    /// connect attempt itself uses); with a null host or port 0 makes no
    /// connection.
    ClientSocket(const char* host = nullptr, int port = 0, unsigned connectTimeout = DEFAULT_CONNECT_TIMEOUT,
                 unsigned readTimeout = DEFAULT_READ_TIMEOUT, unsigned writeTimeout = DEFAULT_WRITE_TIMEOUT,
                 bool nonBlocking = false);

    /// Connects to host:port; afterwards the socket is in the mode nonBlocking
    /// asks for. See StreamSocket::connect for the failures.
    void connect(const char* host, int port, bool nonBlocking);
    using StreamSocket::connect;

private:
    friend class ServerSocket;
    /// Wraps an accepted handle.
    ClientSocket(unsigned handle, const SocketAddress& peer, unsigned connectTimeout, unsigned readTimeout,
                 unsigned writeTimeout, bool nonBlocking, bool tcpNoDelay);
};

} // namespace net
