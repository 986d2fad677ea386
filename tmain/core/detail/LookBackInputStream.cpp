#include <tmain/core/detail/LookBackInputStream.h>

#include <algorithm>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/stream/IOException.h>

namespace tarso {
namespace core {
namespace detail {

LookBackInputStream::LookBackInputStream(stream::InputStream* source, unsigned window)
    : InputStream(source->getEndianness()), mSource(source), mRing(window ? window : 1), mStart(0),
      mEnd(source->isOpen() ? source->tell() : 0), mPosition(mEnd), mReached(mEnd), mReread(0) {
    mStart = mEnd;
}

void LookBackInputStream::open(EOpenMode mode) {
    if (!mSource->isOpen())
        mSource->open(mode);
}

void LookBackInputStream::close() {
    mSource->close();
}

bool LookBackInputStream::isOpen() const {
    return mSource->isOpen();
}

bool LookBackInputStream::hasError() const {
    return mSource->hasError();
}

unsigned LookBackInputStream::available() const {
    return (mEnd - mPosition) + mSource->available();
}

bool LookBackInputStream::eof() const {
    return mPosition == mEnd && mSource->eof();
}

bool LookBackInputStream::fill() {
    const unsigned size = (unsigned)mRing.size();
    const unsigned at = mEnd % size;
    const unsigned n = mSource->read(&mRing[at], 1, std::min(size - at, 16384u));
    if (n == 0)
        return false;
    mEnd += n;
    mReached = std::max(mReached, mEnd);
    if (mEnd - mStart > size)
        mStart = mEnd - size;
    return true;
}

unsigned LookBackInputStream::read(void* buffer, unsigned size, unsigned count) {
    const unsigned long long want = (unsigned long long)size * count;
    unsigned long long done = 0;
    char* out = static_cast<char*>(buffer);
    while (done < want) {
        if (mPosition == mEnd && !fill())
            break;
        const unsigned at = mPosition % (unsigned)mRing.size();
        const unsigned long long n =
            std::min<unsigned long long>({want - done, mEnd - mPosition, mRing.size() - at});
        memcpy(out + done, &mRing[at], (size_t)n);
        done += n;
        mPosition += (unsigned)n;
    }
    return (unsigned)done;
}

void LookBackInputStream::seek(int offset, ESeekMode mode) {
    if (mode == SM_END)
        throw ::core::UnsupportedOperationException("LookBackInputStream: unsupported seek mode (SM_END)");
    const long long target = seekTarget(offset, mode, mPosition, 0, "LookBackInputStream");
    if (target < 0 || target > 0xFFFFFFFFll)
        throw stream::IOException("LookBackInputStream: invalid seek target %lld", target);
    const unsigned t = (unsigned)target;
    if (t >= mStart && t <= mEnd) {
        mPosition = t;
        return;
    }
    if (t > mEnd) {
        mPosition = mEnd;
        while (mEnd < t && fill())
            mPosition = mEnd;
        mPosition = std::min(t, mEnd);
        return;
    }
    // Before the window: the source starts over and reads up to t again.
    if (mReread + t > 4ull * mReached + (16u << 20))
        throw stream::IOException("Stream read back too often (%llu bytes again for %u read). Read aborted",
                                  mReread + t, mReached);
    mSource->seek((int)t, SM_BEGIN);
    mReread += t;
    mStart = mEnd = mPosition = mSource->tell();
}

unsigned LookBackInputStream::readLine(char*, int, char) {
    throw ::core::UnsupportedOperationException("LookBackInputStream::readLine");
}

std::istream* LookBackInputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException("LookBackInputStream::getSTLStream");
}

} // namespace detail
} // namespace core
} // namespace tarso
