#pragma once
#include <istream>
#include <memory>
#include <streambuf>
#include <tmain/stream/InputStream.h>

namespace tarso {
namespace stream {

/// A std::streambuf over an InputStream, with a buffer of its own.
class TMAIN_API STLInputStreamBuffer : public std::streambuf {
public:
    STLInputStreamBuffer(InputStream* source, unsigned bufferSize);
    ~STLInputStreamBuffer() override;

protected:
    int_type underflow() override;

private:
    InputStream* mSource;
    unsigned mBufferSize;
    char* mBuffer;
};

/// An InputStream whose getSTLStream() builds, on first call, a std::istream
/// over itself and returns the same object afterwards; close() deletes both.
class TMAIN_API STLInputStream : public InputStream {
public:
    explicit STLInputStream(unsigned bufferSize = 4096);
    ~STLInputStream() override;
    std::istream* getSTLStream() override;
    void close() override;

protected:
    void releaseSTLStream();

private:
    unsigned mSTLBufferSize;
    std::unique_ptr<STLInputStreamBuffer> mSTLBuffer;
    std::unique_ptr<std::istream> mSTLStream;
};

} // namespace stream
} // namespace tarso
