#pragma once
#include <memory>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace stream {

/// Collects writes in a memory buffer in front of another output stream.
/// Writes too large for the buffer go to the target in one call. flush()
/// empties the buffer but does not flush the target.
class TMAIN_API BufferedOutputStream : public OutputStream {
public:
    BufferedOutputStream(unsigned bufferSize, OutputStream* target, bool targetOwned);
    BufferedOutputStream(unsigned bufferSize, bool targetOwned);
    /// Writes what is still buffered (failures are logged) and deletes an
    /// owned target.
    ~BufferedOutputStream() override;
    BufferedOutputStream(const BufferedOutputStream&) = delete;
    BufferedOutputStream& operator=(const BufferedOutputStream&) = delete;

    /// Writes pending bytes to the old target, deletes it when owned, and
    /// installs the new one.
    void setTarget(OutputStream* target, bool owned);
    /// Gives the target up and returns it; with flushPending the buffered
    /// bytes are written to it first, otherwise they are dropped.
    OutputStream* release(bool flushPending);
    OutputStream* getTarget() const { return mTarget; }
    void setTargetOwned(bool owned) { mTargetOwned = owned; }
    bool isTargetOwned() const { return mTargetOwned; }
    unsigned getBufferSize() const { return mBufferSize; }

    /// Opens the target unless it is open already.
    void open(EOpenMode mode) override;
    /// Writes what is buffered, then closes the target.
    void close() override;
    bool isOpen() const override;
    /// Writes what is buffered, then seeks the target.
    void seek(int offset, ESeekMode mode) override;
    /// The target's position plus the buffered bytes.
    unsigned tell() const override;
    bool hasError() const override;

    using OutputStream::write;
    unsigned write(const void* buffer, unsigned size, unsigned count) override;
    void flush() override;
    /// A std::ostream that keeps using this buffer. From then on write() and
    /// flush() throw.
    std::ostream* getSTLStream() override;

private:
    class STLBuffer;

    void checkUsable(const char* writeMessage, const char* stlMessage) const;
    /// Writes the buffered bytes until the target has taken them all; throws
    /// IOException when it stops taking any.
    void flushBuffer();
    /// Takes the byte count from the standard stream, which fills the same
    /// buffer.
    void syncFromSTL();

    OutputStream* mTarget;
    unsigned mBufferSize;
    std::unique_ptr<char[]> mBuffer;
    unsigned mPending;
    bool mTargetOwned;
    bool mSTLRequested;
    std::unique_ptr<STLBuffer> mSTLBuffer;
    std::unique_ptr<std::ostream> mSTLStream;
};

} // namespace stream
} // namespace tarso
