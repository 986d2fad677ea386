#pragma once
#include <memory>
#include <ostream>
#include <streambuf>
#include <tmain/stream/OutputStream.h>

namespace tarso {
namespace stream {

/// A std::streambuf that collects bytes and writes them to an OutputStream.
class TMAIN_API STLOutputStreamBuffer : public std::streambuf {
public:
    STLOutputStreamBuffer(OutputStream* sink, unsigned bufferSize);
    ~STLOutputStreamBuffer() override;
    /// Writes what is buffered; true when the sink took all of it.
    bool flush();

protected:
    int_type overflow(int_type c) override;
    int sync() override;

private:
    OutputStream* mSink;
    unsigned mBufferSize;
    char* mBuffer;
};

/// An OutputStream whose getSTLStream() builds, on first call, a std::ostream
/// over itself and returns the same object afterwards; close() deletes both.
class TMAIN_API STLOutputStream : public OutputStream {
public:
    explicit STLOutputStream(unsigned bufferSize = 4096);
    ~STLOutputStream() override;
    std::ostream* getSTLStream() override;
    void close() override;

protected:
    void releaseSTLStream();

private:
    unsigned mSTLBufferSize;
    std::unique_ptr<STLOutputStreamBuffer> mSTLBuffer;
    std::unique_ptr<std::ostream> mSTLStream;
};

} // namespace stream
} // namespace tarso
