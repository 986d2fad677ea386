#pragma once
#include <tmain/stream/InputStream.h>

namespace net {

class StreamSocket;

/// Reads a StreamSocket through the stream contract. Made and owned by the
/// socket (StreamSocket::getInputStream). Each read is one receive: it returns
/// what has arrived, at most the size asked for.
class TMAIN_API SocketInputStream : public tarso::stream::InputStream {
public:
    explicit SocketInputStream(StreamSocket* socket);
    ~SocketInputStream() override;
    SocketInputStream(const SocketInputStream&) = delete;
    SocketInputStream& operator=(const SocketInputStream&) = delete;

    /// Reopens a closed adapter of a connected socket (position 0); otherwise
    /// does nothing.
    void open(EOpenMode mode) override;
    /// Marks the adapter closed; the socket stays connected.
    void close() override;
    /// Open and the socket connected (or UDP).
    bool isOpen() const override;
    /// The bytes received so far.
    unsigned tell() const override { return mPosition; }
    /// No socket, or the socket's last error is not 0.
    bool hasError() const override;

    /// 1 when something can be read at once (or the peer closed), else 0.
    unsigned available() const override;
    using InputStream::read;
    /// One receive of up to size*count bytes; returns the count, 0 when a
    /// non-blocking socket has nothing. Throws core::IllegalStateException
    /// "Stream no yet opened" when not open, net::SocketClosedException when
    /// the peer closed, tarso::stream::TimeoutException "Socket read timeout
    /// (>%dms)" when the read timeout expires.
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Throws core::UnsupportedOperationException "SocketInputStream::readLine".
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    /// True once the socket is no longer connected (the peer closed or it was
    /// disconnected).
    bool eof() const override;
    /// Throws core::UnsupportedOperationException "SocketInputStream::getSTLStream".
    std::istream* getSTLStream() override;

    StreamSocket* getSocket() const { return mSocket; }

private:
    StreamSocket* mSocket;
    bool mOpen;
    unsigned mPosition;
};

} // namespace net
