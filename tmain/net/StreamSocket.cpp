#include <tmain/net/SocketInputStream.h>
#include <tmain/net/SocketOutputStream.h>
#include <tmain/net/StreamSocket.h>
#include <tmain/net/detail/SocketNative.h>
#include <tmain/stream/IOException.h>

#include <vector>

using tarso::stream::IOException;
using tarso::stream::TimeoutException;

namespace net {

StreamSocket::StreamSocket(unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout,
                           bool nonBlocking, bool tcpNoDelay)
    : Socket(TP_TCP, connectTimeout, readTimeout, writeTimeout, nonBlocking, tcpNoDelay), mInput(nullptr),
      mOutput(nullptr) {}

StreamSocket::StreamSocket(unsigned handle, const SocketAddress& peer, TransportProtocol protocol,
                           unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout,
                           bool nonBlocking, bool tcpNoDelay)
    : Socket(protocol, handle, peer, connectTimeout, readTimeout, writeTimeout, nonBlocking, tcpNoDelay),
      mInput(nullptr), mOutput(nullptr) {}

StreamSocket::~StreamSocket() {
    delete mInput;
    delete mOutput;
}

SocketInputStream* StreamSocket::getInputStream() {
    if (!mInput)
        mInput = new SocketInputStream(this);
    return mInput;
}

SocketOutputStream* StreamSocket::getOutputStream() {
    if (mOutput)
        mOutput->reset();
    else
        mOutput = new SocketOutputStream(this);
    return mOutput;
}

int StreamSocket::tryConnect(const void* address, int length, int family, int type, int protocol) {
    mSocket = detail::createSocket(family, type, protocol);
    if (mSocket == INVALID_HANDLE) {
        updateError();
        return 2;
    }
    mNonBlocking = true;
    applyTimeout();
    applyNonBlocking();
    if (detail::connectSocket(mSocket, address, length) == 0)
        return 0;
    int error = detail::lastError();
    if (error != SOCK_EWOULDBLOCK && error != SOCK_EINPROGRESS) {
        mLastError = error;
        closeHandle();
        return 2;
    }
    int pending = 0;
    mLastError = 0;
    if (pollWritable((int)mConnectTimeout)) {
        if (detail::pendingError(mSocket, pending) != 0) {
            pending = detail::lastError();
            if (pending == 0)
                pending = SOCK_ENOTCONN;
        }
        if (pending == 0)
            return 0;
    } else {
        pending = mLastError != 0 ? mLastError : SOCK_ETIMEDOUT;
    }
    mLastError = pending;
    closeHandle();
    return 1;
}

void StreamSocket::connect(SocketAddress& address, bool nonBlocking) {
    if (isConnected())
        return;
    // A handle left behind by a peer's close is not reused.
    closeHandle();
    bool previousMode = mNonBlocking;
    std::vector<detail::AddressInfo> results;
    int outcome = 2;
    int rc = detail::resolve(address.getHost(), address.getPort(), false, detail::KIND_STREAM, results);
    if (rc != 0)
        mLastError = rc;
    else if (results.empty())
        mLastError = SOCK_HOST_NOT_FOUND;
    for (const detail::AddressInfo& info : results) {
        outcome = tryConnect(info.address, info.length, info.family, info.socketType, info.protocol);
        if (outcome == 0) {
            address.setNativeAddress(info.address, info.length, false);
            break;
        }
    }
    if (outcome == 0) {
        mNonBlocking = nonBlocking;
        connectedCB();
        mConnected = true;
        mPeer = address;
        mLastError = 0;
        return;
    }
    mNonBlocking = previousMode;
    disconnect(true);
    if (outcome == 1)
        throw TimeoutException("StreamSocket::connect:timeout for address %s:%d (%dms)", address.getHost(),
                               (int)address.getPort(), (int)mConnectTimeout);
    throw IOException("StreamSocket::connect:unable to connect to address %s:%d (%s)", address.getHost(),
                      (int)address.getPort(), error2String(mLastError));
}

} // namespace net
