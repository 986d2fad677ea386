// EAI_NODATA and EAI_ADDRFAMILY are GNU extensions of netdb.h.
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif

#include <tmain/net/Socket.h>
#include <tmain/net/detail/SocketNative.h>

#include <arpa/inet.h>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

namespace net {
namespace detail {

namespace {

int fd(Handle handle) {
    return handle == NO_HANDLE ? -1 : (int)handle;
}

/// A call on no socket at all fails as WinSock's does on INVALID_SOCKET:
/// "not a socket" (10038), where a descriptor of -1 would say EBADF.
int notSocket() {
    errno = ENOTSOCK;
    return -1;
}

bool isNonBlocking(int descriptor) {
    int flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && (flags & O_NONBLOCK) != 0;
}

/// After a send or receive failed: WinSock reports an expired timeout of a
/// blocking socket as WSAETIMEDOUT, POSIX as EAGAIN.
void timeoutAsWinSock(int descriptor) {
    if ((errno == EAGAIN || errno == EWOULDBLOCK) && !isNonBlocking(descriptor))
        errno = ETIMEDOUT;
}

long long monotonicMs() {
    timespec ts;
    clock_gettime(CLOCK_MONOTONIC, &ts);
    return (long long)ts.tv_sec * 1000 + ts.tv_nsec / 1000000;
}

int setTimeoutOption(Handle handle, int option, unsigned milliseconds) {
    if (handle == NO_HANDLE)
        return notSocket();
    timeval tv;
    tv.tv_sec = (time_t)(milliseconds / 1000);
    tv.tv_usec = (suseconds_t)(milliseconds % 1000) * 1000;
    return setsockopt(fd(handle), SOL_SOCKET, option, &tv, sizeof(tv));
}

int gaiError(int code) {
    switch (code) {
    case 0:
        return 0;
    case EAI_NONAME:
        return Socket::SOCK_HOST_NOT_FOUND;
    case EAI_AGAIN:
        return Socket::SOCK_TRY_AGAIN;
    case EAI_FAIL:
        return Socket::SOCK_NO_RECOVERY;
#ifdef EAI_NODATA
    case EAI_NODATA:
        return Socket::SOCK_NO_DATA;
#endif
#ifdef EAI_ADDRFAMILY
    case EAI_ADDRFAMILY:
        return Socket::SOCK_NO_DATA;
#endif
    case EAI_FAMILY:
        return Socket::SOCK_EAFNOSUPPORT;
    case EAI_SOCKTYPE:
        return Socket::SOCK_ESOCKTNOSUPPORT;
    case EAI_BADFLAGS:
    case EAI_SERVICE:
        return Socket::SOCK_EINVAL;
    case EAI_MEMORY:
        return Socket::SOCK_ENOBUFS;
    case EAI_SYSTEM: {
        int mapped = errorFromErrno(errno);
        return mapped != 0 ? mapped : Socket::SOCK_NO_RECOVERY;
    }
    }
    return Socket::SOCK_NO_RECOVERY;
}

} // namespace

int errorFromErrno(int error) {
    switch (error) {
    case 0:
        return 0;
    case EINTR:
        return Socket::SOCK_EINTR;
    case EBADF:
        return Socket::SOCK_EBADF;
    case EACCES:
    case EPERM:
        return Socket::SOCK_EACCES;
    case EFAULT:
        return Socket::SOCK_EFAULT;
    case EINVAL:
        return Socket::SOCK_EINVAL;
    case EMFILE:
    case ENFILE:
        return Socket::SOCK_EMFILE;
    case EAGAIN:
#if EWOULDBLOCK != EAGAIN
    case EWOULDBLOCK:
#endif
        return Socket::SOCK_EWOULDBLOCK;
    case EINPROGRESS:
        return Socket::SOCK_EINPROGRESS;
    case EALREADY:
        return Socket::SOCK_EALREADY;
    case ENOTSOCK:
        return Socket::SOCK_ENOTSOCK;
    case EDESTADDRREQ:
        return Socket::SOCK_EDESTADDRREQ;
    case EMSGSIZE:
        return Socket::SOCK_EMSGSIZE;
    case EPROTOTYPE:
        return Socket::SOCK_EPROTOTYPE;
    case ENOPROTOOPT:
        return Socket::SOCK_ENOPROTOOPT;
    case EPROTONOSUPPORT:
        return Socket::SOCK_EPROTONOSUPPORT;
    case ESOCKTNOSUPPORT:
        return Socket::SOCK_ESOCKTNOSUPPORT;
    case EOPNOTSUPP:
#if defined(ENOTSUP) && ENOTSUP != EOPNOTSUPP
    case ENOTSUP:
#endif
        return Socket::SOCK_EOPNOTSUPP;
    case EPFNOSUPPORT:
        return Socket::SOCK_EPFNOSUPPORT;
    case EAFNOSUPPORT:
        return Socket::SOCK_EAFNOSUPPORT;
    case EADDRINUSE:
        return Socket::SOCK_EADDRINUSE;
    case EADDRNOTAVAIL:
        return Socket::SOCK_EADDRNOTAVAIL;
    case ENETDOWN:
        return Socket::SOCK_ENETDOWN;
    case ENETUNREACH:
        return Socket::SOCK_ENETUNREACH;
    case ENETRESET:
        return Socket::SOCK_ENETRESET;
    case ECONNABORTED:
        return Socket::SOCK_ECONNABORTED;
    case ECONNRESET:
    case EPIPE:
        return Socket::SOCK_ECONNRESET;
    case ENOBUFS:
    case ENOMEM:
        return Socket::SOCK_ENOBUFS;
    case EISCONN:
        return Socket::SOCK_EISCONN;
    case ENOTCONN:
        return Socket::SOCK_ENOTCONN;
    case ESHUTDOWN:
        return Socket::SOCK_ESHUTDOWN;
    case ETOOMANYREFS:
        return Socket::SOCK_ETOOMANYREFS;
    case ETIMEDOUT:
        return Socket::SOCK_ETIMEDOUT;
    case ECONNREFUSED:
        return Socket::SOCK_ECONNREFUSED;
    case ELOOP:
        return Socket::SOCK_ELOOP;
    case ENAMETOOLONG:
        return Socket::SOCK_ENAMETOOLONG;
    case EHOSTDOWN:
        return Socket::SOCK_EHOSTDOWN;
    case EHOSTUNREACH:
        return Socket::SOCK_EHOSTUNREACH;
    }
    return error;
}

int startup() {
    return 0;
}

void cleanup() {}

int lastError() {
    return errorFromErrno(errno);
}

void clearLastError() {
    errno = 0;
}

int resolve(const char* host, unsigned port, bool passive, SocketKind kind, std::vector<AddressInfo>& out) {
    out.clear();
    if (port > 65535)
        return gaiError(EAI_SERVICE);
    char service[16];
    snprintf(service, sizeof(service), "%u", port);
    addrinfo hints;
    memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_UNSPEC;
    hints.ai_flags = passive ? AI_PASSIVE : 0;
    hints.ai_socktype = kind == KIND_STREAM ? SOCK_STREAM : kind == KIND_DATAGRAM ? SOCK_DGRAM : 0;
    addrinfo* list = nullptr;
    int rc = getaddrinfo(host && *host ? host : nullptr, service, &hints, &list);
    if (rc != 0)
        return gaiError(rc);
    for (addrinfo* p = list; p; p = p->ai_next) {
        if (!p->ai_addr || p->ai_addrlen == 0 || p->ai_addrlen > (socklen_t)ADDRESS_CAPACITY)
            continue;
        AddressInfo info;
        memset(&info, 0, sizeof(info));
        info.family = p->ai_family;
        info.socketType = p->ai_socktype;
        info.protocol = p->ai_protocol;
        info.length = (int)p->ai_addrlen;
        memcpy(info.address, p->ai_addr, p->ai_addrlen);
        out.push_back(info);
    }
    freeaddrinfo(list);
    return 0;
}

bool numericHost(const void* address, int length, std::string& out) {
    if (!address || length < (int)sizeof(sa_family_t))
        return false;
    char text[128];
    const sockaddr* sa = static_cast<const sockaddr*>(address);
    const char* done = nullptr;
    if (sa->sa_family == AF_INET && length >= (int)sizeof(sockaddr_in))
        done = inet_ntop(AF_INET, &static_cast<const sockaddr_in*>(address)->sin_addr, text, sizeof(text));
    else if (sa->sa_family == AF_INET6 && length >= (int)sizeof(sockaddr_in6))
        done = inet_ntop(AF_INET6, &static_cast<const sockaddr_in6*>(address)->sin6_addr, text, sizeof(text));
    if (!done)
        return false;
    out = text;
    return true;
}

int addressFamily(const void* address, int length) {
    if (!address || length < (int)sizeof(sa_family_t))
        return -1;
    return static_cast<const sockaddr*>(address)->sa_family;
}

unsigned addressPort(const void* address, int length) {
    if (!address || length < (int)sizeof(sa_family_t))
        return 0;
    const sockaddr* sa = static_cast<const sockaddr*>(address);
    if (sa->sa_family == AF_INET && length >= (int)sizeof(sockaddr_in))
        return ntohs(static_cast<const sockaddr_in*>(address)->sin_port);
    if (sa->sa_family == AF_INET6 && length >= (int)sizeof(sockaddr_in6))
        return ntohs(static_cast<const sockaddr_in6*>(address)->sin6_port);
    return 0;
}

Handle createSocket(int family, int type, int protocol) {
    int s = socket(family, type | SOCK_CLOEXEC, protocol);
    return s < 0 ? NO_HANDLE : (Handle)s;
}

int closeSocket(Handle handle) {
    if (handle == NO_HANDLE)
        return notSocket();
    return close(fd(handle));
}

int setNonBlocking(Handle handle, bool on) {
    if (handle == NO_HANDLE)
        return notSocket();
    int flags = fcntl(fd(handle), F_GETFL);
    if (flags < 0)
        return -1;
    int wanted = on ? (flags | O_NONBLOCK) : (flags & ~O_NONBLOCK);
    return wanted == flags ? 0 : fcntl(fd(handle), F_SETFL, wanted);
}

int setReceiveTimeout(Handle handle, unsigned milliseconds) {
    return setTimeoutOption(handle, SO_RCVTIMEO, milliseconds);
}

int setSendTimeout(Handle handle, unsigned milliseconds) {
    return setTimeoutOption(handle, SO_SNDTIMEO, milliseconds);
}

int setNoDelay(Handle handle, bool on) {
    if (handle == NO_HANDLE)
        return notSocket();
    int value = on ? 1 : 0;
    return setsockopt(fd(handle), IPPROTO_TCP, TCP_NODELAY, &value, sizeof(value));
}

int getNoDelay(Handle handle, int& value) {
    if (handle == NO_HANDLE)
        return notSocket();
    socklen_t length = sizeof(value);
    value = 0;
    return getsockopt(fd(handle), IPPROTO_TCP, TCP_NODELAY, &value, &length);
}

int pendingError(Handle handle, int& error) {
    if (handle == NO_HANDLE)
        return notSocket();
    int value = 0;
    socklen_t length = sizeof(value);
    if (getsockopt(fd(handle), SOL_SOCKET, SO_ERROR, &value, &length) != 0)
        return -1;
    error = errorFromErrno(value);
    return 0;
}

int connectSocket(Handle handle, const void* address, int length) {
    if (handle == NO_HANDLE)
        return notSocket();
    return connect(fd(handle), static_cast<const sockaddr*>(address), (socklen_t)length);
}

int bindSocket(Handle handle, const void* address, int length) {
    if (handle == NO_HANDLE)
        return notSocket();
    int type = 0;
    socklen_t typeLength = sizeof(type);
    if (getsockopt(fd(handle), SOL_SOCKET, SO_TYPE, &type, &typeLength) == 0 && type == SOCK_STREAM) {
        int on = 1;
        setsockopt(fd(handle), SOL_SOCKET, SO_REUSEADDR, &on, sizeof(on));
    }
    return bind(fd(handle), static_cast<const sockaddr*>(address), (socklen_t)length);
}

int listenSocket(Handle handle, int backlog) {
    if (handle == NO_HANDLE)
        return notSocket();
    return listen(fd(handle), backlog);
}

Handle acceptSocket(Handle handle, void* address, int* length) {
    if (handle == NO_HANDLE) {
        notSocket();
        return NO_HANDLE;
    }
    socklen_t size = length && *length > 0 ? (socklen_t)*length : 0;
    for (;;) {
        socklen_t got = size;
        int s = accept4(fd(handle), size ? static_cast<sockaddr*>(address) : nullptr, size ? &got : nullptr,
                        SOCK_CLOEXEC);
        if (s >= 0) {
            if (length)
                *length = (int)(got < size ? got : size);
            return (Handle)s;
        }
        if (errno == EINTR)
            continue;
        if ((errno == EAGAIN || errno == EWOULDBLOCK) && !isNonBlocking(fd(handle)))
            continue;
        return NO_HANDLE;
    }
}

int sendBytes(Handle handle, const void* buffer, int length) {
    if (handle == NO_HANDLE)
        return notSocket();
    ssize_t n;
    do {
        n = send(fd(handle), buffer, (size_t)length, MSG_NOSIGNAL);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        timeoutAsWinSock(fd(handle));
    return (int)n;
}

int recvBytes(Handle handle, void* buffer, int length) {
    if (handle == NO_HANDLE)
        return notSocket();
    ssize_t n;
    do {
        n = recv(fd(handle), buffer, (size_t)length, 0);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        timeoutAsWinSock(fd(handle));
    return (int)n;
}

int sendTo(Handle handle, const void* buffer, int length, const void* address, int addressLength) {
    if (handle == NO_HANDLE)
        return notSocket();
    ssize_t n;
    do {
        n = sendto(fd(handle), buffer, (size_t)length, MSG_NOSIGNAL, static_cast<const sockaddr*>(address),
                   (socklen_t)addressLength);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        timeoutAsWinSock(fd(handle));
    return (int)n;
}

int recvFrom(Handle handle, void* buffer, int length, void* address, int* addressLength) {
    if (handle == NO_HANDLE)
        return notSocket();
    socklen_t size = addressLength && *addressLength > 0 ? (socklen_t)*addressLength : 0;
    socklen_t got;
    ssize_t n;
    do {
        got = size;
        n = recvfrom(fd(handle), buffer, (size_t)length, 0, size ? static_cast<sockaddr*>(address) : nullptr,
                     size ? &got : nullptr);
    } while (n < 0 && errno == EINTR);
    if (n < 0)
        timeoutAsWinSock(fd(handle));
    else if (addressLength)
        *addressLength = (int)(got < size ? got : size);
    return (int)n;
}

int shutdownSocket(Handle handle, ShutdownHow how) {
    if (handle == NO_HANDLE)
        return notSocket();
    int mode = how == SHUTDOWN_RECEIVE ? SHUT_RD : how == SHUTDOWN_SEND ? SHUT_WR : SHUT_RDWR;
    return shutdown(fd(handle), mode);
}

int localAddress(Handle handle, void* address, int* length) {
    if (handle == NO_HANDLE)
        return notSocket();
    socklen_t size = (socklen_t)*length;
    if (getsockname(fd(handle), static_cast<sockaddr*>(address), &size) != 0)
        return -1;
    *length = (int)(size < (socklen_t)*length ? size : (socklen_t)*length);
    return 0;
}

int selectHandles(const Handle* handles, int count, bool* readable, bool* writable, long seconds,
                  long microseconds) {
    if (count < 0 || count > 64 || (!readable && !writable)) {
        errno = EINVAL;
        return -1;
    }
    pollfd fds[64];
    short events = (short)((readable ? POLLIN : 0) | (writable ? POLLOUT : 0));
    for (int i = 0; i < count; ++i) {
        if (handles[i] == NO_HANDLE)
            return notSocket();
        fds[i].fd = fd(handles[i]);
        fds[i].events = events;
        fds[i].revents = 0;
    }
    long long deadline = -1;
    int timeout = -1;
    if (seconds >= 0) {
        long long ms = (long long)seconds * 1000 + (microseconds + 999) / 1000;
        timeout = ms > INT_MAX ? INT_MAX : (int)ms;
        deadline = monotonicMs() + timeout;
    }
    int rc;
    for (;;) {
        rc = ::poll(fds, (nfds_t)count, timeout);
        if (rc >= 0 || errno != EINTR)
            break;
        if (deadline >= 0) {
            long long left = deadline - monotonicMs();
            timeout = left > 0 ? (int)left : 0;
        }
    }
    if (rc < 0)
        return -1;
    int ready = 0;
    for (int i = 0; i < count; ++i) {
        short r = fds[i].revents;
        if (r & POLLNVAL) {
            errno = EBADF;
            return -1;
        }
        bool canRead = (r & (POLLIN | POLLHUP | POLLERR)) != 0;
        bool canWrite = (r & (POLLOUT | POLLERR)) != 0;
        if (readable) {
            readable[i] = canRead;
            ready += canRead ? 1 : 0;
        }
        if (writable) {
            writable[i] = canWrite;
            ready += canWrite ? 1 : 0;
        }
    }
    return ready;
}

} // namespace detail
} // namespace net
