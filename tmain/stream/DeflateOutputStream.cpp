#include <tmain/stream/DeflateOutputStream.h>

#include <climits>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/IOException.h>
#include <zlib.h>

namespace tarso {
namespace stream {

DeflateOutputStream::DeflateOutputStream(OutputStream* target, int level, unsigned bufferSize, bool raw)
    : mTarget(target), mLevel(level), mBufferSize(bufferSize), mRaw(raw), mOpen(false), mLastResult(Z_OK) {
    if (!target)
        throw ::core::IllegalArgumentException("DeflateOutputStream: null target stream");
    if (bufferSize == 0)
        throw ::core::IllegalArgumentException("DeflateOutputStream: buffer size must not be 0");
    mBuffer.reset(new unsigned char[bufferSize]);
    mZ.reset(new z_stream());
}

DeflateOutputStream::~DeflateOutputStream() {
    if (mOpen) {
        try {
            close();
        } catch (const ::core::Exception& e) {
            ::logging::Logger::mROOT_LOGGER.error("DeflateOutputStream: closing on destruction failed", &e);
        }
    }
}

void DeflateOutputStream::open(EOpenMode mode) {
    if (mOpen)
        throw ::core::IllegalStateException("Deflate Stream already opened!");
    if (!mTarget->isOpen())
        mTarget->open(mode);
    *mZ = z_stream();
    int rc = deflateInit2(mZ.get(), mLevel, Z_DEFLATED, mRaw ? -15 : 15, 8, Z_DEFAULT_STRATEGY);
    mLastResult = rc;
    if (rc != Z_OK)
        throw IOException("Unable to open Delflate stream for output: %s (%X)!", zError(rc), (unsigned)rc);
    mOpen = true;
}

bool DeflateOutputStream::hasError() const {
    return mLastResult < 0 && mLastResult != Z_BUF_ERROR;
}

bool DeflateOutputStream::doDeflate(int flush) {
    z_stream* z = mZ.get();
    for (;;) {
        z->next_out = mBuffer.get();
        z->avail_out = mBufferSize;
        int rc = deflate(z, flush);
        if (rc != Z_BUF_ERROR) // "no progress" is not a fault
            mLastResult = rc;
        if (rc == Z_STREAM_ERROR)
            return false;
        unsigned produced = mBufferSize - z->avail_out;
        if (produced > 0 && mTarget->write(mBuffer.get(), 1, produced) != produced)
            return false;
        if (flush == Z_FINISH ? rc == Z_STREAM_END : z->avail_out != 0)
            return true;
    }
}

unsigned DeflateOutputStream::write(const void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw ::core::IllegalStateException("DeflateOutputStream not open");
    unsigned long long requested = (unsigned long long)size * count;
    const unsigned n = requested > UINT_MAX ? UINT_MAX : (unsigned)requested;
    if (n == 0)
        return 0;
    mZ->next_in = static_cast<Bytef*>(const_cast<void*>(buffer));
    mZ->avail_in = n;
    bool ok = doDeflate(Z_NO_FLUSH);
    mZ->next_in = nullptr;
    mZ->avail_in = 0;
    if (!ok)
        throw IOException("Error during deflate compression. Write operation failed");
    return n;
}

void DeflateOutputStream::flush() {
    if (!mOpen)
        throw ::core::IllegalStateException("Deflate stream not yet opened for output. Unable to flush.");
    if (!doDeflate(Z_SYNC_FLUSH))
        throw IOException("Error during deflate compression. Write operation failed");
    mTarget->flush();
}

void DeflateOutputStream::close() {
    if (!mOpen)
        return;
    mOpen = false;
    bool ok = false;
    std::unique_ptr<::core::Exception> cause;
    try {
        ok = doDeflate(Z_FINISH);
    } catch (const ::core::Exception& e) {
        cause.reset(e.clone());
    }
    deflateEnd(mZ.get());
    // The target is closed even when finishing failed, so nothing stays half-open.
    mTarget->close();
    if (!ok)
        throw IOException("Error during deflate compression. Closing operation failed.", cause.get());
}

std::ostream* DeflateOutputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException(
        "Can't provide a valid ostream for DeflateOutputStream instances");
}

} // namespace stream
} // namespace tarso
