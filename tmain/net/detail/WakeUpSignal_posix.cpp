#include <tmain/net/Socket.h>
#include <tmain/net/detail/WakeUpSignal.h>
#include <tmain/stream/IOException.h>

#include <cerrno>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace net {
namespace detail {

namespace {
// The tags of the two watched descriptors in the epoll set.
const uint32_t TAG_SOCKET = 0, TAG_SIGNAL = 1;
} // namespace

WakeUpSignal::WakeUpSignal()
    : mHandle(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)), mPoll(-1), mWatched(-1), mWatchedEvents(0) {
    if (mHandle >= 0) {
        mPoll = ::epoll_create1(EPOLL_CLOEXEC);
        epoll_event event = {};
        event.events = EPOLLIN;
        event.data.u32 = TAG_SIGNAL;
        if (mPoll >= 0 && ::epoll_ctl(mPoll, EPOLL_CTL_ADD, mHandle, &event) == 0)
            return;
    }
    int error = errno;
    if (mPoll >= 0)
        ::close(mPoll);
    if (mHandle >= 0)
        ::close(mHandle);
    throw tarso::stream::IOException("Unable to create wake-up signal: %s",
                                     Socket::error2String(errorFromErrno(error)));
}

WakeUpSignal::~WakeUpSignal() {
    ::close(mPoll);
    ::close(mHandle);
}

void WakeUpSignal::raise() {
    uint64_t one = 1;
    // Only a counter at its maximum refuses the write, and it is raised then.
    while (::write(mHandle, &one, sizeof(one)) < 0 && errno == EINTR) {
    }
}

void WakeUpSignal::clear() {
    uint64_t value;
    while (::read(mHandle, &value, sizeof(value)) < 0 && errno == EINTR) {
    }
}

int WakeUpSignal::wait(Handle socket, bool forWrite, int timeoutMs) {
    // The socket stays in the epoll set from one wait to the next: a
    // connection waits on the same socket for every message, and keeping it
    // registered spares the kernel the setting up and tearing down of the
    // watch that poll() does on every call.
    int fd = socket == NO_HANDLE ? -1 : (int)socket;
    uint32_t events = forWrite ? EPOLLOUT : EPOLLIN;
    if (fd != mWatched || events != mWatchedEvents) {
        if (mWatched >= 0)
            ::epoll_ctl(mPoll, EPOLL_CTL_DEL, mWatched, nullptr);
        mWatched = -1;
        if (fd >= 0) {
            epoll_event event = {};
            event.events = events;
            event.data.u32 = TAG_SOCKET;
            if (::epoll_ctl(mPoll, EPOLL_CTL_ADD, fd, &event) < 0)
                return -1;
            mWatched = fd;
            mWatchedEvents = events;
        }
    }
    epoll_event ready[2];
    int rc;
    while ((rc = ::epoll_wait(mPoll, ready, 2, timeoutMs < 0 ? -1 : timeoutMs)) < 0 && errno == EINTR) {
    }
    if (rc < 0)
        return -1;
    int result = 0;
    for (int i = 0; i < rc; ++i)
        result |= ready[i].data.u32 == TAG_SIGNAL ? (int)RAISED : (int)SOCKET_READY;
    return result;
}

} // namespace detail
} // namespace net
