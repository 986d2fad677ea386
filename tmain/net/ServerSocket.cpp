#include <tmain/net/ServerSocket.h>
#include <tmain/net/detail/SocketNative.h>
#include <tmain/stream/IOException.h>

#include <vector>

using tarso::stream::IOException;

namespace net {

ServerSocket::ServerSocket(bool nonBlocking, bool tcpNoDelay)
    : StreamSocket(2000, 2000, 2000, nonBlocking, tcpNoDelay) {}

void ServerSocket::bind(SocketAddress& address) {
    if (isConnected())
        throw IOException("Socket already bound");
    std::vector<detail::AddressInfo> results;
    int rc = detail::resolve(address.getHost(), address.getPort(), true, detail::KIND_STREAM, results);
    if (rc != 0) {
        mLastError = rc;
        throw IOException("ServerSocket::bind:unable to resolve address %s:%d", address.getHost(),
                          (int)address.getPort());
    }
    closeHandle();
    for (const detail::AddressInfo& info : results) {
        mSocket = detail::createSocket(info.family, info.socketType, info.protocol);
        if (mSocket == INVALID_HANDLE) {
            updateError();
            continue;
        }
        if (detail::bindSocket(mSocket, info.address, info.length) != 0) {
            updateError();
            closeHandle();
            continue;
        }
        alignas(8) unsigned char bound[detail::ADDRESS_CAPACITY];
        int length = (int)sizeof(bound);
        if (detail::localAddress(mSocket, bound, &length) == 0)
            address.setNativeAddress(bound, length, true);
        else
            address.setNativeAddress(info.address, info.length, false);
        connectedCB();
        mConnected = true;
        mLastError = 0;
        return;
    }
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
