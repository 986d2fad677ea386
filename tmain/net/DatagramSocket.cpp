#include <tmain/net/DatagramSocket.h>
#include <tmain/net/detail/SocketNative.h>
#include <tmain/stream/IOException.h>

#include <string>
#include <vector>

using tarso::stream::IOException;

namespace net {

DatagramSocket::DatagramSocket(unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout,
                               bool nonBlocking)
    : Socket(TP_UDP, connectTimeout, readTimeout, writeTimeout, nonBlocking, true) {}

void DatagramSocket::resolveOrThrow(const SocketAddress& address, const char* who) {
    if (!address.isResolved() && !address.resolve())
        throw IOException("DatagramSocket::%s:unable to resolve address %s:%d", who, address.getHost(),
                          (int)address.getPort());
}

void DatagramSocket::ensureSocket(SocketAddress& address) {
    if (mSocket != INVALID_HANDLE)
        return;
    std::vector<detail::AddressInfo> results;
    int rc = detail::resolve(address.getHost(), address.getPort(), true, detail::KIND_DATAGRAM, results);
    if (rc != 0) {
        mLastError = rc;
        throw IOException("DatagramSocket::bind:unable to resolve address %s:%d", address.getHost(),
                          (int)address.getPort());
    }
    // A resolved address decides the family; otherwise the resolver's order does.
    int wanted = address.isResolved()
                     ? detail::addressFamily(address.getNativeAddress(), address.getNativeLength())
                     : -1;
    for (int pass = 0; pass < 2 && mSocket == INVALID_HANDLE; ++pass) {
        for (const detail::AddressInfo& info : results) {
            if (pass == 0 && wanted >= 0 && info.family != wanted)
                continue;
            mSocket = detail::createSocket(info.family, info.socketType, info.protocol);
            if (mSocket == INVALID_HANDLE) {
                updateError();
                continue;
            }
            if (!address.isResolved())
                address.setNativeAddress(info.address, info.length, false);
            break;
        }
    }
    if (mSocket == INVALID_HANDLE) {
        if (results.empty())
            mLastError = SOCK_HOST_NOT_FOUND;
        throw IOException("Unable to create socket: %s", error2String(mLastError));
    }
    connectedCB();
}

void DatagramSocket::bind(const SocketAddress& address) {
    bindPassive(address, true, "DatagramSocket::bind:unable to resolve address %s:%d", nullptr);
}

void DatagramSocket::bind(const char* host, int port) {
    bind(SocketAddress(host, (unsigned)port));
}

int DatagramSocket::read(void* buffer, int length, SocketAddress& from) {
    resolveOrThrow(from, "read");
    if (length <= 0)
        return 0;
    alignas(8) unsigned char sender[SocketAddress::CAPACITY];
    int senderLength = (int)sizeof(sender);
    int n = detail::recvFrom(mSocket, buffer, length, sender, &senderLength);
    if (n >= 0) {
        std::string host;
        if (detail::numericHost(sender, senderLength, host))
            from.setHost(host.c_str());
        from.setNativeAddress(sender, senderLength, true);
        return n;
    }
    if (updateError() == 0)
        return 0;
    throwException(this, OP_READ);
    return 0;
}

int DatagramSocket::write(const void* buffer, int length, const SocketAddress& to) {
    resolveOrThrow(to, "write");
    if (mSocket == INVALID_HANDLE) {
        SocketAddress target(to);
        ensureSocket(target);
    }
    if (length < 0)
        length = 0;
    int n = detail::sendTo(mSocket, buffer, length, to.getNativeAddress(), to.getNativeLength());
    if (n >= 0)
        return n;
    if (updateError() == 0)
        return 0;
    throwException(this, OP_WRITE);
    return 0;
}

void DatagramSocket::readAll(void* buffer, int length, SocketAddress& from, unsigned retries) {
    if (length < 1)
        return;
    resolveOrThrow(from, "readAll");
    char* bytes = static_cast<char*>(buffer);
    transferAll(
        length, retries, false, [&](int done) { return read(bytes + done, length - done, from); },
        "DatagramSocket::readAll:%d bytes could not be written");
}

void DatagramSocket::writeAll(const void* buffer, int length, const SocketAddress& to, unsigned retries) {
    if (length < 1)
        return;
    resolveOrThrow(to, "writeAll");
    const char* bytes = static_cast<const char*>(buffer);
    transferAll(
        length, retries, true, [&](int done) { return write(bytes + done, length - done, to); },
        "DatagramSocket::writeAll:%d bytes could not be written");
}

} // namespace net
