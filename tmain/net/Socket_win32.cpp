#include <tmain/net/Socket.h>
#include <tmain/net/detail/SocketNative.h>

#include <cstdio>
#include <cstring>
// winsock2.h comes before everything else of the system.
#include <winsock2.h>

#include <mswsock.h>
#include <windows.h>
#include <ws2tcpip.h>

namespace net {
namespace detail {

namespace {

SOCKET sock(Handle handle) {
    return handle == NO_HANDLE ? INVALID_SOCKET : (SOCKET)handle;
}

/// Takes over a new socket: it must fit the 32-bit handle the classes keep,
/// and it is not inherited by child processes (as SOCK_CLOEXEC on POSIX), so
/// that a process started meanwhile cannot keep a connection open.
Handle adopt(SOCKET s) {
    if (s == INVALID_SOCKET)
        return NO_HANDLE;
    if ((unsigned long long)s >= (unsigned long long)NO_HANDLE) {
        closesocket(s);
        WSASetLastError(WSAEMFILE);
        return NO_HANDLE;
    }
    SetHandleInformation((HANDLE)s, HANDLE_FLAG_INHERIT, 0);
    return (Handle)s;
}

int setTimeoutOption(Handle handle, int option, unsigned milliseconds) {
    DWORD value = milliseconds;
    return setsockopt(sock(handle), SOL_SOCKET, option, reinterpret_cast<const char*>(&value), sizeof(value));
}

} // namespace

int startup() {
    WSADATA data;
    return WSAStartup(MAKEWORD(2, 0), &data);
}

void cleanup() {
    WSACleanup();
}

int lastError() {
    return WSAGetLastError();
}

void clearLastError() {
    WSASetLastError(0);
}

int resolve(const char* host, unsigned port, bool passive, SocketKind kind, std::vector<AddressInfo>& out) {
    out.clear();
    // getaddrinfo would report a service it cannot find; an out-of-range
    // number is a bad argument, as on the other systems.
    if (port > 65535)
        return WSAEINVAL;
    char service[16];
    snprintf(service, sizeof(service), "%u", port);
    addrinfo hints;
    memset(&hints, 0, sizeof(hints));
    hints.ai_family = AF_UNSPEC;
    hints.ai_flags = passive ? AI_PASSIVE : 0;
    hints.ai_socktype = kind == KIND_STREAM ? SOCK_STREAM : kind == KIND_DATAGRAM ? SOCK_DGRAM : 0;
    addrinfo* list = nullptr;
    // An empty host is no host: the wildcard when passive, the loopback
    // otherwise (WinSock's "" would list every address of this machine).
    int rc = getaddrinfo(host && *host ? host : nullptr, service, &hints, &list);
    if (rc != 0)
        return rc;
    for (addrinfo* p = list; p; p = p->ai_next) {
        if (!p->ai_addr || p->ai_addrlen == 0 || p->ai_addrlen > (size_t)ADDRESS_CAPACITY)
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
    if (!address || length < (int)sizeof(ADDRESS_FAMILY))
        return false;
    char text[128];
    const sockaddr* sa = static_cast<const sockaddr*>(address);
    const char* done = nullptr;
    // inet_ntop takes a non-const address in older WinSock headers.
    if (sa->sa_family == AF_INET && length >= (int)sizeof(sockaddr_in)) {
        in_addr a = static_cast<const sockaddr_in*>(address)->sin_addr;
        done = inet_ntop(AF_INET, &a, text, sizeof(text));
    } else if (sa->sa_family == AF_INET6 && length >= (int)sizeof(sockaddr_in6)) {
        in6_addr a = static_cast<const sockaddr_in6*>(address)->sin6_addr;
        done = inet_ntop(AF_INET6, &a, text, sizeof(text));
    }
    if (!done)
        return false;
    out = text;
    return true;
}

int addressFamily(const void* address, int length) {
    if (!address || length < (int)sizeof(ADDRESS_FAMILY))
        return -1;
    return static_cast<const sockaddr*>(address)->sa_family;
}

unsigned addressPort(const void* address, int length) {
    if (!address || length < (int)sizeof(ADDRESS_FAMILY))
        return 0;
    const sockaddr* sa = static_cast<const sockaddr*>(address);
    if (sa->sa_family == AF_INET && length >= (int)sizeof(sockaddr_in))
        return ntohs(static_cast<const sockaddr_in*>(address)->sin_port);
    if (sa->sa_family == AF_INET6 && length >= (int)sizeof(sockaddr_in6))
        return ntohs(static_cast<const sockaddr_in6*>(address)->sin6_port);
    return 0;
}

Handle createSocket(int family, int type, int protocol) {
    Handle handle = adopt(socket(family, type, protocol));
    if (handle != NO_HANDLE && family == AF_INET6) {
        // Dual-stack as elsewhere: the IPv6 wildcard also takes IPv4, so it
        // cannot be bound beside an IPv4 wildcard on the same port.
        DWORD v6only = 0;
        setsockopt((SOCKET)handle, IPPROTO_IPV6, IPV6_V6ONLY, reinterpret_cast<const char*>(&v6only),
                   sizeof(v6only));
    }
    if (handle != NO_HANDLE && type == SOCK_DGRAM) {
        // A datagram answered by an ICMP "port unreachable" would make the
        // next recvfrom fail with WSAECONNRESET; the other systems ignore
        // that message on an unconnected socket, and so does this one.
        BOOL report = FALSE;
        DWORD returned = 0;
        WSAIoctl((SOCKET)handle, SIO_UDP_CONNRESET, &report, sizeof(report), nullptr, 0, &returned, nullptr,
                 nullptr);
        WSASetLastError(0);
    }
    return handle;
}

int closeSocket(Handle handle) {
    return closesocket(sock(handle));
}

int setNonBlocking(Handle handle, bool on) {
    u_long mode = on ? 1 : 0;
    return ioctlsocket(sock(handle), FIONBIO, &mode);
}

int setReceiveTimeout(Handle handle, unsigned milliseconds) {
    return setTimeoutOption(handle, SO_RCVTIMEO, milliseconds);
}

int setSendTimeout(Handle handle, unsigned milliseconds) {
    return setTimeoutOption(handle, SO_SNDTIMEO, milliseconds);
}

int setNoDelay(Handle handle, bool on) {
    int value = on ? 1 : 0;
    return setsockopt(sock(handle), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<const char*>(&value),
                      sizeof(value));
}

int getNoDelay(Handle handle, int& value) {
    int length = sizeof(value);
    value = 0;
    return getsockopt(sock(handle), IPPROTO_TCP, TCP_NODELAY, reinterpret_cast<char*>(&value), &length);
}

int pendingError(Handle handle, int& error) {
    int value = 0;
    int length = sizeof(value);
    if (getsockopt(sock(handle), SOL_SOCKET, SO_ERROR, reinterpret_cast<char*>(&value), &length) != 0)
        return -1;
    error = value;
    return 0;
}

int connectSocket(Handle handle, const void* address, int length) {
    return connect(sock(handle), static_cast<const sockaddr*>(address), length);
}

int bindSocket(Handle handle, const void* address, int length) {
    return bind(sock(handle), static_cast<const sockaddr*>(address), length);
}

int listenSocket(Handle handle, int backlog) {
    return listen(sock(handle), backlog);
}

Handle acceptSocket(Handle handle, void* address, int* length) {
    int size = length && *length > 0 ? *length : 0;
    int got = size;
    Handle accepted =
        adopt(accept(sock(handle), size ? static_cast<sockaddr*>(address) : nullptr, size ? &got : nullptr));
    if (accepted != NO_HANDLE && length)
        *length = got < size ? got : size;
    return accepted;
}

int sendBytes(Handle handle, const void* buffer, int length) {
    return send(sock(handle), static_cast<const char*>(buffer), length, 0);
}

int recvBytes(Handle handle, void* buffer, int length) {
    return recv(sock(handle), static_cast<char*>(buffer), length, 0);
}

int sendTo(Handle handle, const void* buffer, int length, const void* address, int addressLength) {
    return sendto(sock(handle), static_cast<const char*>(buffer), length, 0,
                  static_cast<const sockaddr*>(address), addressLength);
}

int recvFrom(Handle handle, void* buffer, int length, void* address, int* addressLength) {
    int size = addressLength && *addressLength > 0 ? *addressLength : 0;
    int got = size;
    int n = recvfrom(sock(handle), static_cast<char*>(buffer), length, 0,
                     size ? static_cast<sockaddr*>(address) : nullptr, size ? &got : nullptr);
    if (n >= 0 && addressLength)
        *addressLength = got < size ? got : size;
    return n;
}

int shutdownSocket(Handle handle, ShutdownHow how) {
    int mode = how == SHUTDOWN_RECEIVE ? SD_RECEIVE : how == SHUTDOWN_SEND ? SD_SEND : SD_BOTH;
    return shutdown(sock(handle), mode);
}

int localAddress(Handle handle, void* address, int* length) {
    int size = *length;
    if (getsockname(sock(handle), static_cast<sockaddr*>(address), &size) != 0)
        return -1;
    *length = size < *length ? size : *length;
    return 0;
}

int selectHandles(const Handle* handles, int count, bool* readable, bool* writable, long seconds,
                  long microseconds) {
    if (count < 0 || count > FD_SETSIZE || (!readable && !writable)) {
        WSASetLastError(WSAEINVAL);
        return -1;
    }
    // A failed connect shows in the exception set, not the write set: it
    // counts as ready both ways, as an error condition does elsewhere.
    fd_set readSet, writeSet, failSet;
    FD_ZERO(&readSet);
    FD_ZERO(&writeSet);
    FD_ZERO(&failSet);
    for (int i = 0; i < count; ++i) {
        if (handles[i] == NO_HANDLE) {
            WSASetLastError(WSAENOTSOCK);
            return -1;
        }
        if (readable)
            FD_SET(sock(handles[i]), &readSet);
        if (writable)
            FD_SET(sock(handles[i]), &writeSet);
        FD_SET(sock(handles[i]), &failSet);
    }
    timeval limit;
    limit.tv_sec = seconds;
    limit.tv_usec = microseconds;
    int rc = select(0, readable ? &readSet : nullptr, writable ? &writeSet : nullptr, &failSet,
                    seconds < 0 ? nullptr : &limit);
    if (rc < 0)
        return -1;
    int ready = 0;
    for (int i = 0; i < count; ++i) {
        SOCKET s = sock(handles[i]);
        bool failed = FD_ISSET(s, &failSet) != 0;
        if (readable) {
            readable[i] = failed || FD_ISSET(s, &readSet);
            ready += readable[i] ? 1 : 0;
        }
        if (writable) {
            writable[i] = failed || FD_ISSET(s, &writeSet);
            ready += writable[i] ? 1 : 0;
        }
    }
    return ready;
}

} // namespace detail
} // namespace net
