#pragma once
#include <memory>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace stream {

/// Writes into a memory block that grows in whole multiples of an increment.
/// Starts closed: open() it before writing. The reported size is the current
/// position, so seeking back and stopping there shortens the result.
class TMAIN_API ByteOutputStream : public OutputStream {
public:
    /// The capacity is initialSize rounded up to a multiple of increment.
    explicit ByteOutputStream(unsigned initialSize = 256, unsigned increment = 256);
    ~ByteOutputStream() override;
    ByteOutputStream(const ByteOutputStream&) = delete;
    ByteOutputStream& operator=(const ByteOutputStream&) = delete;

    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override { return mOpen; }
    /// SM_END counts back from the capacity, not from the written size
    /// (deliberately). The target must lie in [0, capacity).
    void seek(int offset, ESeekMode mode) override;
    unsigned tell() const override { return mPosition; }
    bool hasError() const override { return false; }

    using OutputStream::write;
    unsigned write(const void* buffer, unsigned size, unsigned count) override;
    /// Overwrites `size` bytes at `position` without moving the position;
    /// the bytes must lie before the position, else IOException.
    void patch(unsigned position, const void* data, unsigned size);
    /// Only checks that writing is allowed; there is nothing to flush.
    void flush() override;
    /// A std::ostream writing at the current position. Once handed out,
    /// write() and flush() refuse to work.
    std::ostream* getSTLStream() override;

    /// The block; valid until the next write or the stream's end.
    const unsigned char* getBytes() const { return mData; }
    /// The current position (deliberately not the largest size written).
    unsigned getSize() const { return mPosition; }
    unsigned getCapacity() const { return mCapacity; }
    unsigned getInitialSize() const { return mInitialSize; }

private:
    class STLBuffer;

    void checkUsable() const;
    /// Grows the capacity by missing rounded up to a multiple of the increment.
    void growBy(unsigned long long missing);
    unsigned append(const void* buffer, unsigned long long bytes);

    unsigned mInitialSize;
    unsigned mCapacity;
    unsigned mIncrement;
    unsigned mPosition;
    unsigned char* mData;
    bool mSTLRequested;
    bool mOpen;
    std::unique_ptr<STLBuffer> mSTLBuffer;
    std::unique_ptr<std::ostream> mSTLStream;
};

} // namespace stream
} // namespace tarso
