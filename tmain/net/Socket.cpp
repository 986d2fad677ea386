#include <tmain/net/Socket.h>
#include <tmain/net/SocketClosedException.h>
#include <tmain/net/detail/SocketNative.h>
#include <tmain/stream/IOException.h>
#include <vector>

#include <mutex>

using tarso::stream::IOException;
using tarso::stream::TimeoutException;

namespace net {

const unsigned Socket::DEFAULT_CONNECT_TIMEOUT;
const unsigned Socket::DEFAULT_READ_TIMEOUT;
const unsigned Socket::DEFAULT_WRITE_TIMEOUT;
const int Socket::SOCK_ERROR;
const int Socket::SOCK_SHUT_RD;
const int Socket::SOCK_SHUT_WR;
const int Socket::SOCK_SHUT_RDWR;
const int Socket::SOCK_EINTR;
const int Socket::SOCK_EBADF;
const int Socket::SOCK_EACCES;
const int Socket::SOCK_EFAULT;
const int Socket::SOCK_EINVAL;
const int Socket::SOCK_EMFILE;
const int Socket::SOCK_EWOULDBLOCK;
const int Socket::SOCK_EINPROGRESS;
const int Socket::SOCK_EALREADY;
const int Socket::SOCK_ENOTSOCK;
const int Socket::SOCK_EDESTADDRREQ;
const int Socket::SOCK_EMSGSIZE;
const int Socket::SOCK_EPROTOTYPE;
const int Socket::SOCK_ENOPROTOOPT;
const int Socket::SOCK_EPROTONOSUPPORT;
const int Socket::SOCK_ESOCKTNOSUPPORT;
const int Socket::SOCK_EOPNOTSUPP;
const int Socket::SOCK_EPFNOSUPPORT;
const int Socket::SOCK_EAFNOSUPPORT;
const int Socket::SOCK_EADDRINUSE;
const int Socket::SOCK_EADDRNOTAVAIL;
const int Socket::SOCK_ENETDOWN;
const int Socket::SOCK_ENETUNREACH;
const int Socket::SOCK_ENETRESET;
const int Socket::SOCK_ECONNABORTED;
const int Socket::SOCK_ECONNRESET;
const int Socket::SOCK_ENOBUFS;
const int Socket::SOCK_EISCONN;
const int Socket::SOCK_ENOTCONN;
const int Socket::SOCK_ESHUTDOWN;
const int Socket::SOCK_ETOOMANYREFS;
const int Socket::SOCK_ETIMEDOUT;
const int Socket::SOCK_ECONNREFUSED;
const int Socket::SOCK_ELOOP;
const int Socket::SOCK_ENAMETOOLONG;
const int Socket::SOCK_EHOSTDOWN;
const int Socket::SOCK_EHOSTUNREACH;
const int Socket::SOCK_WSASYSNOTREADY;
const int Socket::SOCK_WSAVERNOTSUPPORTED;
const int Socket::SOCK_WSANOTINITIALISED;
const int Socket::SOCK_HOST_NOT_FOUND;
const int Socket::SOCK_TRY_AGAIN;
const int Socket::SOCK_NO_RECOVERY;
const int Socket::SOCK_NO_DATA;
const unsigned Socket::INVALID_HANDLE;
const int Socket::MAX_POLL_SOCKETS;

std::atomic<int> Socket::INSTANCES(0);

namespace {

// Guards the transitions of INSTANCES, so that start-up happens before any
// second socket exists and clean-up only after the last one is gone.
std::mutex& instanceMutex() {
    static std::mutex mutex;
    return mutex;
}

const unsigned DRAIN_WAIT_MS = 10;
const int DRAIN_PIECE = 512;

} // namespace

void Socket::countIn() {
    std::lock_guard<std::mutex> lock(instanceMutex());
    if (INSTANCES.load() == 0 && detail::startup() != 0) {
        detail::cleanup();
        throw IOException("Unable to create socket: cannot start WinSock!");
    }
    INSTANCES.fetch_add(1);
}

void Socket::countOut() {
    std::lock_guard<std::mutex> lock(instanceMutex());
    if (INSTANCES.fetch_sub(1) == 1)
        detail::cleanup();
}

Socket::TimeSplit Socket::split(unsigned milliseconds) {
    TimeSplit t;
    t.sec = (long)(milliseconds / 1000);
    t.usec = (long)(milliseconds % 1000) * 1000;
    return t;
}

Socket::Socket(TransportProtocol protocol, unsigned connectTimeout, unsigned readTimeout,
               unsigned writeTimeout, bool nonBlocking, bool tcpNoDelay)
    : mSocket(INVALID_HANDLE), mProtocol(protocol), mConnected(false), mNonBlocking(nonBlocking),
      mConnectTimeout(connectTimeout), mReadTimeout(readTimeout), mWriteTimeout(writeTimeout),
      mReadTimeVal(split(readTimeout)), mWriteTimeVal(split(writeTimeout)), mBufferSize(2048), mLastError(0),
      mTCPNoDelay(tcpNoDelay) {
    countIn();
}

Socket::Socket(TransportProtocol protocol, unsigned handle, const SocketAddress& peer,
               unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout, bool nonBlocking,
               bool tcpNoDelay)
    : mSocket(handle), mProtocol(protocol), mConnected(handle != INVALID_HANDLE), mNonBlocking(nonBlocking),
      mConnectTimeout(connectTimeout), mReadTimeout(readTimeout), mWriteTimeout(writeTimeout),
      mReadTimeVal(split(readTimeout)), mWriteTimeVal(split(writeTimeout)), mBufferSize(2048), mLastError(0),
      mTCPNoDelay(tcpNoDelay), mPeer(peer) {
    try {
        countIn();
    } catch (...) {
        // The handle was handed over: it must not outlive the failed socket.
        if (mSocket != INVALID_HANDLE)
            detail::closeSocket(mSocket);
        throw;
    }
    connectedCB();
}

Socket::~Socket() {
    if (mSocket != INVALID_HANDLE)
        disconnect(false);
    countOut();
}

void Socket::setReadTimeout(unsigned milliseconds) {
    mReadTimeout = milliseconds;
    mReadTimeVal = split(milliseconds);
    if (mSocket != INVALID_HANDLE)
        detail::setReceiveTimeout(mSocket, milliseconds);
}

void Socket::setWriteTimeout(unsigned milliseconds) {
    mWriteTimeout = milliseconds;
    mWriteTimeVal = split(milliseconds);
    if (mSocket != INVALID_HANDLE)
        detail::setSendTimeout(mSocket, milliseconds);
}

void Socket::setTimeout(unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout) {
    mConnectTimeout = connectTimeout;
    setReadTimeout(readTimeout);
    setWriteTimeout(writeTimeout);
}

void Socket::applyTimeout() {
    if (mSocket == INVALID_HANDLE)
        return;
    detail::setReceiveTimeout(mSocket, mReadTimeout);
    detail::setSendTimeout(mSocket, mWriteTimeout);
}

bool Socket::setNonBlocking(bool nonBlocking) {
    if (nonBlocking != mNonBlocking) {
        mNonBlocking = nonBlocking;
        applyNonBlocking();
    }
    return true;
}

void Socket::applyNonBlocking() {
    if (mSocket != INVALID_HANDLE)
        detail::setNonBlocking(mSocket, mNonBlocking);
}

bool Socket::getTCPNoDelay() const {
    if (mSocket == INVALID_HANDLE || mProtocol == TP_UDP)
        return mTCPNoDelay;
    int value = 0;
    if (detail::getNoDelay(mSocket, value) != 0)
        return false;
    return value > 0;
}

void Socket::setTCPNoDelay(bool on) {
    if (mSocket == INVALID_HANDLE || mProtocol == TP_UDP) {
        mTCPNoDelay = on;
        return;
    }
    if (detail::setNoDelay(mSocket, on) != 0)
        mTCPNoDelay = on;
}

void Socket::clearError() {
    mLastError = 0;
    detail::clearLastError();
}

unsigned Socket::getLocalPort() const {
    if (mSocket == INVALID_HANDLE)
        return 0;
    alignas(8) unsigned char address[detail::ADDRESS_CAPACITY];
    int length = (int)sizeof(address);
    if (detail::localAddress(mSocket, address, &length) != 0)
        return 0;
    return detail::addressPort(address, length);
}

int Socket::updateError() const {
    int error = detail::lastError();
    if (mNonBlocking && (error == SOCK_EWOULDBLOCK || error == SOCK_EINTR))
        error = 0;
    mLastError = error;
    return error;
}

void Socket::throwException(Socket* socket, Operation op) {
    int error = socket->mLastError;
    if (error == 0)
        return;
    bool timeout = error == SOCK_EWOULDBLOCK || error == SOCK_ETIMEDOUT;
    switch (op) {
    case OP_READ:
        if (timeout)
            throw TimeoutException("Socket read timeout (>%dms)", (int)socket->mReadTimeout);
        throw IOException("Socket read error: %s", error2String(error));
    case OP_WRITE:
        // The write path reports a timeout with the read wording and the read
        // timeout, deliberately.
        if (timeout)
            throw TimeoutException("Socket read timeout (>%dms)", (int)socket->mReadTimeout);
        throw IOException("Socket write error: %s", error2String(error));
    default:
        throw IOException("Socket error: %s", error2String(error));
    }
}

void Socket::connectedCB() {
    if (mSocket == INVALID_HANDLE)
        return;
    applyTimeout();
    applyNonBlocking();
    if (mProtocol == TP_TCP && mTCPNoDelay)
        detail::setNoDelay(mSocket, true);
}

void Socket::closeHandle() {
    if (mSocket != INVALID_HANDLE)
        detail::closeSocket(mSocket);
    mSocket = INVALID_HANDLE;
    mConnected = false;
}

int Socket::read(void* buffer, int length) {
    if (mProtocol == TP_TCP && !isConnected())
        throw IOException("Socket disconnected");
    // A zero-length recv would look like the peer closing.
    if (length <= 0)
        return 0;
    int n = detail::recvBytes(mSocket, buffer, length);
    if (n > 0)
        return n;
    if (n == 0) {
        if (mProtocol == TP_TCP) {
            mConnected = false;
            throw SocketClosedException(this, nullptr);
        }
        return 0;
    }
    if (updateError() == 0)
        return 0;
    throwException(this, OP_READ);
    return 0;
}

int Socket::write(const void* buffer, int length) {
    if (!isConnected())
        throw IOException("Socket disconnected");
    if (length < 0)
        length = 0;
    int n = detail::sendBytes(mSocket, buffer, length);
    if (n >= 0)
        return n;
    if (updateError() == 0)
        return 0;
    throwException(this, OP_WRITE);
    return 0;
}

void Socket::transferAll(int length, unsigned retries, bool forWrite, const std::function<int(int)>& step,
                         const char* failure) {
    const unsigned waits = retries > 0 ? retries : 1;
    int done = 0;
    while (done < length) {
        int n = step(done);
        if (n > 0) {
            done += n;
            continue;
        }
        bool ready = false;
        for (unsigned i = 0; i < waits && !ready; ++i)
            ready = forWrite ? pollWritable(-1) : pollReadable(-1);
        if (!ready)
            throw IOException(failure, missingCount(length, done));
    }
}

void Socket::readAll(void* buffer, int length, unsigned retries) {
    char* bytes = static_cast<char*>(buffer);
    transferAll(
        length, retries, false, [&](int done) { return read(bytes + done, length - done); },
        "Socket::readAll:%d bytes could not be written");
}

void Socket::writeAll(const void* buffer, int length, unsigned retries) {
    const char* bytes = static_cast<const char*>(buffer);
    transferAll(
        length, retries, true, [&](int done) { return write(bytes + done, length - done); },
        "Socket::writeAll:%d bytes could not be written");
}

bool Socket::bindPassive(const SocketAddress& address, bool datagram, const char* resolveFailure,
                         SocketAddress* bound) {
    if (isConnected())
        throw IOException("Socket already bound");
    std::vector<detail::AddressInfo> results;
    int rc = detail::resolve(address.getHost(), address.getPort(), true,
                             datagram ? detail::KIND_DATAGRAM : detail::KIND_STREAM, results);
    if (rc != 0) {
        mLastError = rc;
        throw IOException(resolveFailure, address.getHost(), (int)address.getPort());
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
        if (bound) {
            alignas(8) unsigned char local[detail::ADDRESS_CAPACITY];
            int localLength = (int)sizeof(local);
            if (detail::localAddress(mSocket, local, &localLength) == 0)
                bound->setNativeAddress(local, localLength, true);
            else
                bound->setNativeAddress(info.address, info.length, false);
        }
        connectedCB();
        mConnected = true;
        mLastError = 0;
        return true;
    }
    return false;
}

bool Socket::waitOne(bool forWrite, TimeSplit timeout) const {
    detail::Handle handle = mSocket;
    for (;;) {
        bool ready = false;
        int n = detail::selectHandles(&handle, 1, forWrite ? nullptr : &ready, forWrite ? &ready : nullptr,
                                      timeout.sec, timeout.usec);
        if (n > 0)
            return ready;
        if (n == 0)
            return false;
        if (updateError() != SOCK_EINTR)
            return false;
    }
}

bool Socket::pollReadable(int timeoutMs) const {
    return waitOne(false, timeoutMs < 0 ? mReadTimeVal : split((unsigned)timeoutMs));
}

bool Socket::pollWritable(int timeoutMs) const {
    if (timeoutMs >= 0)
        return waitOne(true, split((unsigned)timeoutMs));
    // The read timeout on purpose: the write timeout only decides whether to wait.
    return waitOne(true, mWriteTimeout != 0 ? mReadTimeVal : split(0));
}

int Socket::pollMany(int count, Socket* const* sockets, bool wantRead, bool wantWrite, Socket** readable,
                     bool* readFlags, int* nReadable, Socket** writable, bool* writeFlags, int* nWritable,
                     int timeoutMs) {
    if (nReadable)
        *nReadable = 0;
    if (nWritable)
        *nWritable = 0;
    if (count < 0 || !sockets)
        count = 0;
    for (int i = 0; i < count; ++i) {
        if (readFlags)
            readFlags[i] = false;
        if (writeFlags)
            writeFlags[i] = false;
    }
    int considered = count < MAX_POLL_SOCKETS ? count : MAX_POLL_SOCKETS;
    detail::Handle handles[MAX_POLL_SOCKETS];
    int n = 0;
    for (int i = 0; i < considered; ++i) {
        Socket* s = sockets[i];
        if (!s || s->mSocket == INVALID_HANDLE)
            continue;
        bool seen = false;
        for (int j = 0; j < n && !seen; ++j)
            seen = handles[j] == s->mSocket;
        if (!seen)
            handles[n++] = s->mSocket;
    }
    // Nothing to wait for: select refuses an empty set, so answer at once.
    if (n == 0)
        return 0;
    bool rd[MAX_POLL_SOCKETS] = {};
    bool wr[MAX_POLL_SOCKETS] = {};
    long sec = -1, usec = 0;
    if (timeoutMs >= 0) {
        TimeSplit t = split((unsigned)timeoutMs);
        sec = t.sec;
        usec = t.usec;
    }
    int result;
    do {
        result =
            detail::selectHandles(handles, n, wantRead ? rd : nullptr, wantWrite ? wr : nullptr, sec, usec);
    } while (result < 0 && detail::lastError() == SOCK_EINTR);
    if (result <= 0)
        return 0;

    // Lists every input socket whose handle is ready, each handle once.
    auto collect = [&](const bool* ready, Socket** out, bool* flags, int* outCount) {
        detail::Handle listed[MAX_POLL_SOCKETS];
        int nListed = 0;
        for (int i = 0; i < considered; ++i) {
            Socket* s = sockets[i];
            if (!s || s->mSocket == INVALID_HANDLE)
                continue;
            int k = 0;
            while (handles[k] != s->mSocket)
                ++k;
            if (!ready[k])
                continue;
            if (flags)
                flags[i] = true;
            bool again = false;
            for (int j = 0; j < nListed && !again; ++j)
                again = listed[j] == s->mSocket;
            if (again)
                continue;
            listed[nListed++] = s->mSocket;
            if (out)
                out[*outCount] = s;
            ++*outCount;
        }
    };
    int nr = 0, nw = 0;
    if (wantRead)
        collect(rd, readable, readFlags, &nr);
    if (wantWrite)
        collect(wr, writable, writeFlags, &nw);
    if (nReadable)
        *nReadable = nr;
    if (nWritable)
        *nWritable = nw;
    return (nr > 0 ? 1 : 0) | (nw > 0 ? 2 : 0);
}

int Socket::pollReadable(int count, Socket* const* sockets, Socket** ready, bool* flags, int timeoutMs) {
    int n = 0;
    pollMany(count, sockets, true, false, ready, flags, &n, nullptr, nullptr, nullptr, timeoutMs);
    return n;
}

int Socket::pollWritable(int count, Socket* const* sockets, Socket** ready, bool* flags, int timeoutMs) {
    int n = 0;
    pollMany(count, sockets, false, true, nullptr, nullptr, nullptr, ready, flags, &n, timeoutMs);
    return n;
}

int Socket::poll(int count, Socket* const* sockets, int& nReadable, Socket** readable, bool* readFlags,
                 int& nWritable, Socket** writable, bool* writeFlags, int timeoutMs) {
    return pollMany(count, sockets, true, true, readable, readFlags, &nReadable, writable, writeFlags,
                    &nWritable, timeoutMs);
}

void Socket::disconnect(bool drain) {
    if (mSocket != INVALID_HANDLE) {
        bool wasNonBlocking = mNonBlocking;
        setNonBlocking(true);
        detail::shutdownSocket(mSocket, detail::SHUTDOWN_SEND);
        if (drain && pollReadable((int)DRAIN_WAIT_MS)) {
            char piece[DRAIN_PIECE];
            try {
                while (read(piece, (int)sizeof(piece)) > 0) {
                }
            } catch (const IOException&) {
            } catch (const SocketClosedException&) {
                // The peer's end of stream: nothing left to drain.
            }
        }
        setNonBlocking(wasNonBlocking);
        detail::closeSocket(mSocket);
    }
    mConnected = false;
    mSocket = INVALID_HANDLE;
}

const char* Socket::error2String(int code) {
    switch (code) {
    case SOCK_EINTR:
        return "Interrupted function call";
    case SOCK_EBADF:
        return "Invalid valid descriptor";
    case SOCK_EACCES:
        return "Permission denied";
    case SOCK_EFAULT:
        return "Invalid memory address";
    case SOCK_EINVAL:
        return "Invalid argument";
    case SOCK_EMFILE:
        return "Too many open files";
    case SOCK_EWOULDBLOCK:
        return "The operation would block";
    case SOCK_EINPROGRESS:
        return "Blocking operation already in progress";
    case SOCK_EALREADY:
        return "Non-blocking operation already in progress";
    case SOCK_ENOTSOCK:
        return "Invalid socket";
    case SOCK_EDESTADDRREQ:
        return "Destination address required";
    case SOCK_EMSGSIZE:
        return "Message too long";
    case SOCK_EPROTOTYPE:
        return "Wrong protocol type";
    case SOCK_ENOPROTOOPT:
        return "Bad protocol option";
    case SOCK_EPROTONOSUPPORT:
        return "Protocol not supoorted";
    case SOCK_ESOCKTNOSUPPORT:
        return "Socket type not supported";
    case SOCK_EOPNOTSUPP:
        return "Operation not supported";
    case SOCK_EPFNOSUPPORT:
        return "Protocol family not supported";
    case SOCK_EAFNOSUPPORT:
        return "Address family not supported";
    case SOCK_EADDRINUSE:
        return "Address already in use";
    case SOCK_EADDRNOTAVAIL:
        return "Cannot assign requested address";
    case SOCK_ENETDOWN:
        return "Network is down";
    case SOCK_ENETUNREACH:
        return "Network unreachable";
    case SOCK_ENETRESET:
        return "Network dropped connection on reset";
    case SOCK_ECONNABORTED:
        return "Software caused connection abort";
    case SOCK_ECONNRESET:
        return "Connection reset by peer";
    case SOCK_ENOBUFS:
        return "No buffer space available";
    case SOCK_EISCONN:
        return "Socket already connected";
    case SOCK_ENOTCONN:
        return "Socket is not connected";
    case SOCK_ESHUTDOWN:
        return "Socket has been shutdown";
    case SOCK_ETOOMANYREFS:
        return "Too many references";
    case SOCK_ETIMEDOUT:
        return "Connection timed out";
    case SOCK_ECONNREFUSED:
        return "Connection refused";
    case SOCK_ELOOP:
        return "Cannot translate name";
    case SOCK_ENAMETOOLONG:
        return "Name too long";
    case SOCK_EHOSTDOWN:
        return "Host is down";
    case SOCK_EHOSTUNREACH:
        return "No route to host";
    case SOCK_WSASYSNOTREADY:
        return "Network subsystem is not available";
    case SOCK_WSAVERNOTSUPPORTED:
        return "Invalid winsock version";
    case SOCK_WSANOTINITIALISED:
        return "Winsock not initialized";
    case SOCK_HOST_NOT_FOUND:
        return "Host not found";
    case SOCK_TRY_AGAIN:
        return "Non-auhtoritative host not found. Try again";
    case SOCK_NO_RECOVERY:
        return "Unrecoverable error";
    case SOCK_NO_DATA:
        return "Valid name, no data record of requested type";
    }
    return "Unknown error";
}

} // namespace net
