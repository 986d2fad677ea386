#pragma once
#include <memory>
#include <tmain/stream/InputStream.h>

// zlib's stream state; kept opaque so that users of this header need no zlib.h.
struct z_stream_s;

namespace tarso {
namespace stream {

/// Inflates zlib-format data (RFC 1950) read from a source stream, or raw
/// deflate data (RFC 1951, no header or checksum) when `raw` is true.
///
/// `sourceOwned`: when true the source is deleted together with this stream.
/// open() opens the source when it is not open yet; close() closes it.
///
/// Reads fill the request unless the data ends; once some bytes have been
/// delivered, a read does not block on a source that reports nothing
/// available and returns what it has. A corrupt stream is not an exception:
/// the read returns what was inflated before the fault, later reads return 0
/// and hasError() turns true (the fault is logged). Data that ends before the
/// compressed stream does (a cut file) counts as such a fault: eof() alone
/// does not tell a whole stream from a truncated one, hasError() does.
///
/// seek() moves forward by inflating and discarding (through a fixed
/// 2048-byte scratch buffer). Moving backwards restarts from where the source
/// was when this stream was opened, which needs a source with a working
/// tell() and seek(SM_BEGIN); other sources throw IOException.
class TMAIN_API DeflateInputStream : public InputStream {
public:
    static constexpr unsigned SCRATCH_SIZE = 2048;

    DeflateInputStream(InputStream* source, bool sourceOwned, unsigned inputBufferSize = 16384,
                       unsigned outputBufferSize = 16384, bool raw = false);
    ~DeflateInputStream() override;
    DeflateInputStream(const DeflateInputStream&) = delete;
    DeflateInputStream& operator=(const DeflateInputStream&) = delete;

    using InputStream::read;

    void open(EOpenMode mode) override;
    void close() override;
    bool isOpen() const override { return mOpen; }
    /// SM_END throws core::UnsupportedOperationException.
    void seek(int offset, ESeekMode mode) override;
    /// Number of inflated bytes delivered so far.
    unsigned tell() const override { return mPosition; }
    /// True after zlib reported a fault (or, for gzip, a CRC mismatch).
    bool hasError() const override;
    /// Inflated bytes at hand; 1 when more may follow but none is inflated yet.
    unsigned available() const override;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Not supported: throws core::UnsupportedOperationException.
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override;
    /// Not supported: throws core::UnsupportedOperationException.
    std::istream* getSTLStream() override;

    InputStream* getSource() const { return mSource; }

protected:
    /// Called after a backwards seek has put the source and the inflater back
    /// at the start.
    virtual void onRestart() {}

    /// Switches the inflater's window bits (15 here, -15 for raw deflate);
    /// returns zlib's result code.
    int setWindowBits(int windowBits);
    /// Readies the inflater for a new compressed stream; the input buffer is kept.
    void resetInflater();
    void endInflater();
    /// The inflater reached the end of the compressed stream and every
    /// inflated byte was delivered.
    bool streamFinished() const { return mStreamEnded && mPending == 0; }
    void setDataError();
    /// Records that the compressed data ended before the stream did, and logs it.
    void setTruncated();

    unsigned mInputBufferSize;
    std::unique_ptr<unsigned char[]> mInputBuffer;
    unsigned mOutputBufferSize;
    std::unique_ptr<unsigned char[]> mOutputBuffer;
    unsigned char mScratch[SCRATCH_SIZE];
    InputStream* mSource;
    bool mSourceOwned;
    std::unique_ptr<z_stream_s> mZ;
    bool mOpen;
    unsigned mPending;
    int mLastResult;
    unsigned char* mReadPtr;
    unsigned mPosition;
    /// Class name used in log messages.
    const char* mName;

private:
    void restart();
    void skip(unsigned count);

    int mWindowBits;
    int mOpenWindowBits; // what open() starts with: 15 (zlib) or -15 (raw)
    bool mInflaterLive;
    bool mStreamEnded;
    bool mError;
    bool mNeedsInput;
    bool mRewindable;
    unsigned mSourceStart;
};

} // namespace stream
} // namespace tarso
