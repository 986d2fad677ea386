#pragma once
#include <memory>
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace stream {

/// Puts a memory buffer in front of another input stream. A read waits for
/// the first refill only and then returns what is at hand: it refills again
/// only while the source reports bytes available. Requests at least as large
/// as the buffer are read into the caller's memory directly.
class TMAIN_API BufferedInputStream : public InputStream {
public:
    /// The position starts at the source's tell() when the source is open.
    BufferedInputStream(InputStream* source, unsigned bufferSize, bool sourceOwned);
    ~BufferedInputStream() override;
    BufferedInputStream(const BufferedInputStream&) = delete;
    BufferedInputStream& operator=(const BufferedInputStream&) = delete;

    /// Opens the source (unless it is open already) and drops the buffer.
    void open(EOpenMode mode) override;
    /// Closes the source and drops the buffer.
    void close() override;
    bool isOpen() const override;
    /// Within the buffered bytes only the read position moves; otherwise the
    /// source seeks and the buffer is dropped.
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override { return mPosition; }
    bool hasError() const override;

    /// Buffered bytes plus what the source reports.
    unsigned available() const override;
    using InputStream::read;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Reads up to the delimiter (consumed, not stored) or capacity-1 bytes,
    /// whichever comes first, and terminates the buffer. Waits for the whole
    /// line unless the source ends.
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override;
    /// A std::istream that continues with the buffered bytes and then reads
    /// the source. From then on this object's reads and seeks throw.
    std::istream* getSTLStream() override;

    InputStream* getTarget() const { return mSource; }
    unsigned getBufferSize() const { return mBufferSize; }

private:
    class STLBuffer;

    void checkNotSTL() const;
    /// One read of a whole buffer from the source; false when it gave nothing.
    bool refill();
    void dropBuffer() { mReadPos = mValid = 0; }

    InputStream* mSource;
    unsigned mBufferSize;
    std::unique_ptr<char[]> mBuffer;
    unsigned mReadPos;
    unsigned mValid;
    unsigned mPosition;
    bool mSourceEof;
    bool mSTLRequested;
    bool mSourceOwned;
    std::unique_ptr<STLBuffer> mSTLBuffer;
    std::unique_ptr<std::istream> mSTLStream;
};

} // namespace stream
} // namespace tarso
