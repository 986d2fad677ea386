#include <tmain/net/Socket.h>
#include <tmain/net/detail/WakeUpSignal.h>
#include <tmain/stream/IOException.h>

// winsock2.h comes before everything else of the system.
#include <winsock2.h>

#include <windows.h>
#include <ws2tcpip.h>

namespace net {
namespace detail {

// The signal is a UDP socket on the loopback connected to itself: raise()
// sends it a byte, clear() reads back what came, and wait() selects on it
// together with the socket. Unlike an event object it is level-triggered like
// the socket, and it leaves the socket's blocking mode alone (WSAEventSelect
// would force it non-blocking for good).

namespace {

SOCKET sock(int handle) {
    return handle < 0 ? INVALID_SOCKET : (SOCKET)(unsigned)handle;
}

/// The loopback socket connected to itself, or NO_HANDLE (the WinSock error
/// in lastError()).
Handle openLoopback() {
    Handle handle = createSocket(AF_INET, SOCK_DGRAM, IPPROTO_UDP);
    if (handle == NO_HANDLE)
        return NO_HANDLE;
    sockaddr_in address = {};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    int length = sizeof(address);
    if (bindSocket(handle, &address, length) == 0 && localAddress(handle, &address, &length) == 0 &&
        connectSocket(handle, &address, length) == 0 && setNonBlocking(handle, true) == 0 &&
        handle < 0x7FFFFFFFu)
        return handle;
    int error = lastError();
    closeSocket(handle);
    WSASetLastError(error ? error : WSAEMFILE);
    return NO_HANDLE;
}

} // namespace

WakeUpSignal::WakeUpSignal() : mHandle(-1), mPoll(-1), mWatched(-1), mWatchedEvents(0) {
    // WinSock counts its start-ups: the signal holds one of its own, since it
    // may come before the first socket and outlive the last.
    int error = startup();
    if (error == 0) {
        Handle handle = openLoopback();
        if (handle != NO_HANDLE) {
            mHandle = (int)handle;
            return;
        }
        error = lastError();
        cleanup();
    }
    throw tarso::stream::IOException("Unable to create wake-up signal: %s", Socket::error2String(error));
}

WakeUpSignal::~WakeUpSignal() {
    closesocket(sock(mHandle));
    cleanup();
}

void WakeUpSignal::raise() {
    // A full receive queue refuses the byte, and the signal is raised then.
    char one = 1;
    send(sock(mHandle), &one, 1, 0);
}

void WakeUpSignal::clear() {
    char bytes[64];
    while (recv(sock(mHandle), bytes, sizeof(bytes), 0) > 0) {
    }
}

int WakeUpSignal::wait(Handle socket, bool forWrite, int timeoutMs) {
    SOCKET signal = sock(mHandle);
    SOCKET watched = socket == NO_HANDLE ? INVALID_SOCKET : (SOCKET)socket;
    fd_set readSet, writeSet, failSet;
    FD_ZERO(&readSet);
    FD_ZERO(&writeSet);
    FD_ZERO(&failSet);
    FD_SET(signal, &readSet);
    if (watched != INVALID_SOCKET) {
        // A reset or a failed connect shows in the exception set only.
        FD_SET(watched, forWrite ? &writeSet : &readSet);
        FD_SET(watched, &failSet);
    }
    timeval limit;
    limit.tv_sec = timeoutMs / 1000;
    limit.tv_usec = (timeoutMs % 1000) * 1000;
    int rc = select(0, &readSet, &writeSet, &failSet, timeoutMs < 0 ? nullptr : &limit);
    if (rc < 0)
        return -1;
    int result = FD_ISSET(signal, &readSet) ? (int)RAISED : 0;
    if (watched != INVALID_SOCKET &&
        (FD_ISSET(watched, &failSet) || FD_ISSET(watched, forWrite ? &writeSet : &readSet)))
        result |= SOCKET_READY;
    return result;
}

} // namespace detail
} // namespace net
