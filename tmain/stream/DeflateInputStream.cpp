#include <tmain/stream/DeflateInputStream.h>

#include <climits>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/IOException.h>
#include <zlib.h>

namespace tarso {
namespace stream {

DeflateInputStream::DeflateInputStream(InputStream* source, bool sourceOwned, unsigned inputBufferSize,
                                       unsigned outputBufferSize, bool raw)
    : mInputBufferSize(inputBufferSize), mOutputBufferSize(outputBufferSize), mSource(source),
      mSourceOwned(sourceOwned), mOpen(false), mPending(0), mLastResult(Z_OK), mReadPtr(nullptr),
      mPosition(0), mName("DeflateInputStream"), mWindowBits(raw ? -15 : 15), mOpenWindowBits(mWindowBits),
      mInflaterLive(false), mStreamEnded(false), mError(false), mNeedsInput(true), mRewindable(false),
      mSourceStart(0) {
    if (!source)
        throw ::core::IllegalArgumentException("DeflateInputStream: null source stream");
    // A zero-sized buffer would make inflate spin without progress.
    if (inputBufferSize == 0 || outputBufferSize == 0)
        throw ::core::IllegalArgumentException("DeflateInputStream: buffer sizes must not be 0");
    mInputBuffer.reset(new unsigned char[inputBufferSize]);
    mOutputBuffer.reset(new unsigned char[outputBufferSize]);
    mZ.reset(new z_stream());
    mReadPtr = mOutputBuffer.get();
}

DeflateInputStream::~DeflateInputStream() {
    if (mOpen) {
        try {
            close();
        } catch (const ::core::Exception& e) {
            ::logging::Logger::mROOT_LOGGER.warn("DeflateInputStream: closing the source failed", &e);
        }
    }
    endInflater();
    if (mSourceOwned)
        delete mSource;
}

void DeflateInputStream::open(EOpenMode mode) {
    if (mOpen)
        throw ::core::IllegalStateException("Deflate Stream already opened!");
    if (!mSource->isOpen())
        mSource->open(mode);
    endInflater();
    *mZ = z_stream();
    mZ->next_in = mInputBuffer.get();
    mZ->avail_in = 0;
    mWindowBits = mOpenWindowBits;
    int rc = inflateInit2(mZ.get(), mWindowBits);
    if (rc != Z_OK)
        throw IOException("Unable to open deflate stream for input: %s (%X)!", zError(rc), (unsigned)rc);
    mInflaterLive = true;
    mOpen = true;
    mPending = 0;
    mReadPtr = mOutputBuffer.get();
    mPosition = 0;
    mLastResult = Z_OK;
    mStreamEnded = mError = false;
    mNeedsInput = true;
    // Remember where the data starts so that a backwards seek can restart.
    try {
        mSourceStart = mSource->tell();
        mRewindable = true;
    } catch (const ::core::Exception&) {
        mRewindable = false;
    }
}

void DeflateInputStream::close() {
    if (!mOpen)
        return;
    mOpen = false;
    mPending = 0;
    endInflater();
    mSource->close();
}

void DeflateInputStream::endInflater() {
    if (mInflaterLive) {
        inflateEnd(mZ.get());
        mInflaterLive = false;
    }
}

int DeflateInputStream::setWindowBits(int windowBits) {
    int rc = inflateReset2(mZ.get(), windowBits);
    if (rc == Z_OK)
        mWindowBits = windowBits;
    return rc;
}

void DeflateInputStream::resetInflater() {
    int rc = mInflaterLive ? inflateReset(mZ.get()) : inflateInit2(mZ.get(), mWindowBits);
    if (rc != Z_OK)
        throw IOException("Unable to open deflate stream for input: %s (%X)!", zError(rc), (unsigned)rc);
    mInflaterLive = true;
    mLastResult = Z_OK;
    mStreamEnded = mError = false;
    mNeedsInput = true;
}

void DeflateInputStream::setDataError() {
    mLastResult = Z_DATA_ERROR;
    mError = true;
}

void DeflateInputStream::setTruncated() {
    if (mError)
        return;
    ::logging::Logger::mROOT_LOGGER.warn("%s: compressed data ends early (truncated after %u bytes)", mName,
                                         mPosition);
    mLastResult = Z_BUF_ERROR;
    mError = true;
}

bool DeflateInputStream::hasError() const {
    return mError;
}

unsigned DeflateInputStream::available() const {
    if (!mOpen)
        return 0;
    if (mPending > 0)
        return mPending;
    if (mStreamEnded || mError)
        return 0;
    if (mZ->avail_in > 0 || !mNeedsInput)
        return 1;
    return mSource->available() > 0 ? 1 : 0;
}

bool DeflateInputStream::eof() const {
    if (!mOpen)
        return true;
    // The source's end is not ours: a cut stream ends through read(), which
    // records the fault, so eof() never hides it.
    return mPending == 0 && (mStreamEnded || mError);
}

unsigned DeflateInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw ::core::IllegalStateException("DeflateInputStream not open");
    unsigned long long requested = (unsigned long long)size * count;
    const unsigned want = requested > UINT_MAX ? UINT_MAX : (unsigned)requested;
    unsigned char* out = static_cast<unsigned char*>(buffer);

    // Inflated bytes left over from the previous call come first.
    unsigned done = mPending < want ? mPending : want;
    if (done > 0) {
        memcpy(out, mReadPtr, done);
        mReadPtr += done;
        mPending -= done;
    }

    z_stream* z = mZ.get();
    bool cut = false;
    while (done < want && !mStreamEnded && !mError && mInflaterLive) {
        if (z->avail_in == 0 && mNeedsInput) {
            // Once something is delivered, do not block on a source with nothing at hand.
            if (done > 0 && mSource->available() == 0)
                break;
            unsigned got = mSource->read(mInputBuffer.get(), 1, mInputBufferSize);
            if (got == 0) {
                cut = true;
                break;
            }
            z->next_in = mInputBuffer.get();
            z->avail_in = got;
        }
        // Large requests are inflated straight into the caller's memory.
        const unsigned room = want - done;
        const bool direct = room >= mOutputBufferSize;
        const unsigned capacity = direct ? room : mOutputBufferSize;
        z->next_out = direct ? out + done : mOutputBuffer.get();
        z->avail_out = capacity;
        int rc = inflate(z, Z_NO_FLUSH);
        const unsigned produced = capacity - z->avail_out;
        mNeedsInput = z->avail_out != 0;
        if (direct) {
            done += produced;
        } else {
            const unsigned n = produced < room ? produced : room;
            memcpy(out + done, mOutputBuffer.get(), n);
            done += n;
            mReadPtr = mOutputBuffer.get() + n;
            mPending = produced - n;
        }
        if (rc == Z_NEED_DICT)
            rc = Z_DATA_ERROR;
        mLastResult = rc;
        if (rc == Z_STREAM_END) {
            mStreamEnded = true;
        } else if (rc == Z_DATA_ERROR || rc == Z_MEM_ERROR || rc == Z_STREAM_ERROR) {
            ::logging::Logger::mROOT_LOGGER.warn("%s: inflate failed: %s (%d)", mName,
                                                 z->msg ? z->msg : zError(rc), rc);
            endInflater();
            mError = true;
        }
        // Z_BUF_ERROR is only "no progress": the next round refills the input.
        // Told at once, so that eof() and hasError() agree after this call.
        if (!mStreamEnded && !mError && mNeedsInput && z->avail_in == 0 && mSource->eof()) {
            cut = true;
            break;
        }
    }
    mPosition += done;
    if (cut)
        setTruncated();
    return done;
}

void DeflateInputStream::seek(int offset, ESeekMode mode) {
    if (mode == SM_END)
        throw ::core::UnsupportedOperationException("DeflateInputStream: unsupported seek mode (SM_END)");
    if (mode != SM_BEGIN && mode != SM_CURRENT)
        throw ::core::IllegalArgumentException("DeflateInputStream: unsupported seek mode (%d)", (int)mode);
    if (!mOpen)
        throw ::core::IllegalStateException("DeflateInputStream not open");
    long long target = (mode == SM_BEGIN ? 0LL : (long long)mPosition) + offset;
    if (target < 0 || target > (long long)UINT_MAX)
        throw IOException("DeflateInputStream: invalid seek target %lld", target);
    if ((unsigned)target < mPosition)
        restart();
    skip((unsigned)target - mPosition);
}

void DeflateInputStream::skip(unsigned count) {
    while (count > 0) {
        unsigned n = read(mScratch, 1, count < SCRATCH_SIZE ? count : SCRATCH_SIZE);
        if (n == 0)
            break;
        count -= n;
    }
}

void DeflateInputStream::restart() {
    if (!mRewindable)
        throw IOException(
            "DeflateInputStream: cannot seek backwards, the source stream cannot report its position");
    try {
        mSource->seek((int)mSourceStart, SM_BEGIN);
    } catch (const ::core::Exception& e) {
        throw IOException("DeflateInputStream: cannot seek backwards, the source stream cannot seek", &e);
    }
    mZ->next_in = mInputBuffer.get();
    mZ->avail_in = 0;
    resetInflater();
    mPending = 0;
    mReadPtr = mOutputBuffer.get();
    mPosition = 0;
    onRestart();
}

unsigned DeflateInputStream::readLine(char*, int, char) {
    throw ::core::UnsupportedOperationException("DeflateInputStream::readLine");
}

std::istream* DeflateInputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException(
        "Can't provide a valid istream for DeflateInputStream instances");
}

} // namespace stream
} // namespace tarso
