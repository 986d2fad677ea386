#include <tmain/net/Socket.h>
#include <tmain/net/detail/WakeUpSignal.h>
#include <tmain/stream/IOException.h>

#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace net {
namespace detail {

WakeUpSignal::WakeUpSignal() : mHandle(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (mHandle < 0)
        throw tarso::stream::IOException("Unable to create wake-up signal: %s",
                                         Socket::error2String(errorFromErrno(errno)));
}

WakeUpSignal::~WakeUpSignal() {
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
    pollfd fds[2];
    fds[0].fd = socket == NO_HANDLE ? -1 : (int)socket;
    fds[0].events = forWrite ? POLLOUT : POLLIN;
    fds[0].revents = 0;
    fds[1].fd = mHandle;
    fds[1].events = POLLIN;
    fds[1].revents = 0;
    int rc;
    while ((rc = ::poll(fds, 2, timeoutMs < 0 ? -1 : timeoutMs)) < 0 && errno == EINTR) {
    }
    if (rc < 0 || (fds[0].revents & POLLNVAL)) {
        if (rc >= 0)
            errno = EBADF;
        return -1;
    }
    return ((fds[0].revents & (fds[0].events | POLLHUP | POLLERR)) ? (int)SOCKET_READY : 0) |
           ((fds[1].revents & POLLIN) ? (int)RAISED : 0);
}

} // namespace detail
} // namespace net
