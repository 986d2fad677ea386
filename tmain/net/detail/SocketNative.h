#pragma once
/// The native socket primitives under the net classes: Socket.cpp and its
/// siblings hold the portable logic, Socket_posix.cpp and Socket_win32.cpp
/// each implement these functions with their system's calls. Handles are the
/// 32-bit values the classes store (a WinSock SOCKET, a POSIX descriptor);
/// NO_HANDLE is the invalid one. Errors are WinSock codes (the Socket::SOCK_*
/// values) on both systems: every function that fails leaves its code where
/// lastError() finds it, except resolve(), which returns it. A call on
/// NO_HANDLE fails with 10038 (SOCK_ENOTSOCK), as WinSock's on INVALID_SOCKET.

#include <string>
#include <tmain/Export.h>
#include <vector>

namespace net {
namespace detail {

typedef unsigned Handle;
const Handle NO_HANDLE = 0xFFFFFFFFu;

/// Size of the address buffers (a sockaddr_storage on both systems).
const int ADDRESS_CAPACITY = 128;

/// Socket types asked of the resolver: 0 (any), SOCK_STREAM, SOCK_DGRAM.
enum SocketKind { KIND_ANY = 0, KIND_STREAM = 1, KIND_DATAGRAM = 2 };

/// shutdown() directions: SD_RECEIVE/SHUT_RD, SD_SEND/SHUT_WR, SD_BOTH/SHUT_RDWR.
enum ShutdownHow { SHUTDOWN_RECEIVE = 0, SHUTDOWN_SEND = 1, SHUTDOWN_BOTH = 2 };

/// One result of the resolver: what socket() and connect()/bind() need.
struct AddressInfo {
    int family;
    int socketType;
    int protocol;
    int length;
    alignas(8) unsigned char address[ADDRESS_CAPACITY];
};

/// Win32: WSAStartup(MAKEWORD(2, 0)); returns 0 or its error code.
/// POSIX: nothing to start, returns 0.
int startup();

/// Win32: WSACleanup. POSIX: nothing.
void cleanup();

/// Win32: WSAGetLastError. POSIX: errno through errorFromErrno.
int lastError();

/// Win32: WSASetLastError(0). POSIX: errno = 0.
void clearLastError();

/// getaddrinfo(host, port in decimal, hints {AI_PASSIVE when passive,
/// AF_UNSPEC, kind}) with every result copied into out (in list order), then
/// freeaddrinfo. Returns 0 or the error code:
/// Win32: getaddrinfo's own return value (already a WinSock code).
/// POSIX: an empty host is a null one (Windows' "" means this machine: the
/// loopback, or the wildcard when passive); a port above 65535 fails as
/// EAI_SERVICE; the EAI_* codes become what WinSock uses for them:
/// EAI_NONAME 11001 (SOCK_HOST_NOT_FOUND), EAI_AGAIN 11002 (SOCK_TRY_AGAIN),
/// EAI_FAIL 11003 (SOCK_NO_RECOVERY), EAI_NODATA and EAI_ADDRFAMILY 11004
/// (SOCK_NO_DATA), EAI_FAMILY 10047 (SOCK_EAFNOSUPPORT), EAI_SOCKTYPE 10044
/// (SOCK_ESOCKTNOSUPPORT), EAI_BADFLAGS and EAI_SERVICE 10022 (SOCK_EINVAL),
/// EAI_MEMORY 10055 (SOCK_ENOBUFS), EAI_SYSTEM the mapped errno, any other
/// 11003.
int resolve(const char* host, unsigned port, bool passive, SocketKind kind, std::vector<AddressInfo>& out);

/// Win32 and POSIX: inet_ntop of an AF_INET or AF_INET6 address into a
/// 128-byte buffer; false for another family, a short length or a failure.
bool numericHost(const void* address, int length, std::string& out);

/// The family (sa_family) of an address, -1 when the length cannot hold one.
int addressFamily(const void* address, int length);

/// The port (host order) of an AF_INET or AF_INET6 address, 0 for others.
unsigned addressPort(const void* address, int length);

/// Win32: socket(family, type, protocol). POSIX: the same with SOCK_CLOEXEC.
Handle createSocket(int family, int type, int protocol);

/// Win32: closesocket. POSIX: close.
int closeSocket(Handle handle);

/// Win32: ioctlsocket(FIONBIO). POSIX: fcntl(F_SETFL) with or without O_NONBLOCK.
int setNonBlocking(Handle handle, bool on);

/// Win32: setsockopt(SOL_SOCKET, SO_RCVTIMEO) with a DWORD of milliseconds.
/// POSIX: the same option with a timeval. 0 means no limit on both.
int setReceiveTimeout(Handle handle, unsigned milliseconds);

/// Win32: setsockopt(SOL_SOCKET, SO_SNDTIMEO), as setReceiveTimeout.
int setSendTimeout(Handle handle, unsigned milliseconds);

/// Win32 and POSIX: setsockopt(IPPROTO_TCP, TCP_NODELAY) with an int 0 or 1.
int setNoDelay(Handle handle, bool on);

/// Win32 and POSIX: getsockopt(IPPROTO_TCP, TCP_NODELAY) into an int.
int getNoDelay(Handle handle, int& value);

/// Win32: getsockopt(SOL_SOCKET, SO_ERROR). POSIX: the same, the pending
/// errno mapped through errorFromErrno (0 stays 0).
int pendingError(Handle handle, int& error);

/// Win32 and POSIX: connect. A non-blocking connect under way fails with
/// 10035 on Windows and 10036 (EINPROGRESS) on POSIX.
int connectSocket(Handle handle, const void* address, int length);

/// Win32: bind. POSIX: SO_REUSEADDR first on a stream socket, so that a port
/// left in TIME_WAIT can be bound again as on Windows, then bind; a port
/// another socket listens on still fails with 10048.
int bindSocket(Handle handle, const void* address, int length);

/// Win32 and POSIX: listen.
int listenSocket(Handle handle, int backlog);

/// Win32: accept. POSIX: accept4(SOCK_CLOEXEC); a blocking socket waits again
/// when its receive timeout expires, since WinSock's accept ignores it.
/// *length is in-out as for accept.
Handle acceptSocket(Handle handle, void* address, int* length);

/// Win32: send(0). POSIX: send(MSG_NOSIGNAL) (a closed peer is an error, never
/// SIGPIPE). A send timeout expiring on a blocking socket fails with 10060 as
/// on Windows (POSIX reports EAGAIN); on a non-blocking socket EAGAIN is 10035.
/// POSIX retries a call interrupted by a signal.
int sendBytes(Handle handle, const void* buffer, int length);

/// Win32: recv(0). POSIX: recv, timeouts and signals as for sendBytes.
int recvBytes(Handle handle, void* buffer, int length);

/// Win32: sendto(0). POSIX: sendto(MSG_NOSIGNAL), as sendBytes.
int sendTo(Handle handle, const void* buffer, int length, const void* address, int addressLength);

/// Win32: recvfrom(0). POSIX: recvfrom, as recvBytes. *addressLength is in-out.
int recvFrom(Handle handle, void* buffer, int length, void* address, int* addressLength);

/// Win32 and POSIX: shutdown(how).
int shutdownSocket(Handle handle, ShutdownHow how);

/// Win32 and POSIX: getsockname. *length is in-out.
int localAddress(Handle handle, void* address, int* length);

/// Waits until handles are ready. Win32: select with one fd_set for reading
/// and/or one for writing (at most FD_SETSIZE = 64 handles, no duplicates),
/// the timeout as a timeval {seconds, microseconds}, a null timeval when
/// seconds < 0; then FD_ISSET per handle. POSIX: poll() with the same meaning,
/// so descriptors beyond FD_SETSIZE are safe: readable is POLLIN, POLLHUP or
/// POLLERR, writable POLLOUT or POLLERR, as select reports them; the timeout is
/// rounded up to whole milliseconds and an interrupted wait resumes with the
/// time left. readable/writable (either may be null when not wanted) receive
/// one flag per handle. Returns the number of ready (handle, direction) pairs,
/// 0 when the time ran out, -1 on failure.
int selectHandles(const Handle* handles, int count, bool* readable, bool* writable, long seconds,
                  long microseconds);

/// POSIX: the WinSock code of an errno value: EINTR 10004, EBADF 10009,
/// EACCES and EPERM 10013, EFAULT 10014, EINVAL 10022, EMFILE and ENFILE
/// 10024, EWOULDBLOCK/EAGAIN 10035, EINPROGRESS 10036, EALREADY 10037,
/// ENOTSOCK 10038, EDESTADDRREQ 10039, EMSGSIZE 10040, EPROTOTYPE 10041,
/// ENOPROTOOPT 10042, EPROTONOSUPPORT 10043, ESOCKTNOSUPPORT 10044, EOPNOTSUPP
/// 10045, EPFNOSUPPORT 10046, EAFNOSUPPORT 10047, EADDRINUSE 10048,
/// EADDRNOTAVAIL 10049, ENETDOWN 10050, ENETUNREACH 10051, ENETRESET 10052,
/// ECONNABORTED 10053, ECONNRESET and EPIPE 10054, ENOBUFS and ENOMEM 10055,
/// EISCONN 10056, ENOTCONN 10057, ESHUTDOWN 10058, ETOOMANYREFS 10059,
/// ETIMEDOUT 10060, ECONNREFUSED 10061, ELOOP 10062, ENAMETOOLONG 10063,
/// EHOSTDOWN 10064, EHOSTUNREACH 10065; 0 stays 0 and any other value is
/// passed on unchanged (below 10000, so it reads as "Unknown error").
/// Exported for the tests of the mapping.
TMAIN_API int errorFromErrno(int error);

} // namespace detail
} // namespace net
