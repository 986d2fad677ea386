#pragma once
#include <memory>
#include <string>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/IRefCount.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/platform/Platform.h>
#include <tmain/vfs/CacheMap.h>
#include <vector>

namespace tarso {
namespace stream {
class FileOutputStream;
}
namespace vfs {

class File;
class CacheFileSystem;

/// The state shared by every CacheFile of one path: the map of present
/// ranges, the data file's stream, the transfer buffer and the file's own
/// critical section, which serialises every read, write, map update and
/// completion of the path.
class TMAIN_API SharedCacheInfo : public ::core::IRefCount {
public:
    /// The map is saved whenever this many bytes were stored since its last
    /// save, so a crash loses at most this much of a transfer.
    static constexpr unsigned MAP_SAVE_INTERVAL = 4u << 20;

    /// Opens (creating when needed) the data file, pre-sizes it and loads
    /// its map. Takes ownership of `cs` once constructed; when the data file
    /// cannot be made (IOException), `cs` stays the caller's.
    SharedCacheInfo(File* dataFile, unsigned size, __int64 lastModified, CacheFileSystem* owner,
                    ::core::CriticalSection* cs, unsigned bufferSize);
    ~SharedCacheInfo() override;

    void enterCS() { mCS->enter(); }
    void leaveCS() { mCS->leave(); }
    ::core::CriticalSection& getCS() { return *mCS; }
    bool hasCacheEntry(unsigned start, unsigned size) const { return mMap.getEntry(start, size) != nullptr; }
    const CacheMapEntry* getCacheEntry(unsigned start, unsigned size) const {
        return mMap.getEntry(start, size);
    }
    void addCacheEntry(unsigned start, unsigned size) { mMap.addEntry(start, size); }
    /// Start of the first present range after `position`, or the file size.
    unsigned nextCachedStart(unsigned position) const;
    const CacheMap& getMap() const { return mMap; }

    stream::FileOutputStream* getOS() { return mOS.get(); }
    unsigned char* getBuffer() { return mBuffer.data(); }
    unsigned getBufferSize() const { return (unsigned)mBuffer.size(); }
    unsigned getSize() const { return mSize; }
    __int64 getLastModified() const { return mLastModified; }
    bool isCompleted() const { return mCompleted; }
    /// Number of CacheFile objects using this info; guarded by the cache file
    /// system's main critical section.
    unsigned addUser() { return ++mUsers; }
    unsigned removeUser() { return mUsers ? --mUsers : 0; }
    unsigned getUsers() const { return mUsers; }
    /// Local path (relative to the cache root) of the data file.
    const std::string& getDataPath() const { return mDataPath; }

    /// The bytes of the last fetch kept in the buffer, for reads that follow.
    unsigned mBufferStart;
    unsigned mBufferLength;

    /// Reads `length` bytes of the data file at `position`; false on a short read.
    bool readLocal(unsigned position, void* buffer, unsigned length);
    /// Writes fetched bytes at `position` and, once the system has them,
    /// records them in the map. A failed write (disk full, size limit)
    /// records nothing and throws IOException "... CacheInputStream::read::write local data".
    void storeFetched(unsigned position, const void* buffer, unsigned length);

    /// True when every byte is present and the data file became the complete
    /// file; otherwise the map is saved.
    bool checkFileCompleted();
    /// Saves or completes, then closes the data stream: the info goes away.
    void finish();

private:
    /// Pre-sizes the data file; returns how many of its bytes were there before.
    unsigned ensureLocalFile();
    /// Loads the map, trusting only ranges below `trustedSize`.
    void ensureCacheMap(unsigned trustedSize);
    void removeMapFile();
    void saveMap();
    void reopenDataStream();
    void openDataStream(bool create);

    CacheMap mMap;
    ::core::SmartPtr<File> mMapFile;
    std::unique_ptr<stream::FileOutputStream> mOS;
    unsigned mSize;
    __int64 mLastModified;
    CacheFileSystem* mOwner;
    std::unique_ptr<::core::CriticalSection> mCS;
    std::string mDataPath;
    std::string mCompletedPath;
    std::vector<unsigned char> mBuffer;
    bool mCompleted;
    bool mMapDirty;
    unsigned mUnsavedBytes; ///< bytes stored since the map was last saved
    unsigned mUsers;
};

} // namespace vfs
} // namespace tarso
