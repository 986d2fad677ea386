#include <tmain/vfs/SharedCacheInfo.h>

#include <tmain/core/Serializer.h>
#include <tmain/foundation/Logger.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/Utils.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/File.h>

namespace tarso {
namespace vfs {

using logging::Logger;
using platform::FileOperations;
using stream::Stream;

SharedCacheInfo::SharedCacheInfo(File* dataFile, unsigned size, __int64 lastModified, CacheFileSystem* owner,
                                 ::core::CriticalSection* cs, unsigned bufferSize)
    : mBufferStart(0), mBufferLength(0), mSize(size), mLastModified(lastModified), mOwner(owner), mCS(cs),
      mDataPath(dataFile->getPath()), mBuffer(bufferSize ? bufferSize : 4096), mCompleted(false),
      mMapDirty(false), mUnsavedBytes(0), mUsers(0) {
    try {
        size_t cut = mDataPath.find(".tcache");
        mCompletedPath =
            cut == std::string::npos ? mDataPath : mDataPath.substr(0, cut) + mDataPath.substr(cut + 7);
        mMapFile = owner->getLocalFileSystem()->create(CacheFileSystem::mapPath(mDataPath).c_str(), true);
        ::core::Lock lock(*mCS);
        openDataStream(!FileOperations::exists(dataFile->getAbsolutePath()));
        unsigned trusted = ensureLocalFile();
        ensureCacheMap(trusted);
    } catch (...) {
        // The unwritten pre-size byte would only fail again on closing.
        if (mOS && mOS->isOpen()) {
            try {
                mOS->close();
            } catch (const ::core::Exception&) {
            }
        }
        // The critical section goes back to the caller, which still owns it
        // until this constructor returns.
        mCS.release();
        throw;
    }
}

SharedCacheInfo::~SharedCacheInfo() {
    if (mOS && mOS->isOpen()) {
        try {
            mOS->close();
        } catch (const ::core::Exception& e) {
            Logger::mROOT_LOGGER.warn("SharedCacheInfo: closing '%s' failed", &e, mDataPath.c_str());
        }
    }
}

void SharedCacheInfo::openDataStream(bool create) {
    std::string abs = mOwner->getLocalFileSystem()->getAbsolutePath(mDataPath.c_str());
    if (!FileOperations::ensurePath(abs.c_str()))
        throw stream::IOException("Unable to create directory for path");
    mOS.reset(new stream::FileOutputStream(abs));
    Stream::EOpenMode mode = Stream::OM_WRITE | Stream::OM_READ | Stream::OM_BINARY;
    if (create)
        mode = mode | Stream::OM_TRUNCATE;
    mOS->open(mode);
}

unsigned SharedCacheInfo::ensureLocalFile() {
    std::string abs = mOwner->getLocalFileSystem()->getAbsolutePath(mDataPath.c_str());
    __int64 actual = FileOperations::getSize(abs.c_str());
    if (actual < 0)
        actual = 0;
    if (actual > (__int64)mSize) {
        // A larger data file belongs to another version of the source: start
        // over with an empty file and an empty map.
        mOS->close();
        FileOperations::remove(abs.c_str(), 0);
        openDataStream(true);
        removeMapFile();
        actual = 0;
    }
    if (actual < (__int64)mSize) {
        // Pre-size the file: a sparse extension reads back as zeros, the same
        // as writing them, without writing the whole size up front. Only the
        // bytes the file had before can be covered by its map.
        mOS->seekTo(mSize - 1);
        stream::Utils::checkWrite(mOS->write("\0", 1, 1) == 1, this, "SharedCacheInfo::ensureLocalFile");
        mOS->flush();
    }
    mOS->seek(0, Stream::SM_BEGIN);
    return (unsigned)actual;
}

void SharedCacheInfo::removeMapFile() {
    mMap.clear();
    std::string mapAbs = mMapFile->getAbsolutePath();
    if (FileOperations::exists(mapAbs.c_str()))
        FileOperations::remove(mapAbs.c_str(), 0);
}

void SharedCacheInfo::ensureCacheMap(unsigned trustedSize) {
    std::string mapAbs = mMapFile->getAbsolutePath();
    if (!FileOperations::exists(mapAbs.c_str()))
        return;
    // A map is saved with the source's time; any other time means the map
    // is stale (source changed) or was cut short by a crash.
    if (FileOperations::getLastModTime(mapAbs.c_str()) != mLastModified) {
        Logger::mROOT_LOGGER.info("Discarding stale cache map '%s'", mapAbs.c_str());
        FileOperations::remove(mapAbs.c_str(), 0);
        return;
    }
    try {
        std::unique_ptr<stream::InputStream> in(mMapFile->getInputStream());
        in->open(Stream::OM_READ | Stream::OM_BINARY);
        core::Serializer serializer(nullptr);
        mMap.deserialize(in.get(), &serializer);
        in->close();
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.warn("Unable to read cache map '%s'; keeping what was read", &e, mapAbs.c_str());
    }
    // A map beside a new or shorter data file claims bytes that were never
    // written there: only ranges inside the file as it was found are trusted.
    if (!mMap.fits(trustedSize)) {
        Logger::mROOT_LOGGER.warn("Cache map '%s' does not fit its data file; discarding it", mapAbs.c_str());
        mMap.clear();
    }
}

unsigned SharedCacheInfo::nextCachedStart(unsigned position) const {
    for (const CacheMapEntry& e : mMap.getEntries())
        if (e.mStart > position)
            return e.mStart;
    return mSize;
}

bool SharedCacheInfo::readLocal(unsigned position, void* buffer, unsigned length) {
    if (!mOS->isOpen())
        openDataStream(false); // closed by a failed write that could not reopen it
    mOS->seekTo(position);
    return mOS->read(buffer, 1, length) == length;
}

void SharedCacheInfo::storeFetched(unsigned position, const void* buffer, unsigned length) {
    // The bytes are handed to the system before the map claims them, so a
    // full disk or a size limit is seen here and the range stays unclaimed.
    try {
        if (!mOS->isOpen())
            openDataStream(false);
        mOS->seekTo(position);
        if (mOS->write(buffer, 1, length) == length) {
            mOS->flush();
            mMap.addEntry(position, length);
            mMapDirty = true;
            mUnsavedBytes += length;
            if (mUnsavedBytes >= MAP_SAVE_INTERVAL && mMap.getCachedSize() != mSize) {
                // A process that dies mid-transfer loses at most this much:
                // the map on disk never lags further behind the data.
                try {
                    saveMap();
                } catch (const ::core::Exception& e) {
                    Logger::mROOT_LOGGER.warn("SharedCacheInfo: unable to save cache map of '%s'", &e,
                                              mDataPath.c_str());
                }
            }
            return;
        }
        Logger::mROOT_LOGGER.warn("SharedCacheInfo: short write of %u bytes at %u to '%s'", length, position,
                                  mDataPath.c_str());
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.warn("SharedCacheInfo: unable to write %u bytes at %u to '%s'", &e, length,
                                  position, mDataPath.c_str());
    }
    reopenDataStream();
    stream::Utils::checkWrite(false, this, "CacheInputStream::read::write local data");
}

void SharedCacheInfo::reopenDataStream() {
    // A failed write leaves unwritten bytes in the stream's buffer; they must
    // not reach the file later, at some other position.
    try {
        mOS->close();
    } catch (const ::core::Exception&) {
        // expected: the same bytes cannot be written out now either
    }
    try {
        openDataStream(false);
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error("SharedCacheInfo: unable to reopen '%s'", &e, mDataPath.c_str());
    }
}

void SharedCacheInfo::saveMap() {
    // A new map is written beside the old one and replaces it only once it
    // is complete: a failed save leaves the previous map (or, if the process
    // dies between the two steps, none), never a truncated one. The data it
    // claims is with the system already: every store is flushed.
    std::string mapAbs = mMapFile->getAbsolutePath();
    std::string tmpAbs = mapAbs + ".tmp";
    try {
        {
            stream::FileOutputStream out(tmpAbs);
            out.open(Stream::OM_WRITE | Stream::OM_TRUNCATE | Stream::OM_BINARY);
            core::Serializer serializer(nullptr);
            mMap.serialize(&out, &serializer);
            out.close();
        }
        if (!FileOperations::setLastModTime(tmpAbs.c_str(), mLastModified))
            throw stream::IOException("Unable to set the time of cache map '%s'", tmpAbs.c_str());
        if (FileOperations::exists(mapAbs.c_str()))
            FileOperations::remove(mapAbs.c_str(), 0);
        if (!FileOperations::rename(tmpAbs.c_str(), mapAbs.c_str()))
            throw stream::IOException("Unable to rename cache map '%s'", tmpAbs.c_str());
    } catch (...) {
        if (FileOperations::exists(tmpAbs.c_str()))
            FileOperations::remove(tmpAbs.c_str(), 0);
        throw;
    }
    mMapDirty = false;
    mUnsavedBytes = 0;
}

bool SharedCacheInfo::checkFileCompleted() {
    ::core::Lock lock(*mCS);
    if (mCompleted)
        return true;
    if (mMap.getCachedSize() != mSize) {
        saveMap();
        return false;
    }
    SimpleFileSystem* local = mOwner->getLocalFileSystem();
    std::string dataAbs = local->getAbsolutePath(mDataPath.c_str());
    std::string doneAbs = local->getAbsolutePath(mCompletedPath.c_str());
    std::string mapAbs = mMapFile->getAbsolutePath();
    bool wasOpen = mOS && mOS->isOpen();
    if (wasOpen)
        mOS->close();
    if (!FileOperations::rename(dataAbs.c_str(), doneAbs.c_str())) {
        // Only a complete file already there counts, not a directory of that name.
        if (!FileOperations::exists(doneAbs.c_str()) || FileOperations::isDirectory(doneAbs.c_str())) {
            Logger::mROOT_LOGGER.error("Unable to rename cached file from '%s' to '%s'", dataAbs.c_str(),
                                       doneAbs.c_str());
            // The data file stays partial with its map on disk, so it resumes.
            if (wasOpen)
                openDataStream(false);
            saveMap();
            return false;
        }
        // The complete file is already there: it counts, and the data file goes.
        FileOperations::remove(dataAbs.c_str(), 0);
    }
    // The map goes only once the complete file exists.
    if (FileOperations::exists(mapAbs.c_str()) && !FileOperations::remove(mapAbs.c_str(), 0))
        Logger::mROOT_LOGGER.warn("Unable to remove local cache map file '%s'", mapAbs.c_str());
    if (mLastModified != 0)
        FileOperations::setLastModTime(doneAbs.c_str(), mLastModified);
    if (wasOpen) {
        mOS.reset(new stream::FileOutputStream(doneAbs));
        mOS->open(Stream::OM_WRITE | Stream::OM_READ | Stream::OM_BINARY);
    }
    mCompleted = true;
    mMapDirty = false;
    mOwner->markChecked(mCompletedPath.c_str());
    return true;
}

void SharedCacheInfo::finish() {
    ::core::Lock lock(*mCS);
    try {
        if (!mCompleted && (mMapDirty || mMap.getCachedSize() == mSize))
            checkFileCompleted();
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error("Unable to save cache state of '%s'", &e, mDataPath.c_str());
    }
    if (mOS && mOS->isOpen())
        mOS->close();
}

} // namespace vfs
} // namespace tarso
