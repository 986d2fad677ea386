#include <tmain/net/ClientSocket.h>

namespace net {

ClientSocket::ClientSocket(const char* host, int port, unsigned connectTimeout, unsigned readTimeout,
                           unsigned writeTimeout, bool nonBlocking)
    : StreamSocket(connectTimeout, readTimeout, writeTimeout, nonBlocking, true) {
    if (host && port != 0)
        connect(host, port, false);
}

ClientSocket::ClientSocket(unsigned handle, const SocketAddress& peer, unsigned connectTimeout,
                           unsigned readTimeout, unsigned writeTimeout, bool nonBlocking, bool tcpNoDelay)
    : StreamSocket(handle, peer, TP_TCP, connectTimeout, readTimeout, writeTimeout, nonBlocking, tcpNoDelay) {
}

void ClientSocket::connect(const char* host, int port, bool nonBlocking) {
    SocketAddress address(host, (unsigned)port);
    StreamSocket::connect(address, nonBlocking);
}

} // namespace net
