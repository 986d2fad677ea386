#include <tmain/stream/STLInputStream.h>
#include <tmain/stream/STLOutputStream.h>

namespace tarso {
namespace stream {

STLInputStreamBuffer::STLInputStreamBuffer(InputStream* source, unsigned bufferSize)
    : mSource(source), mBufferSize(bufferSize ? bufferSize : 1), mBuffer(new char[mBufferSize]) {
    setg(mBuffer, mBuffer, mBuffer);
}

STLInputStreamBuffer::~STLInputStreamBuffer() {
    delete[] mBuffer;
}

STLInputStreamBuffer::int_type STLInputStreamBuffer::underflow() {
    if (gptr() < egptr())
        return traits_type::to_int_type(*gptr());
    if (mSource->eof())
        return traits_type::eof();
    unsigned n = mSource->read(mBuffer, 1, mBufferSize);
    if (n == 0)
        return traits_type::eof();
    setg(mBuffer, mBuffer, mBuffer + n);
    return traits_type::to_int_type(*gptr());
}

STLOutputStreamBuffer::STLOutputStreamBuffer(OutputStream* sink, unsigned bufferSize)
    : mSink(sink), mBufferSize(bufferSize ? bufferSize : 1), mBuffer(new char[mBufferSize]) {
    setp(mBuffer, mBuffer + mBufferSize);
}

STLOutputStreamBuffer::~STLOutputStreamBuffer() {
    flush();
    delete[] mBuffer;
}

bool STLOutputStreamBuffer::flush() {
    unsigned n = (unsigned)(pptr() - pbase());
    if (n == 0)
        return true;
    unsigned written = mSink->write(pbase(), 1, n);
    if (written < n) {
        // Keep what the sink did not take at the front of the buffer.
        std::char_traits<char>::move(mBuffer, pbase() + written, n - written);
        setp(mBuffer, mBuffer + mBufferSize);
        pbump((int)(n - written));
        return false;
    }
    setp(mBuffer, mBuffer + mBufferSize);
    return true;
}

STLOutputStreamBuffer::int_type STLOutputStreamBuffer::overflow(int_type c) {
    if (!flush() && pptr() == epptr())
        return traits_type::eof();
    if (!traits_type::eq_int_type(c, traits_type::eof())) {
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
    }
    return traits_type::not_eof(c);
}

int STLOutputStreamBuffer::sync() {
    return flush() ? 0 : -1;
}

STLInputStream::STLInputStream(unsigned bufferSize) : mSTLBufferSize(bufferSize) {}

STLInputStream::~STLInputStream() {
    releaseSTLStream();
}

std::istream* STLInputStream::getSTLStream() {
    if (!mSTLStream) {
        mSTLBuffer.reset(new STLInputStreamBuffer(this, mSTLBufferSize));
        mSTLStream.reset(new std::istream(mSTLBuffer.get()));
    }
    return mSTLStream.get();
}

void STLInputStream::close() {
    releaseSTLStream();
}

void STLInputStream::releaseSTLStream() {
    mSTLStream.reset();
    mSTLBuffer.reset();
}

STLOutputStream::STLOutputStream(unsigned bufferSize) : mSTLBufferSize(bufferSize) {}

STLOutputStream::~STLOutputStream() {}

std::ostream* STLOutputStream::getSTLStream() {
    if (!mSTLStream) {
        mSTLBuffer.reset(new STLOutputStreamBuffer(this, mSTLBufferSize));
        mSTLStream.reset(new std::ostream(mSTLBuffer.get()));
    }
    return mSTLStream.get();
}

void STLOutputStream::close() {
    releaseSTLStream();
}

void STLOutputStream::releaseSTLStream() {
    if (mSTLStream)
        mSTLStream->flush();
    mSTLStream.reset();
    mSTLBuffer.reset();
}

} // namespace stream
} // namespace tarso
