#pragma once
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace http {

/// The body of a response of known length, read from the connection's
/// stream: it never reads past the body, so the connection can be reused.
class TMAIN_API ResponseInputStream : public tarso::stream::InputStream {
public:
    ResponseInputStream(tarso::stream::InputStream* source, unsigned length, bool ownsSource);
    ~ResponseInputStream() override;
    ResponseInputStream(const ResponseInputStream&) = delete;
    ResponseInputStream& operator=(const ResponseInputStream&) = delete;

    /// Reopens the source when it is closed.
    void open(EOpenMode mode) override;
    /// Only marks this stream closed; the source stays as it is.
    void close() override { mOpen = false; }
    bool isOpen() const override { return mOpen; }
    bool hasError() const override;
    /// Bytes of the body read so far.
    unsigned tell() const override { return mRead; }

    /// What is left of the body.
    unsigned available() const override { return mLength - mRead; }
    using InputStream::read;
    /// Reads at most what is left of the body, in one call to the source.
    unsigned read(void* buffer, unsigned size, unsigned count) override;
    unsigned readLine(char* buffer, int capacity, char delimiter) override;
    bool eof() const override { return mRead >= mLength; }
    std::istream* getSTLStream() override;

    unsigned getLength() const { return mLength; }

private:
    bool mOpen;
    tarso::stream::InputStream* mSource;
    unsigned mLength;
    unsigned mRead;
    bool mOwnsSource;
};

} // namespace http
} // namespace tarso
