#pragma once
#include <memory>
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace stream {

/// Reads from a block of memory, either borrowed or copied. Always open;
/// open() and close() change nothing.
class TMAIN_API ByteInputStream : public InputStream {
public:
    /// With copy true the bytes are copied into a block the stream owns;
    /// otherwise the caller keeps data alive while the stream uses it.
    ByteInputStream(const void* data, unsigned size, bool copy);
    ~ByteInputStream() override;
    ByteInputStream(const ByteInputStream&) = delete;
    ByteInputStream& operator=(const ByteInputStream&) = delete;

    /// Replaces the input, keeping the current copy setting.
    void setInput(const void* data, unsigned size);
    /// Replaces the input; an owned old block is freed. Reading restarts at 0.
    void setInput(const void* data, unsigned size, bool copy);

    const unsigned char* getBytes() const { return mData; }
    unsigned getSize() const { return mSize; }

    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override { return true; }
    /// Never fails: a target at or beyond the size leaves nothing to read, a
    /// target before the start is taken as the start.
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override { return mSize - mRemaining; }
    bool hasError() const override { return false; }

    unsigned available() const override { return mRemaining; }
    using InputStream::read;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Reads up to the delimiter (consumed, not stored) or capacity-1 bytes,
    /// whichever comes first, and terminates the buffer.
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override { return mRemaining == 0; }
    /// A std::istream over the same block, starting where this stream stood
    /// on the first call; it keeps its own position afterwards. The same
    /// object is returned on later calls and follows setInput().
    std::istream* getSTLStream() override;

private:
    class STLBuffer;

    const unsigned char* mData;
    unsigned mSize;
    unsigned mRemaining;
    bool mOwned;
    std::unique_ptr<STLBuffer> mSTLBuffer;
    std::unique_ptr<std::istream> mSTLStream;
};

} // namespace stream
} // namespace tarso
