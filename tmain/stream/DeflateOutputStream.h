#pragma once
#include <memory>
#include <tmain/stream/OutputStream.h>

struct z_stream_s;

namespace tarso {
namespace stream {

/// Deflates what is written into zlib format (RFC 1950) on a target stream,
/// or into raw deflate (RFC 1951, no header or checksum) when `raw` is true.
/// The target is not owned. open() opens the target when it is not open yet;
/// close() finishes the compressed stream and closes the target; destroying
/// an open stream does the same, so the target must outlive it.
class TMAIN_API DeflateOutputStream : public OutputStream {
public:
    /// `level`: 0 to 9, or -1 for zlib's default; `bufferSize`: bytes of
    /// compressed output collected before each write to the target.
    DeflateOutputStream(OutputStream* target, int level, unsigned bufferSize = 16384, bool raw = false);
    ~DeflateOutputStream() override;
    DeflateOutputStream(const DeflateOutputStream&) = delete;
    DeflateOutputStream& operator=(const DeflateOutputStream&) = delete;

    using OutputStream::write;

    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override { return mOpen; }
    bool hasError() const override;
    unsigned write(const void* buffer, unsigned size, unsigned count) override;
    /// Pushes everything written so far to the target (zlib sync flush) and
    /// flushes the target.
    void flush() override;
    /// Not supported: throws core::UnsupportedOperationException.
    std::ostream* getSTLStream() override;

    OutputStream* getTarget() const { return mTarget; }

private:
    /// Deflates the pending input with the given zlib flush mode and writes
    /// every produced chunk; false on a zlib stream error or a short write.
    bool doDeflate(int flush);

    OutputStream* mTarget;
    int mLevel;
    unsigned mBufferSize;
    bool mRaw;
    std::unique_ptr<unsigned char[]> mBuffer;
    std::unique_ptr<z_stream_s> mZ;
    bool mOpen;
    int mLastResult;
};

} // namespace stream
} // namespace tarso
