#include <tmain/stream/HTTPInputStream.h>
#include <tmain/vfs/CacheInputStream.h>

#include <climits>
#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/foundation/Logger.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/CacheFile.h>
#include <tmain/vfs/SharedCacheInfo.h>

namespace tarso {
namespace stream {

CacheInputStream::CacheInputStream(vfs::CacheFile* file)
    : FileInputStream(file->getAbsolutePath(), 4096), mFile(file), mInfo(file->getCacheInfo()), mPosition(0),
      mSourcePosition(0), mFileSize(file->getSize()), mOpen(false), mError(false) {
    if (!mInfo)
        throw ::core::IllegalStateException("CacheInputStream: no shared cache info for '%s'",
                                            file->getPath());
}

CacheInputStream::~CacheInputStream() {
    close();
}

void CacheInputStream::open(EOpenMode) {
    if (mOpen)
        throw ::core::IllegalStateException("File '%s' is already open", mFile->getPath());
    mOpen = true;
    mPosition = 0;
}

void CacheInputStream::close() {
    mSTLStream.reset();
    mSTLBuffer.reset();
    if (mSourceStream) {
        try {
            mSourceStream->close();
        } catch (const ::core::Exception&) {
            // closing a failed source changes nothing for us
        }
        mSourceStream.reset();
    }
    mOpen = false;
}

void CacheInputStream::seek(int offset, ESeekMode mode) {
    long long target = seekTarget(offset, mode, mPosition, mFileSize, "CacheInputStream");
    if (target < 0)
        target = 0;
    if (target > (long long)mFileSize)
        target = mFileSize;
    mPosition = (unsigned)target;
}

unsigned CacheInputStream::available() const {
    return mPosition < mFileSize ? mFileSize - mPosition : 0;
}

unsigned CacheInputStream::fetch(unsigned position, unsigned char* target, unsigned length) {
    if (!mSourceStream) {
        mSourceStream.reset(mFile->getSource()->getInputStream());
        // An HTTP source starts where the first missing byte is: one ranged
        // request instead of a whole-body request and a second ranged one.
        try {
            if (auto* http = dynamic_cast<tarso::stream::HTTPInputStream*>(mSourceStream.get())) {
                http->openAt(OM_READ | OM_BINARY, position);
                mSourcePosition = http->tell();
            } else {
                mSourceStream->open(OM_READ | OM_BINARY);
                mSourcePosition = 0;
            }
        } catch (...) {
            mSourceStream.reset(); // opened anew next time
            throw;
        }
    }
    if (mSourcePosition != position) {
        // Whatever happens to the seek, the source's position is unknown until it succeeds.
        mSourcePosition = UINT_MAX;
        mSourceStream->seekTo(position);
        mSourcePosition = position;
    }
    unsigned got = 0;
    try {
        while (got < length) {
            unsigned n = mSourceStream->read(target + got, 1, length - got);
            if (n == 0)
                break;
            got += n;
            mSourcePosition += n;
        }
    } catch (...) {
        // A source that fails mid-transfer is somewhere unknown: seek it next
        // time. What it delivered before failing is good and is kept, so no
        // byte is fetched twice.
        mSourcePosition = UINT_MAX;
        if (got) {
            try {
                mInfo->storeFetched(position, target, got);
            } catch (const ::core::Exception&) {
                // the source's failure is the one to report
            }
        }
        throw;
    }
    if (got == 0) {
        mError = true;
        throw IOException("CacheInputStream: source of '%s' ended at offset %u of %u", mFile->getPath(),
                          position, mFileSize);
    }
    mInfo->storeFetched(position, target, got);
    return got;
}

unsigned CacheInputStream::read(void* buffer, unsigned size, unsigned count) {
    if (!mOpen)
        throw ::core::IllegalStateException("File '%s' not yet opened", mFile->getPath());
    unsigned long long asked = (unsigned long long)size * count;
    ::core::Lock lock(mInfo->getCS());
    if (mPosition >= mFileSize || asked == 0)
        return 0;
    unsigned request = (unsigned)std::min<unsigned long long>(asked, mFileSize - mPosition);
    unsigned char* out = static_cast<unsigned char*>(buffer);
    const unsigned bufferSize = mInfo->getBufferSize();
    unsigned delivered = 0;
    // A failure below leaves the position where it was: nothing of this read counts.
    while (delivered < request) {
        const unsigned pos = mPosition + delivered;
        const unsigned want = request - delivered;
        // The last fetch is still in the transfer buffer.
        if (mInfo->mBufferLength && pos >= mInfo->mBufferStart &&
            pos - mInfo->mBufferStart < mInfo->mBufferLength) {
            unsigned n = std::min(want, mInfo->mBufferLength - (pos - mInfo->mBufferStart));
            memcpy(out + delivered, mInfo->getBuffer() + (pos - mInfo->mBufferStart), n);
            delivered += n;
            continue;
        }
        if (const vfs::CacheMapEntry* e = mInfo->getCacheEntry(pos, 1)) {
            unsigned n = std::min(want, e->getEnd() - pos + 1);
            if (!mInfo->readLocal(pos, out + delivered, n)) {
                mError = true;
                throw IOException("CacheInputStream: unable to read cached data of '%s'", mFile->getPath());
            }
            delivered += n;
            continue;
        }
        // Fetch only the gap up to the next present range: no byte twice.
        // Fetched bytes count as cached only once they are on disk; a failed
        // local write (disk full) throws and records nothing, so the next
        // read fetches them again.
        const unsigned gap = mInfo->nextCachedStart(pos) - pos;
        if (want >= bufferSize) {
            delivered += fetch(pos, out + delivered, std::min(want, gap));
        } else {
            // Small reads fetch a whole buffer ahead. The buffer stops
            // claiming its old range before it is overwritten, so a failing
            // source or disk cannot leave new bytes under an old range.
            unsigned char* shared = mInfo->getBuffer();
            mInfo->mBufferLength = 0;
            unsigned got = fetch(pos, shared, std::min(bufferSize, gap));
            mInfo->mBufferStart = pos;
            mInfo->mBufferLength = got;
            unsigned n = std::min(want, got);
            memcpy(out + delivered, shared, n);
            delivered += n;
        }
    }
    mPosition += delivered;
    if (!mInfo->isCompleted() && mInfo->getMap().getCachedSize() == mInfo->getSize()) {
        // The bytes are delivered; completing is retried when the file is released.
        try {
            mInfo->checkFileCompleted();
        } catch (const ::core::Exception& e) {
            ::logging::Logger::mROOT_LOGGER.warn("CacheInputStream: unable to complete '%s'", &e,
                                                 mFile->getPath());
        }
    }
    return delivered;
}

unsigned CacheInputStream::readLine(char* buffer, int capacity, char delimiter) {
    if (capacity <= 0)
        return 0;
    unsigned stored = 0;
    char c;
    while ((int)stored < capacity - 1 && read(&c, 1, 1) == 1) {
        if (c == delimiter)
            break;
        buffer[stored++] = c;
    }
    buffer[stored] = 0;
    return stored;
}

std::istream* CacheInputStream::getSTLStream() {
    if (!mSTLStream) {
        mSTLBuffer.reset(new STLInputStreamBuffer(this, 4096));
        mSTLStream.reset(new std::istream(mSTLBuffer.get()));
    }
    return mSTLStream.get();
}

} // namespace stream
} // namespace tarso
