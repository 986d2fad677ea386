#include <tmain/vfs/CacheFileSystem.h>

#include <cstring>
#include <ctime>
#include <memory>
#include <mutex>
#include <tmain/foundation/Logger.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>
#include <tmain/vfs/CacheFile.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/FileWrapper.h>
#include <tmain/vfs/SharedCacheInfo.h>

namespace tarso {
namespace vfs {

using logging::Logger;
using platform::FileOperations;

const ::core::Type CacheFileSystem::TYPE("tarso::vfs::CacheFileSystem", &FileSystem::TYPE);

const CacheFileSystem::CachePolicy CacheFileSystem::CachePolicy::DEFAULT(86400, 0);
const CacheFileSystem::CachePolicy CacheFileSystem::CachePolicy::ALLWAYSEXPIRE(0, 0);

namespace {

// A listed entry of the source, read through the cache on demand.
class CacheListedFile : public File {
public:
    CacheListedFile(File* source, CacheFileSystem* owner) : File(source->getPath(), owner), mSource(source) {}
    stream::InputStream* getInputStream() override {
        ::core::SmartPtr<File> f(getOwner()->lookup(getPath(), nullptr));
        mResolved = f; // the stream's file lives as long as this entry
        return f->getInputStream();
    }
    stream::OutputStream* getOutputStream() override { return mSource->getOutputStream(); }
    bool isContainer() const override { return mSource->isContainer(); }
    void list(const char* pattern, FileList& out) override { getOwner()->list(getPath(), pattern, out); }
    void list(FileList& out) override { getOwner()->list(getPath(), out); }
    bool exists() const override { return true; }
    __int64 getLastModified() const override { return mSource->getLastModified(); }
    __int64 getLastAccessed() const override { return mSource->getLastAccessed(); }
    __int64 getCreated() const override { return mSource->getCreated(); }
    unsigned getSize() override { return mSource->getSize(); }

private:
    ::core::SmartPtr<File> mSource;
    ::core::SmartPtr<File> mResolved;
};

__int64 now() {
    return (__int64)time(nullptr);
}

} // namespace

// What the wrappers of local files call back through: it outlives the cache
// file system, which cuts it loose when it goes.
struct CacheFileSystem::RequestTracker {
    std::mutex mutex;
    CacheFileSystem* owner;
};

CacheFileSystem::CacheFileSystem(const char* cachePath, FileSystem* source, const CachePolicy& defaultPolicy,
                                 unsigned bufferSize, unsigned maxOpenFiles)
    : mLocalFS(new SimpleFileSystem(cachePath)), mSource(source),
      mMaxOpenFiles(maxOpenFiles ? maxOpenFiles : 1), mOpenFiles(0), mShuttingDown(false),
      mSlotEvent(true, false), mBufferSize(bufferSize ? bufferSize : 65536), mDefaultPolicy(defaultPolicy),
      mSessionTime(now()), mTracker(std::make_shared<RequestTracker>()) {
    mTracker->owner = this;
    FileOperations::ensurePath((std::string(mLocalFS->getRootPath()) + "/x").c_str());
}

CacheFileSystem::~CacheFileSystem() {
    {
        // Wrappers released from now on no longer reach this object.
        std::lock_guard<std::mutex> g(mTracker->mutex);
        mTracker->owner = nullptr;
    }
    std::map<std::string, SharedCacheInfo*> infos;
    {
        ::core::Lock lock(mCS);
        mShuttingDown = true;
        mSlotEvent.set();
        unsigned leaked = 0;
        {
            ::core::Lock local(mLocalCS);
            for (auto& kv : mLocalRequests)
                leaked += kv.second;
        }
        if (leaked)
            Logger::mROOT_LOGGER.warn("%d local file requests leaked!", leaked);
        // Files still alive are cut loose: their state is saved now and they
        // no longer call back into this object.
        for (auto& kv : mOpenCacheFiles) {
            Logger::mROOT_LOGGER.warn("CacheFileSystem leak: '%s'", kv.first.c_str());
            for (CacheFile* f : kv.second)
                f->mCacheFS = nullptr;
        }
        mOpenCacheFiles.clear();
        infos.swap(mSharedInfos);
    }
    for (auto& kv : infos) {
        kv.second->finish();
        kv.second->decRef();
    }
}

void CacheFileSystem::setLastChanceFS(FileSystem* fs) {
    ::core::Lock lock(mCS);
    mLastResortFS = fs;
}

void CacheFileSystem::setSessionTime(__int64 t) {
    ::core::Lock lock(mCS);
    mSessionTime = t;
}

__int64 CacheFileSystem::getSessionTime() const {
    ::core::Lock lock(mCS);
    return mSessionTime;
}

unsigned CacheFileSystem::getOpenFileCount() const {
    ::core::Lock lock(mCS);
    return mOpenFiles;
}

// ------------------------------------------------------------------ policies

void CacheFileSystem::setPolicy(const char* pattern, const CachePolicy& policy) {
    ::core::Lock lock(mCS);
    for (auto& p : mPolicies)
        if (p.first == pattern) {
            p.second = policy;
            return;
        }
    mPolicies.emplace_back(pattern, policy);
}

bool CacheFileSystem::hasPolicy(const char* pattern) const {
    ::core::Lock lock(mCS);
    for (auto& p : mPolicies)
        if (p.first == pattern)
            return true;
    return false;
}

bool CacheFileSystem::removePolicy(const char* pattern) {
    ::core::Lock lock(mCS);
    for (auto it = mPolicies.begin(); it != mPolicies.end(); ++it)
        if (it->first == pattern) {
            mPolicies.erase(it);
            return true;
        }
    return false;
}

CacheFileSystem::CachePolicy CacheFileSystem::getPolicy(const char* path) const {
    ::core::Lock lock(mCS);
    for (auto& p : mPolicies)
        if (FileOperations::match(p.first.c_str(), path))
            return p.second;
    return mDefaultPolicy;
}

void CacheFileSystem::setDefaultPolicy(const CachePolicy& policy) {
    ::core::Lock lock(mCS);
    mDefaultPolicy = policy;
}

CacheFileSystem::CachePolicy CacheFileSystem::getDefaultPolicy() const {
    ::core::Lock lock(mCS);
    return mDefaultPolicy;
}

// ------------------------------------------------------------------ paths

std::string CacheFileSystem::markerPath(const char* path) {
    std::string dir;
    File::getDirectory(path, dir);
    return dir + "/.cdata/" + File::getFile(path);
}

std::string CacheFileSystem::dataPath(const char* path) {
    return std::string(path) + ".tcache";
}

std::string CacheFileSystem::mapPath(const std::string& dataFilePath) {
    size_t dot = dataFilePath.rfind('.');
    size_t slash = dataFilePath.find_last_of("/\\");
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return dataFilePath + ".tcmap";
    return dataFilePath.substr(0, dot) + ".tcmap";
}

// ------------------------------------------------------------------ file system operations

bool CacheFileSystem::exists(const char* path) const {
    if (mLocalFS->exists(path))
        return true;
    ::core::SmartPtr<FileSystem> lastChance;
    {
        ::core::Lock lock(mCS);
        lastChance = mLastResortFS;
    }
    if (lastChance && lastChance->exists(path))
        return true;
    return mSource->exists(path);
}

bool CacheFileSystem::isContainer(const char* path) const {
    return mLocalFS->isContainer(path);
}
std::string CacheFileSystem::getAbsolutePath(const char* path) {
    return mLocalFS->getAbsolutePath(path);
}
std::string CacheFileSystem::getRelativePath(const char* path) {
    return mLocalFS->getRelativePath(path);
}
File* CacheFileSystem::create(const char* path, bool overwrite) {
    return mLocalFS->create(path, overwrite);
}
void CacheFileSystem::remove(const char* path, unsigned flags) {
    mLocalFS->remove(path, flags);
}
void CacheFileSystem::touch(const char* path) {
    mLocalFS->touch(path);
}

bool CacheFileSystem::supportsLookupData(const ::core::Type& type) const {
    return mSource->supportsLookupData(type);
}

void CacheFileSystem::lookup(const char*, File*, LookupData*) {
    throw ::core::UnsupportedOperationException("CacheFileSystem::lookup(path, file, data)");
}

void CacheFileSystem::list(const char* path, FileList& out) const {
    list(path, "*", out);
}

void CacheFileSystem::list(const char* path, const char* pattern, FileList& out) const {
    FileList sourceEntries(true);
    mSource->list(path, pattern, sourceEntries);
    CacheFileSystem* self = const_cast<CacheFileSystem*>(this);
    for (File* f : sourceEntries)
        if (f)
            out.add(new CacheListedFile(f, self));
}

// ------------------------------------------------------------------ local requests

unsigned CacheFileSystem::localRequests(const char* path) const {
    ::core::Lock lock(mLocalCS);
    auto it = mLocalRequests.find(path);
    return it == mLocalRequests.end() ? 0 : it->second;
}

void CacheFileSystem::addLocalRequest(const char* path) {
    ::core::Lock lock(mLocalCS);
    ++mLocalRequests[path];
}

void CacheFileSystem::localFileRequestDestroyed(const char* path) {
    ::core::Lock lock(mLocalCS);
    auto it = mLocalRequests.find(path);
    if (it != mLocalRequests.end() && --it->second == 0)
        mLocalRequests.erase(it);
}

File* CacheFileSystem::wrapLocal(File* local, const char* path) {
    // A wrapper may outlive this file system: it reports its release through
    // the tracker, which forgets this object when it is destroyed.
    std::string key = path;
    std::shared_ptr<RequestTracker> tracker = mTracker;
    return new FileWrapper(local, FileWrapper::FE_DESTROYED,
                           FileWrapper::EventCallback([tracker, key](FileWrapper::FileEvent, File*) {
                               std::lock_guard<std::mutex> g(tracker->mutex);
                               if (tracker->owner)
                                   tracker->owner->localFileRequestDestroyed(key.c_str());
                           }));
}

bool CacheFileSystem::waitForCopy(const char* path) {
    // Called with the main critical section held; left while waiting.
    bool waited = false;
    for (;;) {
        auto it = mCopying.find(path);
        if (it == mCopying.end())
            return waited;
        std::shared_ptr<::core::Event> done = it->second;
        ::core::Unlock unlock(mCS);
        done->wait();
        waited = true;
    }
}

void CacheFileSystem::copyWhole(File* source, const char* path) {
    // The copy is made under a name of its own (a live data file of the same
    // path may exist) and renamed into place, so the plain name never holds
    // a partial file, even after a crash.
    std::string tmp = dataPath(path) + ".part";
    std::string tmpAbs = mLocalFS->getAbsolutePath(tmp.c_str());
    std::string abs = mLocalFS->getAbsolutePath(path);
    try {
        ::core::SmartPtr<File> dest(mLocalFS->create(tmp.c_str(), true));
        ::core::SmartPtr<File> copied(mLocalFS->copy(source, COPY_OVERWRITE, dest.get()));
        if (FileOperations::exists(abs.c_str()))
            FileOperations::remove(abs.c_str(), 0);
        if (!FileOperations::rename(tmpAbs.c_str(), abs.c_str()))
            throw stream::IOException("Unable to rename cached file from '%s' to '%s'", tmpAbs.c_str(),
                                      abs.c_str());
    } catch (...) {
        if (FileOperations::exists(tmpAbs.c_str()))
            FileOperations::remove(tmpAbs.c_str(), 0);
        throw;
    }
}

bool CacheFileSystem::inUse(const std::string& relativePath) const {
    // Called with the main critical section held.
    if (localRequests(relativePath.c_str()) > 0)
        return true;
    return mSharedInfos.count(relativePath) != 0 || mCopying.count(relativePath) != 0;
}

// ------------------------------------------------------------------ validation

bool CacheFileSystem::ensureMetaDataFile(const std::string& marker) {
    if (mLocalFS->exists(marker.c_str()))
        return false;
    std::string abs = mLocalFS->getAbsolutePath(marker.c_str());
    FileOperations::ensurePath(abs.c_str());
    ::core::SmartPtr<File> f(mLocalFS->create(marker.c_str(), true));
    std::unique_ptr<stream::OutputStream> out(f->getOutputStream());
    out->open(stream::Stream::OM_WRITE | stream::Stream::OM_TRUNCATE | stream::Stream::OM_BINARY);
    out->close();
    return true;
}

bool CacheFileSystem::needsCacheCheck(const char* path, const CachePolicy& policy) {
    std::string marker = markerPath(path);
    bool created = ensureMetaDataFile(marker);
    __int64 lastCheck = FileOperations::getLastModTime(mLocalFS->getAbsolutePath(marker.c_str()).c_str());
    __int64 t = now();
    bool due = false;
    if (policy.getExpirationTime() >= 0 && t - lastCheck >= policy.getExpirationTime())
        due = true;
    else if (created || lastCheck < mSessionTime)
        due = true;
    if (due)
        FileOperations::touch(mLocalFS->getAbsolutePath(marker.c_str()).c_str());
    return due;
}

void CacheFileSystem::markChecked(const char* path) {
    // Takes no lock: also called under a file's own critical section, and it
    // only touches the disk.
    std::string marker = markerPath(path);
    if (!ensureMetaDataFile(marker))
        FileOperations::touch(mLocalFS->getAbsolutePath(marker.c_str()).c_str());
}

bool CacheFileSystem::smartExists(const char* path) {
    if (mLocalFS->exists(path))
        return true;
    if (!mLastResortFS)
        return false;
    try {
        ::core::SmartPtr<FileSystem> lastChance = mLastResortFS;
        if (lastChance->exists(path)) {
            ::core::SmartPtr<File> f(lastChance->lookup(path, nullptr));
            copyWhole(f.get(), path);
        }
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.warn("CacheFileSystem::smartExists: error copying from mLastResortFS", &e);
    }
    return mLocalFS->exists(path);
}

bool CacheFileSystem::isCacheValid(const char* path, File*& source, LookupData* data,
                                   const CachePolicy& policy) {
    ::core::Lock lock(mCS);
    waitForCopy(path);
    if (!smartExists(path))
        return false;
    bool valid = true;
    if (localRequests(path) == 0) {
        __int64 localTime = FileOperations::getLastModTime(mLocalFS->getAbsolutePath(path).c_str());
        if (needsCacheCheck(path, policy)) {
            ::core::SmartPtr<File> found;
            bool notFound = false;
            try {
                ::core::Unlock unlock(mCS);
                found = mSource->lookup(path, data);
            } catch (const FileNotFoundException&) {
                notFound = true;
            } catch (const ::core::Exception& e) {
                Logger::mROOT_LOGGER.warn("Error retrieving source file '%s'. Keeping locally cached data",
                                          &e, path);
            }
            if (notFound) {
                Logger::mROOT_LOGGER.warn("File not found in source FS: '%s'. Removing locally cached data",
                                          path);
                valid = false;
            } else if (found) {
                bool held = localRequests(path) > 0;
                if (!mLocalFS->exists(path))
                    valid = false;
                else if (found->getLastModified() > localTime && !held)
                    valid = false;
                if (!valid)
                    source = found.detach();
            }
            if (!valid && mLocalFS->exists(path) && !inUse(path)) {
                Logger::mROOT_LOGGER.info("Removing expired cache file '%s'", path);
                try {
                    mLocalFS->remove(path, 0);
                } catch (const ::core::Exception& e) {
                    Logger::mROOT_LOGGER.warn("Unable to remove expired cache file '%s'", &e, path);
                }
            }
        }
    }
    if (valid)
        addLocalRequest(path);
    return valid;
}

// ------------------------------------------------------------------ lookup

File* CacheFileSystem::lookup(const char* path, LookupData* data) {
    CachePolicy policy = getPolicy(path);
    File* checked = nullptr;
    if (isCacheValid(path, checked, data, policy)) {
        try {
            ::core::SmartPtr<File> local(mLocalFS->lookup(path, nullptr));
            return wrapLocal(local.detach(), path);
        } catch (...) {
            localFileRequestDestroyed(path);
            throw;
        }
    }
    ::core::SmartPtr<File> source(checked);
    if (!source)
        source = mSource->lookup(path, data);
    if (!source)
        throw FileNotFoundException(::core::formatMessagef("File '%s' does not exist", path).c_str());
    if (policy.hasFlag(CachePolicy::FLAG_DONT_CACHE))
        return source.detach();
    {
        // The source was just consulted: that counts as a check.
        ::core::Lock lock(mCS);
        markChecked(path);
    }
    return createCacheFile(source.get());
}

File* CacheFileSystem::createCacheFile(File* source) {
    ::core::SmartPtr<File> keepSource(source);
    const char* path = source->getPath();
    unsigned size = source->getSize();
    if (size != 0) {
        ::core::SmartPtr<CacheFile> file(new CacheFile(source, this));
        ::core::Lock lock(mCS);
        try {
            SharedCacheInfo* info =
                getSharedCacheInfo(path, size, source->getLastModified(), file.get(), false);
            file->setCacheInfo(info);
        } catch (...) {
            file->mCacheFS = nullptr; // it never became one of ours
            throw;
        }
        mOpenCacheFiles[path].insert(file.get());
        return file.detach();
    }
    // Unknown or empty size: the file is copied whole. One thread copies
    // while the others wait for it, and a copy held by someone is never
    // replaced under them.
    ::core::Lock lock(mCS);
    // A copy that ended while we waited is as fresh as ours would be.
    bool justCopied = waitForCopy(path) && mLocalFS->exists(path);
    if (!justCopied && localRequests(path) == 0) {
        std::shared_ptr<::core::Event> done = std::make_shared<::core::Event>(true, false);
        mCopying[path] = done;
        try {
            ::core::Unlock unlock(mCS);
            copyWhole(source, path);
        } catch (...) {
            mCopying.erase(path);
            done->set();
            throw;
        }
        mCopying.erase(path);
        done->set();
    }
    ::core::SmartPtr<File> local(mLocalFS->lookup(path, nullptr));
    addLocalRequest(path);
    return wrapLocal(local.detach(), path);
}

SharedCacheInfo* CacheFileSystem::getSharedCacheInfo(const char* path, unsigned size, __int64 lastModified,
                                                     CacheFile* cacheFile, bool lock) {
    std::unique_ptr<::core::Lock> guard(lock ? new ::core::Lock(mCS) : nullptr);
    auto it = mSharedInfos.find(path);
    if (it == mSharedInfos.end()) {
        std::unique_ptr<::core::CriticalSection> cs(getNextCSFromPool());
        // Waiting for the slot left the lock: another thread may have made
        // the info meanwhile, and then the slot goes back.
        it = mSharedInfos.find(path);
        if (it == mSharedInfos.end()) {
            SharedCacheInfo* info;
            try {
                info = new SharedCacheInfo(cacheFile, size, lastModified, this, cs.get(), mBufferSize);
            } catch (...) {
                --mOpenFiles;
                mSlotEvent.set();
                throw;
            }
            cs.release();
            info->addRef(); // the map's reference
            it = mSharedInfos.emplace(path, info).first;
        } else {
            --mOpenFiles;
            mSlotEvent.set();
        }
    }
    it->second->addUser();
    return it->second;
}

::core::CriticalSection* CacheFileSystem::getNextCSFromPool() {
    while (mOpenFiles >= mMaxOpenFiles && !mShuttingDown) {
        Logger::mROOT_LOGGER.info("Maximum number of opened files reached. Waiting for available slot...");
        mSlotEvent.reset();
        {
            ::core::Unlock unlock(mCS);
            mSlotEvent.wait();
        }
    }
    if (mShuttingDown) {
        Logger::mROOT_LOGGER.warn("Unable to create new CacheFile. Maximum number of opened files reached.");
        throw ::core::IllegalStateException("CacheFileSystem is shutting down. CacheFile creation aborted");
    }
    Logger::mROOT_LOGGER.info("CacheFile slot obtained.");
    ++mOpenFiles;
    return new ::core::CriticalSection();
}

void CacheFileSystem::cacheFileDestroyed(const char* path, CacheFile* file) {
    ::core::Lock lock(mCS);
    auto open = mOpenCacheFiles.find(path);
    if (open != mOpenCacheFiles.end()) {
        open->second.erase(file);
        if (open->second.empty())
            mOpenCacheFiles.erase(open);
    }
    auto it = mSharedInfos.find(path);
    if (it == mSharedInfos.end()) {
        Logger::mROOT_LOGGER.warn("No shared cache info existed for file '%s'", path);
        return;
    }
    SharedCacheInfo* info = it->second;
    unsigned users = info->removeUser();
    Logger::mROOT_LOGGER.info("Cache file destroyed (%d references left): '%s'", users, path);
    if (users > 0)
        return;
    if (!info->getCS().tryEnter()) {
        Logger::mROOT_LOGGER.warn("SharedCacheInfo returned with critical section locked for file '%s'",
                                  path);
    } else {
        info->getCS().leave();
    }
    info->finish();
    mSharedInfos.erase(it);
    info->decRef();
    --mOpenFiles;
    mSlotEvent.set();
}

// ------------------------------------------------------------------ maintenance

namespace {

struct Walk {
    std::vector<std::string> files; // absolute paths
    std::vector<std::string> dirs;  // absolute paths, parents first
};

// The full paths of a directory's entries.
std::vector<std::string> entriesOf(const std::string& dir) {
    std::vector<std::string> entries;
    FileOperations::iterateContents(dir.c_str(), "*", &entries, [](const char* name, void* user) {
        static_cast<std::vector<std::string>*>(user)->push_back(name);
    });
    return entries;
}

void collect(const std::string& dir, Walk& walk) {
    for (const std::string& e : entriesOf(dir)) {
        if (FileOperations::isDirectory(e.c_str())) {
            walk.dirs.push_back(e);
            collect(e, walk);
        } else {
            walk.files.push_back(e);
        }
    }
}

// The cached path a local file belongs to: its relative path with anything
// from the first ".tcache" or ".tcmap" on removed; markers map to nothing.
std::string cachedPathOf(const std::string& relative) {
    std::string r = relative;
    size_t cut = std::min(r.find(".tcache"), r.find(".tcmap"));
    if (cut != std::string::npos)
        r.erase(cut);
    return r;
}

std::string relativeTo(const std::string& root, const std::string& abs) {
    if (abs.compare(0, root.size(), root) == 0) {
        std::string r = abs.substr(root.size());
        while (!r.empty() && (r[0] == '/' || r[0] == '\\'))
            r.erase(0, 1);
        return r;
    }
    return abs;
}

bool isMarker(const std::string& relative) {
    return relative.compare(0, 7, ".cdata/") == 0 || relative.find("/.cdata/") != std::string::npos;
}

} // namespace

unsigned long long CacheFileSystem::clearCache(bool& abort) {
    std::string root = mLocalFS->getRootPath();
    unsigned long long freed = 0;
    Logger::mROOT_LOGGER.info("Clearing cache at '%s'", root.c_str());
    try {
        ::core::Lock lock(mCS);
        Walk walk;
        collect(root, walk);
        for (const std::string& f : walk.files) {
            if (abort)
                throw ::core::IllegalStateException("aborted");
            std::string rel = relativeTo(root, f);
            if (!isMarker(rel) && inUse(cachedPathOf(rel)))
                continue;
            __int64 size = FileOperations::getSize(f.c_str());
            if (FileOperations::remove(f.c_str(), 0))
                freed += (unsigned long long)size;
        }
        Logger::mROOT_LOGGER.info("Removing local directories...");
        for (auto it = walk.dirs.rbegin(); it != walk.dirs.rend(); ++it) {
            if (abort)
                throw ::core::IllegalStateException("aborted");
            if (FileOperations::isDirectoryEmpty(it->c_str()) && !FileOperations::remove(it->c_str(), 0))
                Logger::mROOT_LOGGER.warn("Unable to delete cached directory '%s'", it->c_str());
        }
        Logger::mROOT_LOGGER.info("Cache cleared at '%s' (%lluKB freed)", root.c_str(), freed / 1024);
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error("Error clearing cache at '%s'. Operation aborted (%llu total KB freed).",
                                   &e, root.c_str(), freed / 1024);
    }
    return freed;
}

unsigned long long CacheFileSystem::cleanUpCache(bool& abort) {
    std::string root = mLocalFS->getRootPath();
    unsigned long long freed = 0;
    try {
        ::core::Lock lock(mCS);
        Walk walk;
        collect(root, walk);
        for (const std::string& f : walk.files) {
            if (abort)
                throw ::core::IllegalStateException("aborted");
            // Leftovers of interrupted whole copies and map saves go too.
            bool leftover = FileOperations::match("*.tcache.part", f.c_str()) ||
                            FileOperations::match("*.tcmap.tmp", f.c_str());
            if (!leftover && !FileOperations::match("*.tcache", f.c_str()))
                continue;
            std::string rel = relativeTo(root, f);
            if (inUse(cachedPathOf(rel)))
                continue;
            if (leftover) {
                FileOperations::remove(f.c_str(), 0);
                continue;
            }
            // processCleanUpFile: the data file and its map.
            __int64 size = FileOperations::getSize(f.c_str());
            if (FileOperations::remove(f.c_str(), 0))
                freed += (unsigned long long)size;
            std::string map = mapPath(f);
            if (FileOperations::exists(map.c_str()))
                FileOperations::remove(map.c_str(), 0);
        }
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error("Error cleaningUp cache at '%s'. Operation aborted", &e, root.c_str());
    }
    return freed;
}

unsigned long long CacheFileSystem::getCacheSize() {
    std::string root = mLocalFS->getRootPath();
    unsigned long long total = 0;
    Logger::mROOT_LOGGER.info("Computing cache size at '%s'", root.c_str());
    try {
        Walk walk;
        collect(root, walk);
        for (const std::string& f : walk.files)
            total += (unsigned long long)FileOperations::getSize(f.c_str());
        Logger::mROOT_LOGGER.info("Cache size computed for '%s': %lluKB", root.c_str(), total / 1024);
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error(
            "Error computing cache size at '%s'. Operation aborted (%llu KB computed so far).", &e,
            root.c_str(), total / 1024);
    }
    return total;
}

unsigned CacheFileSystem::invalidate(const char* pattern) {
    std::string root = mLocalFS->getRootPath();
    unsigned count = 0;
    try {
        ::core::Lock lock(mCS);
        std::vector<std::string> pending{root};
        std::set<std::string> matched;
        while (!pending.empty()) {
            std::string dir = pending.back();
            pending.pop_back();
            for (const std::string& e : entriesOf(dir)) {
                try {
                    std::string rel = relativeTo(root, e);
                    std::string name = cachedPathOf(rel);
                    if (FileOperations::match(pattern, name.c_str()) && !isMarker(rel)) {
                        matched.insert(name);
                    } else if (FileOperations::isDirectory(e.c_str()) &&
                               strcmp(FileOperations::getFile(e.c_str()), ".cdata") != 0) {
                        pending.push_back(e);
                    }
                } catch (const ::core::Exception& ex) {
                    Logger::mROOT_LOGGER.warn("Iteration failed for element", &ex);
                }
            }
        }
        for (const std::string& name : matched) {
            if (inUse(name)) {
                Logger::mROOT_LOGGER.info("CacheFileSystem::invalidate: '%s' is in use, kept", name.c_str());
                continue;
            }
            std::string data = dataPath(name.c_str());
            const std::string parts[4] = {name, data, mapPath(data), markerPath(name.c_str())};
            for (const std::string& p : parts) {
                std::string abs = mLocalFS->getAbsolutePath(p.c_str());
                if (FileOperations::exists(abs.c_str()) && !FileOperations::isDirectory(abs.c_str()))
                    FileOperations::remove(abs.c_str(), 0);
            }
            ++count;
        }
    } catch (const ::core::Exception& e) {
        Logger::mROOT_LOGGER.error("CacheFileSystem::invalidate:failed", &e);
    }
    return count;
}

} // namespace vfs
} // namespace tarso
