#include <tmain/stream/ZIPInputStream.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/ZIPFileSystem.h>
#include <zlib.h>

namespace tarso {
namespace stream {

namespace {
// Compressed bytes fetched per turn on the shared archive handle.
const unsigned INPUT_SIZE = 65536;
} // namespace

struct ZIPInputStream::Inflater {
    z_stream z;
    bool ready = false;
    Inflater() { z = z_stream(); }
    ~Inflater() {
        if (ready)
            inflateEnd(&z);
    }
};

ZIPInputStream::ZIPInputStream(const vfs::ZIPEntry& entry, const void* archive, vfs::ZIPFileSystem* fs)
    : mEntry(entry), mArchive(archive), mFS(fs), mCapacity(0), mInputSize(0), mInputPos(0), mDataStart(0),
      mRawRead(0), mPosition(0), mCRC(0), mCRCValid(true), mOpen(false), mEnded(false), mError(false) {
    // A counted file system stays alive while the stream does; one nobody
    // counts (on the stack) is its owner's to keep.
    if (fs && fs->getRefCount() > 0)
        mHeld = fs;
}

ZIPInputStream::~ZIPInputStream() {
    close();
}

void ZIPInputStream::fail(const char* format, ...) {
    char message[1024];
    va_list args;
    va_start(args, format);
    vsnprintf(message, sizeof(message), format, args);
    va_end(args);
    mError = true;
    throw IOException("%s", message);
}

void ZIPInputStream::open(EOpenMode) {
    if (mOpen)
        throw IOException("ZIPinputStream already opened");
    try {
        if (!mFS)
            throw IOException("No ZIP file system");
        mFS->syncBegin(this);
        try {
            mDataStart = mFS->locateData(mEntry, mArchive);
        } catch (...) {
            mFS->syncEnd();
            throw;
        }
        mFS->syncEnd();
        mCapacity = (unsigned)std::max<unsigned long long>(
            1, std::min<unsigned long long>(mEntry.compressedSize, INPUT_SIZE));
        mInput.reset(new unsigned char[mCapacity]);
        if (mEntry.method != 0) {
            mInflater.reset(new Inflater());
            if (inflateInit2(&mInflater->z, -MAX_WBITS) != Z_OK)
                throw IOException("Unable to initialise the inflater");
            mInflater->ready = true;
        }
    } catch (const ::core::Exception& e) {
        mError = true;
        mInflater.reset();
        mInput.reset();
        throw IOException("Error opening ZIPInputStream", &e);
    }
    mOpen = true;
    mError = false;
    restart();
}

void ZIPInputStream::close() {
    mOpen = false;
    mInflater.reset();
    mInput.reset();
    mInputSize = mInputPos = 0;
    mPosition = mRawRead = 0;
    mEnded = false;
}

void ZIPInputStream::restart() {
    mRawRead = 0;
    mPosition = 0;
    mCRC = crc32(0, Z_NULL, 0);
    mCRCValid = true;
    mEnded = false;
    mInputSize = mInputPos = 0;
    if (mInflater) {
        mInflater->z.next_in = Z_NULL;
        mInflater->z.avail_in = 0;
        if (inflateReset(&mInflater->z) != Z_OK)
            fail("ZIPInputStream::seekFromStart failed");
    }
}

unsigned ZIPInputStream::fetch() {
    unsigned long long left = mEntry.compressedSize - mRawRead;
    unsigned want = (unsigned)std::min<unsigned long long>(left, mCapacity);
    if (want == 0)
        return 0;
    unsigned got;
    mFS->syncBegin(this);
    try {
        got = mFS->readRaw(mDataStart + mRawRead, mInput.get(), want);
    } catch (...) {
        mFS->syncEnd();
        mError = true;
        throw;
    }
    mFS->syncEnd();
    if (got < want)
        fail("ZIP entry '%s' is truncated", mEntry.name.c_str());
    mRawRead += got;
    mInputPos = 0;
    mInputSize = got;
    if (mInflater) {
        mInflater->z.next_in = mInput.get();
        mInflater->z.avail_in = got;
    }
    return got;
}

unsigned ZIPInputStream::produce(unsigned char* out, unsigned size) {
    unsigned produced = 0;
    if (!mInflater) {
        while (produced < size) {
            if (mInputPos == mInputSize) {
                if (mRawRead >= mEntry.compressedSize) {
                    mEnded = true;
                    break;
                }
                fetch();
            }
            unsigned n = std::min(size - produced, mInputSize - mInputPos);
            memcpy(out + produced, mInput.get() + mInputPos, n);
            mInputPos += n;
            produced += n;
        }
    } else {
        z_stream& z = mInflater->z;
        z.next_out = out;
        z.avail_out = size;
        while (z.avail_out > 0) {
            if (z.avail_in == 0 && mRawRead < mEntry.compressedSize)
                fetch();
            int rc = inflate(&z, Z_NO_FLUSH);
            if (rc == Z_STREAM_END) {
                mEnded = true;
                break;
            }
            if (rc == Z_BUF_ERROR && z.avail_in == 0 && mRawRead >= mEntry.compressedSize)
                fail("ZIP entry '%s' is truncated", mEntry.name.c_str());
            if (rc != Z_OK && rc != Z_BUF_ERROR)
                fail("ZIP entry '%s' is corrupt (%s)", mEntry.name.c_str(), z.msg ? z.msg : "inflate error");
        }
        produced = size - z.avail_out;
    }
    if (mPosition + produced > mEntry.uncompressedSize)
        fail("ZIP entry '%s' holds more than its declared %llu bytes", mEntry.name.c_str(),
             mEntry.uncompressedSize);
    if (mCRCValid && produced)
        mCRC = crc32(mCRC, out, produced);
    mPosition += produced;
    if (mEnded)
        finish();
    return produced;
}

void ZIPInputStream::finish() {
    if (mPosition != mEntry.uncompressedSize)
        fail("ZIP entry '%s' ends after %llu of its declared %llu bytes", mEntry.name.c_str(), mPosition,
             mEntry.uncompressedSize);
    if (mCRCValid && mCRC != mEntry.crc)
        fail("ZIP entry '%s': CRC mismatch (%08X != %08X)", mEntry.name.c_str(), mEntry.crc, (unsigned)mCRC);
}

unsigned ZIPInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw IOException("ZIPInputStream not opened");
    unsigned long long wanted64 = (unsigned long long)size * count;
    unsigned wanted = wanted64 > 0xFFFFFFFFull ? 0xFFFFFFFFu : (unsigned)wanted64;
    if (wanted == 0 || mEnded)
        return 0;
    if (!buffer)
        throw ::core::IllegalArgumentException("ZIPInputStream::read: no buffer");
    unsigned got = produce(static_cast<unsigned char*>(buffer), wanted);
    // The read that delivers the last declared byte also checks the end.
    if (!mEnded && mPosition == mEntry.uncompressedSize) {
        unsigned char probe;
        produce(&probe, 1);
    }
    return got;
}

void ZIPInputStream::seek(int offset, ESeekMode mode) {
    if (!mOpen)
        throw IOException("ZIPInputStream not opened");
    long long target;
    if (mode == SM_END && mInflater)
        throw ::core::UnsupportedOperationException("Seek from end not supported for this ZIPInputStream");
    target = seekTarget(offset, mode, mPosition, mEntry.uncompressedSize, "ZIPInputStream");
    if (target < 0 || (unsigned long long)target > mEntry.uncompressedSize)
        throw IOException("Unable to seek to ZIP stream position %d", (int)target);
    if (!mInflater) {
        // Stored data is reached directly; its CRC is known again only from the start.
        mRawRead = mPosition = (unsigned long long)target;
        mInputSize = mInputPos = 0;
        mEnded = false;
        mCRCValid = target == 0;
        mCRC = crc32(0, Z_NULL, 0);
        return;
    }
    if ((unsigned long long)target < mPosition) {
        try {
            restart();
        } catch (const ::core::Exception& e) {
            throw IOException("ZIPInputStream::seekFromStart failed", &e);
        }
    }
    unsigned char scratch[4096];
    while (mPosition < (unsigned long long)target) {
        unsigned step = (unsigned)std::min<unsigned long long>(sizeof(scratch), target - mPosition);
        if (produce(scratch, step) < step)
            throw IOException("Unable to seek to ZIP stream position %d", (int)target);
    }
}

unsigned ZIPInputStream::available() const {
    return mOpen && mPosition < mEntry.uncompressedSize ? (unsigned)(mEntry.uncompressedSize - mPosition) : 0;
}

bool ZIPInputStream::eof() const {
    return !mOpen || mEnded || mPosition >= mEntry.uncompressedSize;
}

unsigned ZIPInputStream::readLine(char*, int, char) {
    throw ::core::UnsupportedOperationException("ZIPInputStream::readLine not yet implemented");
}

std::istream* ZIPInputStream::getSTLStream() {
    throw ::core::UnsupportedOperationException("ZIPInputStream::getSTLStream()");
}

} // namespace stream
} // namespace tarso
