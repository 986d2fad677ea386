#pragma once
#include <tmain/net/Socket.h>

namespace net {

class SocketInputStream;
class SocketOutputStream;
class ServerSocket;

/// A TCP socket with stream adapters for reading and writing it through the
/// stream contract. Accepted connections are plain StreamSockets.
class TMAIN_API StreamSocket : public Socket {
public:
    ~StreamSocket() override;

    /// The socket's input adapter, made on first use; the socket owns it.
    SocketInputStream* getInputStream();
    /// The socket's output adapter, made on first use; the socket owns it.
    /// Asking again resets the adapter (reopened, position 0).
    SocketOutputStream* getOutputStream();

protected:
    StreamSocket(unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout, bool nonBlocking,
                 bool tcpNoDelay);
    /// Wraps an accepted handle.
    StreamSocket(unsigned handle, const SocketAddress& peer, TransportProtocol protocol,
                 unsigned connectTimeout, unsigned readTimeout, unsigned writeTimeout, bool nonBlocking,
                 bool tcpNoDelay);

    /// Connects to the address with the connect timeout: every address the
    /// resolver gives is tried in turn with a non-blocking connect and a
    /// writable wait. On success the address holds the one connected to and
    /// the socket is in the mode `nonBlocking` asks for. A connect that did
    /// not complete in time, or was refused after the wait, throws
    /// tarso::stream::TimeoutException; one that failed at once, or a name
    /// that did not resolve, tarso::stream::IOException. Does nothing when
    /// already connected.
    void connect(SocketAddress& address, bool nonBlocking);

private:
    friend class ServerSocket;

    /// 0 connected, 1 timed out or refused after the wait, 2 failed at once.
    int tryConnect(const void* address, int length, int family, int type, int protocol);

    SocketInputStream* mInput;
    SocketOutputStream* mOutput;
};

} // namespace net
