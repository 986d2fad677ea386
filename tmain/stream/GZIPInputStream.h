#pragma once
#include <memory>
#include <tmain/stream/DeflateInputStream.h>

namespace core {
class Exception;
}

namespace tarso {
namespace stream {

/// Reads gzip files (RFC 1952): parses each member's header itself, inflates
/// the raw deflate body and checks the CRC-32 trailer. Concatenated members
/// read as one stream. `sourceOwned` as for DeflateInputStream. Extra header
/// fields are skipped through the same 2048-byte scratch buffer.
///
/// Data after a member that is not another gzip member is an error
/// (IOException from the header check). When the read that finished the
/// previous member already has bytes to return, they are returned and the
/// error is thrown by the next read.
class TMAIN_API GZIPInputStream : public DeflateInputStream {
public:
    GZIPInputStream(InputStream* source, bool sourceOwned, unsigned inputBufferSize = 16384,
                    unsigned outputBufferSize = 16384);
    ~GZIPInputStream() override;

    using InputStream::read;

    void open(EOpenMode mode) override;
    void close() override;
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    bool eof() const override;

protected:
    void onRestart() override;

private:
    void checkHeader();
    /// Compressed-side bytes: what is left in the input buffer, then the source.
    unsigned readRaw(void* buffer, unsigned size);
    /// No compressed byte left in the buffer and the source at its end.
    bool eofRaw();
    /// Skips up to count raw bytes; false when the data ended first.
    bool skipRaw(unsigned count);
    /// Skips raw bytes up to and including a zero byte, or to the end of the data.
    void skipString();
    /// Reads the trailer after a member; true when another member follows.
    bool finishMember();

    unsigned long mCrc;
    bool mDone;
    std::unique_ptr<::core::Exception> mDeferred;
};

} // namespace stream
} // namespace tarso
