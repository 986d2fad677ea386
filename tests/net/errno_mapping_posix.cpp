#include "NetTestSupport.h"
#include <cerrno>
#include <tmain/net/detail/SocketNative.h>

TEST(Sockets, ErrnoValuesBecomeWinSockCodes) {
    // clang-format off
    const int errnos[] = {EINTR, EBADF, EACCES, EPERM, EFAULT, EINVAL, EMFILE, ENFILE, EWOULDBLOCK, EAGAIN,
        EINPROGRESS, EALREADY, ENOTSOCK, EDESTADDRREQ, EMSGSIZE, EPROTOTYPE, ENOPROTOOPT, EPROTONOSUPPORT,
        ESOCKTNOSUPPORT, EOPNOTSUPP, EPFNOSUPPORT, EAFNOSUPPORT, EADDRINUSE, EADDRNOTAVAIL, ENETDOWN,
        ENETUNREACH, ENETRESET, ECONNABORTED, ECONNRESET, EPIPE, ENOBUFS, ENOMEM, EISCONN, ENOTCONN, ESHUTDOWN,
        ETOOMANYREFS, ETIMEDOUT, ECONNREFUSED, ELOOP, ENAMETOOLONG, EHOSTDOWN, EHOSTUNREACH, 0, ENOENT};
    const int codes[] = {10004, 10009, 10013, 10013, 10014, 10022, 10024, 10024, 10035, 10035,
        10036, 10037, 10038, 10039, 10040, 10041, 10042, 10043,
        10044, 10045, 10046, 10047, 10048, 10049, 10050,
        10051, 10052, 10053, 10054, 10054, 10055, 10055, 10056, 10057, 10058,
        10059, 10060, 10061, 10062, 10063, 10064, 10065, 0, ENOENT};
    // clang-format on
    static_assert(sizeof(errnos) == sizeof(codes), "one code per errno");
    for (size_t i = 0; i < sizeof(errnos) / sizeof(errnos[0]); ++i)
        EXPECT_EQ(codes[i], net::detail::errorFromErrno(errnos[i])) << "errno " << errnos[i];
}
