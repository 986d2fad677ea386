#include <tmain/net/ServerSocket.h>
#include <tmain/net/detail/SocketNative.h>
#include <tmain/stream/IOException.h>

#include <vector>

using tarso::stream::IOException;

namespace net {

ServerSocket::ServerSocket(bool nonBlocking, bool tcpNoDelay)
    : StreamSocket(2000, 2000, 2000, nonBlocking, tcpNoDelay) {}

void ServerSocket::bind(SocketAddress& address) {
    bindPassive(address, false, "ServerSocket::bind:unable to resolve address %s:%d", &address);
}

void ServerSocket::bind(const char* host, int port) {
    SocketAddress address(host, (unsigned)port);
    bind(address);
}

void ServerSocket::listen(int backlog) {
    if (detail::listenSocket(mSocket, backlog) != 0) {
        updateError();
        throw IOException("Unable to listen on socket: %s", error2String(mLastError));
    }
}

StreamSocket* ServerSocket::accept() {
    SocketAddress peer;
    int length = SocketAddress::CAPACITY;
    alignas(8) unsigned char address[SocketAddress::CAPACITY];
    detail::Handle handle = detail::acceptSocket(mSocket, address, &length);
    if (handle == detail::NO_HANDLE) {
        int raw = detail::lastError();
        updateError();
        if (mNonBlocking && (raw == SOCK_EWOULDBLOCK || raw == SOCK_EINTR))
            return nullptr;
        throw IOException("Error accepting new connection: %s", error2String(mLastError));
    }
    std::string host;
    if (detail::numericHost(address, length, host))
        peer.setHost(host.c_str());
    peer.setNativeAddress(address, length, true);
    return new StreamSocket(handle, peer, mProtocol, mConnectTimeout, mReadTimeout, mWriteTimeout,
                            mNonBlocking, getTCPNoDelay());
}

} // namespace net
