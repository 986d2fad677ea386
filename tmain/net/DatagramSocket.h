#pragma once
#include <tmain/net/Socket.h>

namespace net {

/// A UDP socket. The handle is made by bind() or by the first write; reads
/// report the sender, writes name the receiver.
class TMAIN_API DatagramSocket : public Socket {
public:
    DatagramSocket(unsigned connectTimeout = 2000, unsigned readTimeout = 2000, unsigned writeTimeout = 2000,
                   bool nonBlocking = false);

    /// Binds to the first address the host resolves to (passive: a null or
    /// empty host is every interface) that can be bound; returns normally,
    /// without a handle, when none can. Throws tarso::stream::IOException
    /// "Socket already bound" when bound, and
    /// "DatagramSocket::bind:unable to resolve address %s:%d".
    void bind(const SocketAddress& address);
    void bind(const char* host, int port);

    /// Receives one datagram (up to length bytes; the rest of a longer one is
    /// lost). `from` receives the sender (numeric host, port, address). Returns
    /// the count, 0 when a non-blocking socket has nothing. A timeout throws
    /// tarso::stream::TimeoutException "Socket read timeout (>%dms)".
    int read(void* buffer, int length, SocketAddress& from);
    /// Sends one datagram to `to` (resolved first when needed); returns the
    /// count, 0 when a non-blocking socket cannot take it.
    int write(const void* buffer, int length, const SocketAddress& to);
    /// Reads exactly length bytes from as many datagrams as it takes, waiting
    /// up to max(retries, 1) read timeouts whenever a non-blocking read finds
    /// nothing.
    void readAll(void* buffer, int length, SocketAddress& from, unsigned retries);
    /// Writes exactly length bytes, as readAll.
    void writeAll(const void* buffer, int length, const SocketAddress& to, unsigned retries);

protected:
    /// Makes the handle on first use, of the family the address resolves to.
    void ensureSocket(SocketAddress& address);

private:
    void resolveOrThrow(const SocketAddress& address, const char* who);
};

} // namespace net
