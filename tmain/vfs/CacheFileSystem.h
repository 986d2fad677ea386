#pragma once
#include <list>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/foundation/Event.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/platform/Platform.h>
#include <tmain/vfs/FileSystem.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <vector>

namespace tarso {
namespace vfs {

class CacheFile;
class SharedCacheInfo;

/// A local disk cache in front of a slower source file system. Files are
/// fetched lazily, range by range, into pre-sized ".tcache" data files whose
/// present ranges are recorded in ".tcmap" maps; a file whose every byte is
/// present is renamed to its own name. Cached files are revalidated against
/// the source by policy, using ".cdata" marker files. Thread-safe.
///
/// Faults: a source failing mid-read throws from the read and nothing of
/// it is recorded. A local write that fails (disk full, size limit, I/O
/// error) throws IOException from the read that fetched the bytes and
/// records nothing, so the next read fetches them again; a data file that
/// cannot be made throws IOException from lookup. Maps are replaced whole,
/// and files of unknown size appear under their name only once complete:
/// after any failure the cache holds fewer bytes, never wrong ones.
///
/// Locks: the main critical section, then a file's own; never the reverse.
/// The main one is released around every call into the source.
class TMAIN_API CacheFileSystem : public FileSystem {
    TMAIN_TYPE()
public:
    /// When a cached file must be checked against the source, and flags.
    class TMAIN_API CachePolicy {
    public:
        /// Lookups return the source's own file; nothing is cached.
        static constexpr unsigned FLAG_DONT_CACHE = 0x1;

        /// expirationTime: age in seconds after which a check is due; negative:
        /// never by age (only once per session time).
        CachePolicy(__int64 expirationTime = 86400, unsigned flags = 0)
            : mExpirationTime(expirationTime), mFlags(flags) {}
        __int64 getExpirationTime() const { return mExpirationTime; }
        void setExpirationTime(__int64 t) { mExpirationTime = t; }
        unsigned getFlags() const { return mFlags; }
        void setFlags(unsigned f) { mFlags = f; }
        unsigned hasFlag(unsigned mask) const { return mFlags & mask; }
        bool operator==(const CachePolicy& o) const {
            return mExpirationTime == o.mExpirationTime && mFlags == o.mFlags;
        }

        /// One day, no flags.
        static const CachePolicy DEFAULT;
        /// Checked against the source at every lookup.
        static const CachePolicy ALLWAYSEXPIRE;

    private:
        __int64 mExpirationTime;
        unsigned mFlags;
    };

    CacheFileSystem(const char* cachePath, FileSystem* source,
                    const CachePolicy& defaultPolicy = CachePolicy::DEFAULT, unsigned bufferSize = 65536,
                    unsigned maxOpenFiles = 16);
    ~CacheFileSystem() override;

    const char* getCachePath() const { return mLocalFS->getRootPath(); }
    FileSystem* getSource() const { return mSource.get(); }
    SimpleFileSystem* getLocalFileSystem() const { return mLocalFS.get(); }
    void setLastChanceFS(FileSystem* fs);
    FileSystem* getLastChanceFS() const { return mLastResortFS.get(); }
    void setSessionTime(__int64 t);
    __int64 getSessionTime() const;
    unsigned getBufferSize() const { return mBufferSize; }
    unsigned getMaxOpenFiles() const { return mMaxOpenFiles; }
    /// Number of paths holding an open-file slot now.
    unsigned getOpenFileCount() const;

    // Policies: the first pattern, in insertion order, that matches a path
    // decides; otherwise the default.
    void setPolicy(const char* pattern, const CachePolicy& policy);
    bool hasPolicy(const char* pattern) const;
    bool removePolicy(const char* pattern);
    CachePolicy getPolicy(const char* path) const;
    void setDefaultPolicy(const CachePolicy& policy);
    CachePolicy getDefaultPolicy() const;

    /// True when the local cache, the last-chance file system or the source has it.
    bool exists(const char* path) const override;
    bool isContainer(const char* path) const override;
    std::string getAbsolutePath(const char* path) override;
    std::string getRelativePath(const char* path) override;
    using FileSystem::lookup;
    /// Not offered: throws core::UnsupportedOperationException.
    void lookup(const char* path, File* file, LookupData* data) override;
    /// The cached file, a file being cached, or (with FLAG_DONT_CACHE) the
    /// source's own; throws FileNotFoundException when the path exists nowhere.
    File* lookup(const char* path, LookupData* data) override;
    bool supportsLookupData(const ::core::Type& type) const override;
    File* create(const char* path, bool overwrite) override;
    void remove(const char* path, unsigned flags) override;
    void touch(const char* path) override;
    using FileSystem::list;
    /// Lists the source; the entries read through the cache.
    void list(const char* path, FileList& out) const override;
    void list(const char* path, const char* pattern, FileList& out) const override;

    /// Deletes everything under the cache directory that is not in use;
    /// returns the bytes freed. `abort` may be set by another thread.
    unsigned long long clearCache(bool& abort);
    /// Deletes unfinished data files and their maps (not in use); returns
    /// the data files' bytes.
    unsigned long long cleanUpCache(bool& abort);
    /// Sum of the sizes of all files under the cache directory.
    unsigned long long getCacheSize();
    /// Deletes the cached copies (complete, partial, map, marker) of every
    /// cached path matching the pattern (relative to the cache root); returns
    /// how many paths were dropped.
    unsigned invalidate(const char* pattern);

    /// Marker path of a cached path: directory + "/.cdata/" + file name.
    static std::string markerPath(const char* path);
    /// Data file of a cached path: path + ".tcache".
    static std::string dataPath(const char* path);
    /// Map file of a data file: everything from its last "." replaced by ".tcmap".
    static std::string mapPath(const std::string& dataFilePath);

protected:
    friend class CacheFile;
    friend class SharedCacheInfo;

    bool needsCacheCheck(const char* path, const CachePolicy& policy);
    bool ensureMetaDataFile(const std::string& markerRelativePath);
    bool isCacheValid(const char* path, File*& source, LookupData* data, const CachePolicy& policy);
    bool smartExists(const char* path);
    File* createCacheFile(File* source);
    File* wrapLocal(File* local, const char* path);
    SharedCacheInfo* getSharedCacheInfo(const char* path, unsigned size, __int64 lastModified,
                                        CacheFile* cacheFile, bool lock);
    ::core::CriticalSection* getNextCSFromPool();
    void cacheFileDestroyed(const char* path, CacheFile* file);
    void localFileRequestDestroyed(const char* path);
    unsigned localRequests(const char* path) const;
    void addLocalRequest(const char* path);
    bool inUse(const std::string& relativePath) const;
    /// Waits (main critical section held, left while waiting) until no
    /// thread copies the path whole; true when it had to wait.
    bool waitForCopy(const char* path);
    /// Copies a file whole into the cache at `path`, atomically.
    void copyWhole(File* source, const char* path);
    /// Creates or touches the marker of a path: it was checked against the
    /// source now (a file fetched whole or just looked up in the source).
    void markChecked(const char* path);

private:
    ::core::SmartPtr<SimpleFileSystem> mLocalFS;
    ::core::SmartPtr<FileSystem> mSource;
    ::core::SmartPtr<FileSystem> mLastResortFS;
    mutable ::core::CriticalSection mCS;
    unsigned mMaxOpenFiles;
    unsigned mOpenFiles;
    bool mShuttingDown;
    ::core::Event mSlotEvent;
    unsigned mBufferSize;
    CachePolicy mDefaultPolicy;
    std::list<std::pair<std::string, CachePolicy>> mPolicies;
    std::map<std::string, SharedCacheInfo*> mSharedInfos;
    std::map<std::string, std::set<CacheFile*>> mOpenCacheFiles;
    mutable ::core::CriticalSection mLocalCS;
    std::map<std::string, unsigned> mLocalRequests;
    __int64 mSessionTime;
    /// Paths being copied whole, each with the event set when its copy ends.
    std::map<std::string, std::shared_ptr<::core::Event>> mCopying;
    struct RequestTracker;
    std::shared_ptr<RequestTracker> mTracker;
};

} // namespace vfs
} // namespace tarso
