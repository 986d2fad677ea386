#include <tmain/stream/BufferedOutputStream.h>

#include <climits>
#include <cstring>
#include <new>
#include <streambuf>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/IOException.h>

namespace tarso {
namespace stream {

/// Puts directly into the owner's buffer; a full buffer or a sync writes it
/// to the target like flush() would.
class BufferedOutputStream::STLBuffer : public std::streambuf {
public:
    explicit STLBuffer(BufferedOutputStream& owner) : mOwner(owner) { reset(); }

    /// Re-reads the owner's buffer state after the owner wrote it out.
    void reset() {
        char* b = mOwner.mBuffer.get();
        setp(b, b + mOwner.mBufferSize);
        for (unsigned left = mOwner.mPending; left > 0;) {
            int step = left > (unsigned)INT_MAX ? INT_MAX : (int)left;
            pbump(step);
            left -= (unsigned)step;
        }
    }
    unsigned pending() const { return (unsigned)(pptr() - pbase()); }

protected:
    int_type overflow(int_type c) override {
        if (!writeOut() && pptr() == epptr())
            return traits_type::eof();
        if (traits_type::eq_int_type(c, traits_type::eof()))
            return traits_type::not_eof(c);
        if (pptr() == epptr())
            return traits_type::eof();
        *pptr() = traits_type::to_char_type(c);
        pbump(1);
        return c;
    }
    int sync() override { return writeOut() ? 0 : -1; }

private:
    // Failures become the standard stream's badbit rather than exceptions
    // crossing the standard library.
    bool writeOut() {
        try {
            mOwner.flushBuffer();
            return true;
        } catch (const std::exception&) {
            return false;
        }
    }

    BufferedOutputStream& mOwner;
};

BufferedOutputStream::BufferedOutputStream(unsigned bufferSize, OutputStream* target, bool targetOwned)
    : mTarget(nullptr), mBufferSize(bufferSize ? bufferSize : 1), mPending(0), mTargetOwned(false),
      mSTLRequested(false) {
    mBuffer.reset(new (std::nothrow) char[mBufferSize]);
    if (!mBuffer) {
        if (target && targetOwned)
            delete target;
        throw ::core::IllegalStateException("BufferedOutputStream: could not allocate %u bytes", mBufferSize);
    }
    setTarget(target, targetOwned);
}

BufferedOutputStream::BufferedOutputStream(unsigned bufferSize, bool targetOwned)
    : BufferedOutputStream(bufferSize, nullptr, targetOwned) {}

BufferedOutputStream::~BufferedOutputStream() {
    try {
        syncFromSTL();
        if (mPending > 0 && mTarget && mTarget->isOpen())
            flushBuffer();
    } catch (const ::core::Exception& e) {
        ::logging::Logger::mROOT_LOGGER.error("BufferedOutputStream: %u buffered bytes lost", &e, mPending);
    } catch (const std::exception& e) {
        ::logging::Logger::mROOT_LOGGER.error("BufferedOutputStream: %u buffered bytes lost: %s", mPending,
                                              e.what());
    }
    mSTLStream.reset();
    mSTLBuffer.reset();
    if (mTargetOwned)
        delete mTarget;
}

void BufferedOutputStream::syncFromSTL() {
    if (mSTLBuffer)
        mPending = mSTLBuffer->pending();
}

void BufferedOutputStream::setTarget(OutputStream* target, bool owned) {
    if (target != mTarget) {
        syncFromSTL();
        if (mPending > 0 && mTarget && mTarget->isOpen())
            flushBuffer();
        // Bytes meant for a closed or missing target cannot go anywhere else.
        mPending = 0;
        if (mSTLBuffer)
            mSTLBuffer->reset();
        if (mTargetOwned)
            delete mTarget;
        mTarget = target;
    }
    mTargetOwned = owned;
}

OutputStream* BufferedOutputStream::release(bool flushPending) {
    syncFromSTL();
    if (flushPending && mPending > 0 && mTarget && mTarget->isOpen())
        flushBuffer();
    mPending = 0;
    if (mSTLBuffer)
        mSTLBuffer->reset();
    OutputStream* target = mTarget;
    mTarget = nullptr;
    mTargetOwned = false;
    return target;
}

void BufferedOutputStream::open(EOpenMode mode) {
    if (!mTarget)
        throw ::core::IllegalStateException("BufferedOutputStream: no target stream");
    if (!mTarget->isOpen())
        mTarget->open(mode);
}

void BufferedOutputStream::close() {
    if (!mTarget || !mTarget->isOpen())
        return;
    try {
        flushBuffer();
    } catch (...) {
        mTarget->close();
        throw;
    }
    mTarget->close();
}

bool BufferedOutputStream::isOpen() const {
    return mTarget && mTarget->isOpen();
}

void BufferedOutputStream::seek(int offset, ESeekMode mode) {
    if (!mTarget)
        throw ::core::IllegalStateException("BufferedOutputStream: no target stream");
    flushBuffer();
    mTarget->seek(offset, mode);
}

unsigned BufferedOutputStream::tell() const {
    if (!mTarget)
        return 0;
    unsigned pending = mSTLBuffer ? mSTLBuffer->pending() : mPending;
    return mTarget->tell() + pending;
}

bool BufferedOutputStream::hasError() const {
    return mTarget && mTarget->hasError();
}

void BufferedOutputStream::checkUsable(const char* notOpenMessage, const char* stlMessage) const {
    if (!isOpen())
        throw ::core::IllegalStateException("%s", notOpenMessage);
    if (mSTLRequested)
        throw ::core::IllegalStateException("%s", stlMessage);
}

unsigned BufferedOutputStream::write(const void* buffer, unsigned size, unsigned count) {
    checkUsable("BufferedOutputStream::write: stream not yet opened",
                "BufferedOutputStream::write: getSTLStream() already invoked");
    unsigned long long bytes64 = (unsigned long long)size * count;
    const unsigned bytes = bytes64 > UINT_MAX ? UINT_MAX : (unsigned)bytes64;
    if (bytes == 0)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("BufferedOutputStream::write: no buffer");
    const char* in = static_cast<const char*>(buffer);
    const unsigned room = mBufferSize - mPending;
    if (bytes <= room) {
        memcpy(mBuffer.get() + mPending, in, bytes);
        mPending += bytes;
        return bytes;
    }
    memcpy(mBuffer.get() + mPending, in, room);
    mPending = mBufferSize;
    flushBuffer();
    const unsigned rest = bytes - room;
    if (rest <= mBufferSize) {
        memcpy(mBuffer.get(), in + room, rest);
        mPending = rest;
        return bytes;
    }
    return room + mTarget->write(in + room, 1, rest);
}

void BufferedOutputStream::flush() {
    // The second message names ByteOutputStream; callers match on it as is.
    checkUsable("BufferedOutputStream::flush: stream not yet opened",
                "ByteOutputStream::flush: getSTLStream() already invoked");
    flushBuffer();
}

void BufferedOutputStream::flushBuffer() {
    syncFromSTL();
    if (mPending > 0 && !mTarget)
        throw ::core::IllegalStateException("BufferedOutputStream: no target stream");
    unsigned done = 0;
    const unsigned total = mPending;
    // Whatever the target did not take stays at the front of the buffer.
    auto keepRest = [&]() {
        memmove(mBuffer.get(), mBuffer.get() + done, total - done);
        mPending = total - done;
        if (mSTLBuffer)
            mSTLBuffer->reset();
    };
    try {
        while (done < total) {
            unsigned n = mTarget->write(mBuffer.get() + done, 1, total - done);
            if (n == 0)
                throw IOException("BufferedOutputStream: the target took %u of %u bytes", done, total);
            done += n < total - done ? n : total - done;
        }
    } catch (...) {
        keepRest();
        throw;
    }
    keepRest();
}

std::ostream* BufferedOutputStream::getSTLStream() {
    if (!mSTLStream) {
        mSTLBuffer.reset(new STLBuffer(*this));
        mSTLStream.reset(new std::ostream(mSTLBuffer.get()));
        mSTLRequested = true;
    }
    return mSTLStream.get();
}

} // namespace stream
} // namespace tarso
