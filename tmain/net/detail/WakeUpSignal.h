#pragma once
/// A flag one thread raises to wake another that waits on a socket: the
/// WebSocket connection threads wait on their socket and this signal at once,
/// so a message posted from any thread, or a stop request, ends the wait at
/// once. WakeUpSignal_posix.cpp implements it with an eventfd and an epoll set
/// that keeps the socket of the previous wait registered; WakeUpSignal_win32.cpp
/// with a loopback UDP socket that select() watches next to the socket.

#include <tmain/net/detail/SocketNative.h>

namespace net {
namespace detail {

class WakeUpSignal {
public:
    /// What wait() saw: the socket ready, the signal raised, or both.
    enum { SOCKET_READY = 1, RAISED = 2 };

    /// Throws tarso::stream::IOException "Unable to create wake-up signal: %s".
    WakeUpSignal();
    ~WakeUpSignal();
    WakeUpSignal(const WakeUpSignal&) = delete;
    WakeUpSignal& operator=(const WakeUpSignal&) = delete;

    /// Raises the signal; any thread, any number of times before a clear.
    void raise();
    /// Lowers the signal (the waiting thread, after wait() reported RAISED).
    void clear();
    /// Waits until the socket is readable (writable with forWrite), the peer
    /// hung up or failed, or the signal is raised; a negative timeout waits
    /// without limit. Returns the SOCKET_READY/RAISED bits, 0 when the time
    /// ran out, -1 on a failure (its SOCK_* code in lastError()). The socket
    /// must stay open while it is the one waited on: a descriptor closed and
    /// reused under the same number is not noticed.
    int wait(Handle socket, bool forWrite, int timeoutMs);

private:
    int mHandle;             // the eventfd; Win32: the loopback socket
    int mPoll;               // the epoll set; Win32: unused
    int mWatched;            // the socket in the epoll set; Win32: unused
    unsigned mWatchedEvents; // its events; Win32: unused
};

} // namespace detail
} // namespace net
