#pragma once
#include <atomic>
#include <functional>
#include <tmain/Export.h>
#include <tmain/net/SocketAddress.h>
#include <tmain/net/TransportProtocol.h>

namespace net {

class SocketInputStream;
class SocketOutputStream;

/// Base of the socket family: one native handle with its protocol, timeouts,
/// blocking mode, TCP no-delay setting and last error (a WinSock code, also on
/// POSIX). A socket is used by one thread at a time; only the instance count
/// is shared. Failures throw tarso::stream::IOException,
/// tarso::stream::TimeoutException or net::SocketClosedException.
class TMAIN_API Socket {
public:
    /// What a failure was doing, for throwException.
    enum Operation { OP_READ = 0, OP_WRITE = 1, OP_OTHER = 2 };

    static const unsigned DEFAULT_CONNECT_TIMEOUT = 2000;
    static const unsigned DEFAULT_READ_TIMEOUT = 1000;
    static const unsigned DEFAULT_WRITE_TIMEOUT = 1000;

    static const int SOCK_ERROR = -1;
    static const int SOCK_SHUT_RD = 0;
    static const int SOCK_SHUT_WR = 1;
    static const int SOCK_SHUT_RDWR = 2;

    static const int SOCK_EINTR = 10004;
    static const int SOCK_EBADF = 10009;
    static const int SOCK_EACCES = 10013;
    static const int SOCK_EFAULT = 10014;
    static const int SOCK_EINVAL = 10022;
    static const int SOCK_EMFILE = 10024;
    static const int SOCK_EWOULDBLOCK = 10035;
    static const int SOCK_EINPROGRESS = 10036;
    static const int SOCK_EALREADY = 10037;
    static const int SOCK_ENOTSOCK = 10038;
    static const int SOCK_EDESTADDRREQ = 10039;
    static const int SOCK_EMSGSIZE = 10040;
    static const int SOCK_EPROTOTYPE = 10041;
    static const int SOCK_ENOPROTOOPT = 10042;
    static const int SOCK_EPROTONOSUPPORT = 10043;
    static const int SOCK_ESOCKTNOSUPPORT = 10044;
    static const int SOCK_EOPNOTSUPP = 10045;
    static const int SOCK_EPFNOSUPPORT = 10046;
    static const int SOCK_EAFNOSUPPORT = 10047;
    static const int SOCK_EADDRINUSE = 10048;
    static const int SOCK_EADDRNOTAVAIL = 10049;
    static const int SOCK_ENETDOWN = 10050;
    static const int SOCK_ENETUNREACH = 10051;
    static const int SOCK_ENETRESET = 10052;
    static const int SOCK_ECONNABORTED = 10053;
    static const int SOCK_ECONNRESET = 10054;
    static const int SOCK_ENOBUFS = 10055;
    static const int SOCK_EISCONN = 10056;
    static const int SOCK_ENOTCONN = 10057;
    static const int SOCK_ESHUTDOWN = 10058;
    static const int SOCK_ETOOMANYREFS = 10059;
    static const int SOCK_ETIMEDOUT = 10060;
    static const int SOCK_ECONNREFUSED = 10061;
    static const int SOCK_ELOOP = 10062;
    static const int SOCK_ENAMETOOLONG = 10063;
    static const int SOCK_EHOSTDOWN = 10064;
    static const int SOCK_EHOSTUNREACH = 10065;
    static const int SOCK_WSASYSNOTREADY = 10091;
    static const int SOCK_WSAVERNOTSUPPORTED = 10092;
    static const int SOCK_WSANOTINITIALISED = 10093;
    static const int SOCK_HOST_NOT_FOUND = 11001;
    static const int SOCK_TRY_AGAIN = 11002;
    static const int SOCK_NO_RECOVERY = 11003;
    static const int SOCK_NO_DATA = 11004;

    /// The handle value of a socket without one (all bits set).
    static const unsigned INVALID_HANDLE = 0xFFFFFFFFu;
    /// The static polls look at no more than this many sockets.
    static const int MAX_POLL_SOCKETS = 64;

    /// Live sockets. The first socket made starts the socket library, the last
    /// one destroyed cleans it up; sockets may be made and destroyed on any
    /// threads.
    static std::atomic<int> INSTANCES;

    /// Disconnects (without draining) and closes the handle.
    virtual ~Socket();
    Socket(const Socket&) = delete;
    Socket& operator=(const Socket&) = delete;

    unsigned getConnectTimeout() const { return mConnectTimeout; }
    unsigned getReadTimeout() const { return mReadTimeout; }
    unsigned getWriteTimeout() const { return mWriteTimeout; }
    /// Stored only; used by the next connect.
    void setConnectTimeout(unsigned milliseconds) { mConnectTimeout = milliseconds; }
    /// Stores and, with a handle, sets the receive-timeout option.
    void setReadTimeout(unsigned milliseconds);
    /// Stores and, with a handle, sets the send-timeout option.
    void setWriteTimeout(unsigned milliseconds);
    void setTimeout(unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout);
    /// Sets the receive and send timeout options of the handle again.
    void applyTimeout();

    /// A valid handle and the connected flag.
    bool isConnected() const { return mSocket != INVALID_HANDLE && mConnected; }
    bool isNonBlocking() const { return mNonBlocking; }
    /// When the mode changes: stores it and switches the handle. Always true.
    bool setNonBlocking(bool nonBlocking);
    /// Puts the handle in the stored mode.
    void applyNonBlocking();

    /// Without a handle or on UDP: the stored flag. Otherwise the option's
    /// state on the handle (false when it cannot be read).
    bool getTCPNoDelay() const;
    /// With a TCP handle sets the option; the stored flag then changes only
    /// when setting the option failed (a deliberate quirk: a successful call
    /// leaves the old stored value). Without a handle or on UDP stores it.
    void setTCPNoDelay(bool on);

    /// The last error (a SOCK_* code), 0 when none.
    int getError() const { return mLastError; }
    /// Clears the last error, also the thread's native one.
    void clearError();
    unsigned getNativeSocket() const { return mSocket; }
    TransportProtocol getProtocol() const { return mProtocol; }
    /// Always 2048; kept for callers that size their buffers by it.
    int getBufferSize() const { return mBufferSize; }
    /// The peer of a connected or accepted socket (the address connected to).
    const SocketAddress& getPeerAddress() const { return mPeer; }
    /// The port the handle is bound to, 0 without a handle.
    unsigned getLocalPort() const;

    /// Waits until the socket can be read; -1 waits for the read timeout.
    /// False on a timeout or a failure (the failure is the last error).
    bool pollReadable(int timeoutMs) const;
    /// Waits until the socket can be written; -1 waits for the read timeout
    /// (on purpose, not the write timeout) when the write timeout is not 0,
    /// and not at all when it is 0.
    bool pollWritable(int timeoutMs) const;

    /// Waits for any of the first MAX_POLL_SOCKETS sockets (null ones, those
    /// without a handle and repeated handles are skipped) to become readable;
    /// a negative timeout waits without limit. The ready ones go, in input
    /// order, into `ready` (when not null) and, when `flags` is given, each
    /// input position gets its flag. Returns the number listed, 0 on a timeout
    /// or a failure.
    static int pollReadable(int count, Socket* const* sockets, Socket** ready, bool* flags, int timeoutMs);
    /// As pollReadable, for writing.
    static int pollWritable(int count, Socket* const* sockets, Socket** ready, bool* flags, int timeoutMs);
    /// Both waits at once over the same sockets; returns bit 0 set when any
    /// socket is readable and bit 1 when any is writable.
    static int poll(int count, Socket* const* sockets, int& nReadable, Socket** readable, bool* readFlags,
                    int& nWritable, Socket** writable, bool* writeFlags, int timeoutMs);

    /// Shuts the sending direction down and closes the handle. With drain,
    /// what the peer already sent (readable within 10 ms) is read and dropped
    /// first, so the close does not reset the connection.
    void disconnect(bool drain);

    /// The text of a SOCK_* code; "Unknown error" for any other code and 0.
    static const char* error2String(int code);

protected:
    /// A socket without a handle yet.
    Socket(TransportProtocol protocol, unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout,
           bool nonBlocking, bool tcpNoDelay);
    /// Wraps an accepted handle; connected when the handle is valid.
    Socket(TransportProtocol protocol, unsigned handle, const SocketAddress& peer, unsigned connectTimeout,
           unsigned readTimeout, unsigned writeTimeout, bool nonBlocking, bool tcpNoDelay);

    /// Takes the native error of the failed call: would-block and interrupted
    /// on a non-blocking socket become 0 ("nothing done"), anything else is
    /// stored. Returns the stored value.
    int updateError() const;

    /// One recv: the count (> 0), 0 when a non-blocking socket has nothing.
    /// A TCP peer that closed throws SocketClosedException and clears the
    /// connected flag.
    int read(void* buffer, int length);
    /// One send: the count, 0 when a non-blocking socket cannot take any.
    int write(const void* buffer, int length);
    /// Reads exactly length bytes, waiting up to max(retries, 1) read
    /// timeouts whenever a non-blocking read finds nothing.
    void readAll(void* buffer, int length, unsigned retries);
    /// Writes exactly length bytes, as readAll.
    void writeAll(const void* buffer, int length, unsigned retries);
    /// The loop of every readAll/writeAll: `step(done)` moves bytes from
    /// offset `done` on (0 when it would block); after max(retries, 1) failed
    /// waits for readiness throws IOException `failure` with missingCount.
    void transferAll(int length, unsigned retries, bool forWrite, const std::function<int(int done)>& step,
                     const char* failure);
    /// Resolves the address passively for a stream (or datagram) socket and
    /// binds the first result that binds, which then counts as connected;
    /// `resolveFailure` (host, port) is thrown when resolution fails. False
    /// when no result could be bound. `bound`, when given, receives the local
    /// address.
    bool bindPassive(const SocketAddress& address, bool datagram, const char* resolveFailure,
                     SocketAddress* bound);

    /// Throws for the socket's last error (nothing when it is 0).
    static void throwException(Socket* socket, Operation op);
    /// Applies timeouts, blocking mode and (on TCP) the no-delay flag to a new
    /// handle.
    void connectedCB();
    /// Closes the handle without shutting down; clears the connected flag.
    void closeHandle();

    /// A pair for select: whole seconds and microseconds.
    struct TimeSplit {
        long sec;
        long usec;
    };
    static TimeSplit split(unsigned milliseconds);
    bool waitOne(bool forWrite, TimeSplit timeout) const;
    /// The number readAll/writeAll report when they give up: the bytes still
    /// missing minus those already moved (deliberately that difference).
    static int missingCount(int length, int done) { return (length - done) - done; }

    unsigned mSocket;
    TransportProtocol mProtocol;
    bool mConnected;
    bool mNonBlocking;
    unsigned mConnectTimeout;
    unsigned mReadTimeout;
    unsigned mWriteTimeout;
    TimeSplit mReadTimeVal;
    TimeSplit mWriteTimeVal;
    int mBufferSize;
    mutable int mLastError;
    bool mTCPNoDelay;
    SocketAddress mPeer;

private:
    friend class SocketInputStream;
    friend class SocketOutputStream;

    static void countIn();
    static void countOut();
    static int pollMany(int count, Socket* const* sockets, bool wantRead, bool wantWrite, Socket** readable,
                        bool* readFlags, int* nReadable, Socket** writable, bool* writeFlags, int* nWritable,
                        int timeoutMs);
};

} // namespace net
