#pragma once
#include <tmain/stream/OutputStream.h>

namespace net {

class StreamSocket;

/// Writes a StreamSocket through the stream contract. Made and owned by the
/// socket (StreamSocket::getOutputStream).
class TMAIN_API SocketOutputStream : public tarso::stream::OutputStream {
public:
    explicit SocketOutputStream(StreamSocket* socket);
    ~SocketOutputStream() override;
    SocketOutputStream(const SocketOutputStream&) = delete;
    SocketOutputStream& operator=(const SocketOutputStream&) = delete;

    /// Reopens a closed adapter of a connected socket (position 0).
    void open(EOpenMode mode) override;
    /// Marks the adapter closed; the socket stays connected.
    void close() override;
    /// The socket is connected (or UDP), whatever open() and close() did.
    bool isOpen() const override;
    unsigned tell() const override { return mPosition; }
    /// No socket, or the socket's last error is not 0.
    bool hasError() const override;

    using OutputStream::write;
    /// Sends size*count bytes. Throws core::IllegalStateException "Stream not
    /// yet opened" when not open. Quirks kept on purpose: every repeated send
    /// after a partial one starts again at the buffer's start (with the
    /// shrinking remaining length), the loop also ends when the socket's last
    /// error is not 0, and the position advances by, and the call returns, the
    /// last send's count rather than the sum. When a non-blocking socket takes
    /// nothing, the loop waits with pollWritable(-1) and, when that wait
    /// fails, ends (returning 0) instead of spinning.
    unsigned write(const void* buffer, unsigned size, unsigned count) override;
    /// A zero-length send.
    void flush() override;
    /// Throws core::UnsupportedOperationException "SocketOutputStream::getSTLStream".
    std::ostream* getSTLStream() override;

    StreamSocket* getSocket() const { return mSocket; }

protected:
    friend class StreamSocket;
    /// Closes and reopens the adapter.
    void reset();

private:
    StreamSocket* mSocket;
    bool mOpen;
    unsigned mPosition;
};

} // namespace net
