#include <tmain/stream/BufferedInputStream.h>

#include <climits>
#include <cstring>
#include <new>
#include <streambuf>
#include <tmain/foundation/Exception.h>

namespace tarso {
namespace stream {

/// Serves the bytes still in the owner's buffer, then refills that buffer
/// from the source.
class BufferedInputStream::STLBuffer : public std::streambuf {
public:
    explicit STLBuffer(BufferedInputStream& owner) : mOwner(owner) {
        char* b = mOwner.mBuffer.get();
        setg(b, b + mOwner.mReadPos, b + mOwner.mValid);
    }

protected:
    int_type underflow() override {
        if (gptr() < egptr())
            return traits_type::to_int_type(*gptr());
        if (mOwner.mSourceEof)
            return traits_type::eof();
        char* b = mOwner.mBuffer.get();
        unsigned got = mOwner.mSource->read(b, 1, mOwner.mBufferSize);
        mOwner.mSourceEof = mOwner.mSource->eof();
        if (got == 0)
            return traits_type::eof();
        setg(b, b, b + got);
        return traits_type::to_int_type(*gptr());
    }

private:
    BufferedInputStream& mOwner;
};

namespace {
unsigned sourcePosition(InputStream* source) {
    if (!source->isOpen())
        return 0;
    try {
        return source->tell();
    } catch (const ::core::UnsupportedOperationException&) {
        // Streams without positions (sockets, pipes) count from here.
        return 0;
    }
}
} // namespace

BufferedInputStream::BufferedInputStream(InputStream* source, unsigned bufferSize, bool sourceOwned)
    : mSource(source), mBufferSize(bufferSize ? bufferSize : 1), mReadPos(0), mValid(0), mPosition(0),
      mSourceEof(false), mSTLRequested(false), mSourceOwned(sourceOwned) {
    if (!source)
        throw ::core::IllegalArgumentException("BufferedInputStream: no source stream");
    mBuffer.reset(new (std::nothrow) char[mBufferSize]);
    if (!mBuffer) {
        if (sourceOwned)
            delete source;
        throw ::core::IllegalStateException("BufferedInputStream: could not allocate %u bytes", mBufferSize);
    }
    mPosition = sourcePosition(source);
}

BufferedInputStream::~BufferedInputStream() {
    mSTLStream.reset();
    mSTLBuffer.reset();
    if (mSourceOwned)
        delete mSource;
}

void BufferedInputStream::checkNotSTL() const {
    if (mSTLRequested)
        throw ::core::IllegalStateException(
            "STL operation mode requested. Unable to perform further InputStream operations!");
}

void BufferedInputStream::open(EOpenMode mode) {
    if (!mSource->isOpen())
        mSource->open(mode);
    dropBuffer();
    mSourceEof = false;
    mPosition = sourcePosition(mSource);
}

void BufferedInputStream::close() {
    mSource->close();
    dropBuffer();
    mSourceEof = false;
}

bool BufferedInputStream::isOpen() const {
    return mSource->isOpen();
}

bool BufferedInputStream::hasError() const {
    return mSource->hasError();
}

bool BufferedInputStream::refill() {
    mReadPos = 0;
    mValid = mSource->read(mBuffer.get(), 1, mBufferSize);
    mSourceEof = mSource->eof();
    return mValid > 0;
}

unsigned BufferedInputStream::read(void* buffer, unsigned size, unsigned count) {
    checkNotSTL();
    unsigned long long wanted64 = (unsigned long long)size * count;
    const unsigned wanted = wanted64 > UINT_MAX ? UINT_MAX : (unsigned)wanted64;
    if (wanted == 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("BufferedInputStream::read: no buffer");
    char* out = static_cast<char*>(buffer);
    unsigned delivered = 0;
    for (;;) {
        unsigned buffered = mValid - mReadPos;
        if (buffered > 0) {
            unsigned take = buffered < wanted - delivered ? buffered : wanted - delivered;
            memcpy(out + delivered, mBuffer.get() + mReadPos, take);
            mReadPos += take;
            delivered += take;
            mPosition += take;
            if (delivered == wanted)
                break;
        }
        // The buffer is empty: wait for the first refill only, then take
        // more only while the source has it at hand.
        if (mSourceEof || (delivered > 0 && mSource->available() == 0))
            break;
        unsigned rest = wanted - delivered;
        if (rest >= mBufferSize) {
            // Copying through the buffer would gain nothing. The buffer no
            // longer describes the bytes before the position: drop it, or a
            // seek back would be served from it at the wrong offset.
            mReadPos = mValid = 0;
            unsigned got = mSource->read(out + delivered, 1, rest);
            mSourceEof = mSource->eof();
            delivered += got;
            mPosition += got;
            if (got == 0 || delivered == wanted)
                break;
        } else if (!refill()) {
            break;
        }
    }
    return delivered;
}

unsigned BufferedInputStream::readLine(char* buffer, int capacity, char delimiter) {
    checkNotSTL();
    if (capacity <= 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("BufferedInputStream::readLine: no buffer");
    const unsigned room = (unsigned)capacity - 1;
    unsigned stored = 0;
    while (stored < room) {
        if (mReadPos == mValid && (mSourceEof || !refill()))
            break;
        const char* start = mBuffer.get() + mReadPos;
        unsigned scan = mValid - mReadPos < room - stored ? mValid - mReadPos : room - stored;
        const char* hit = static_cast<const char*>(memchr(start, (unsigned char)delimiter, scan));
        unsigned n = hit ? (unsigned)(hit - start) : scan;
        memcpy(buffer + stored, start, n);
        stored += n;
        mReadPos += n;
        mPosition += n;
        if (hit) {
            ++mReadPos;
            ++mPosition;
            break;
        }
    }
    buffer[stored] = '\0';
    return stored;
}

void BufferedInputStream::seek(int offset, ESeekMode mode) {
    checkNotSTL();
    const long long bufferStart = (long long)mPosition - mReadPos;
    long long target = -1;
    if (mode == SM_BEGIN)
        target = offset;
    else if (mode == SM_CURRENT)
        target = (long long)mPosition + offset;
    if (target >= bufferStart && target < bufferStart + mValid) {
        mReadPos = (unsigned)(target - bufferStart);
        mPosition = (unsigned)target;
        return;
    }
    int sourceOffset = offset;
    ESeekMode sourceMode = mode;
    if (mode == SM_CURRENT) {
        // The source is ahead of us by the unread buffered bytes.
        long long relative = (long long)offset - (mValid - mReadPos);
        if (relative >= INT_MIN) {
            sourceOffset = (int)relative;
        } else if (target >= 0 && target <= INT_MAX) {
            sourceOffset = (int)target;
            sourceMode = SM_BEGIN;
        }
    }
    mSource->seek(sourceOffset, sourceMode);
    dropBuffer();
    mPosition = mSource->tell();
    mSourceEof = mSource->eof();
}

unsigned BufferedInputStream::available() const {
    unsigned long long n = (unsigned long long)(mValid - mReadPos) + mSource->available();
    return n > UINT_MAX ? UINT_MAX : (unsigned)n;
}

bool BufferedInputStream::eof() const {
    return mReadPos == mValid && mSource->eof();
}

std::istream* BufferedInputStream::getSTLStream() {
    if (!mSTLStream) {
        mSTLBuffer.reset(new STLBuffer(*this));
        mSTLStream.reset(new std::istream(mSTLBuffer.get()));
        // The unread bytes now belong to the standard stream.
        dropBuffer();
        mSTLRequested = true;
    }
    return mSTLStream.get();
}

} // namespace stream
} // namespace tarso
