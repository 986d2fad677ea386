#pragma once
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace http {

/// The body of a response sent with the chunked transfer coding, read from
/// the connection's stream. Chunk extensions are logged and ignored; the
/// trailer after the last chunk is read and dropped, so the next response on
/// a kept-alive connection starts where it should.
class TMAIN_API ChunkedInputStream : public tarso::stream::InputStream {
public:
    /// Reads the first chunk header at once.
    ChunkedInputStream(tarso::stream::InputStream* source, bool ownsSource);
    ~ChunkedInputStream() override;
    ChunkedInputStream(const ChunkedInputStream&) = delete;
    ChunkedInputStream& operator=(const ChunkedInputStream&) = delete;

    /// Reopens the source when it is closed.
    void open(EOpenMode mode) override;
    /// Only marks this stream closed; the source stays as it is.
    void close() override { mOpen = false; }
    bool isOpen() const override { return mOpen; }
    bool hasError() const override;

    /// The rest of the current chunk (0 when closed).
    unsigned available() const override;
    using InputStream::read;
    /// Reads at most the rest of the current chunk, in one call to the source.
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    /// Unsupported. The message names ResponseInputStream::getSTLStream, as it
    /// always has.
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override { return mPosition >= mSize; }
    std::istream* getSTLStream() override;

private:
    void readChunkHeader();
    void readTrailer();

    bool mOpen;
    tarso::stream::InputStream* mSource;
    unsigned mSize;     ///< size of the current chunk
    unsigned mPosition; ///< bytes read of the current chunk
    bool mOwnsSource;
    char mLine[64];
};

} // namespace http
} // namespace tarso
