#pragma once
#include <tmain/foundation/SmartPtr.h>
#include <tmain/vfs/SimpleFile.h>

namespace tarso {
namespace vfs {

class CacheFileSystem;
class SharedCacheInfo;

/// A file being cached: a local file of the cache at the source's path plus
/// ".tcache", read through a CacheInputStream that fetches missing ranges
/// from the source. Once complete it is re-aimed at the completed name.
class TMAIN_API CacheFile : public SimpleFile {
    TMAIN_TYPE()
public:
    CacheFile(File* source, CacheFileSystem* owner);
    ~CacheFile() override;

    File* getSource() const { return mSource.get(); }
    SharedCacheInfo* getCacheInfo() const { return mInfo.get(); }
    void setCacheInfo(SharedCacheInfo* info);
    CacheFileSystem* getCacheFileSystem() const { return mCacheFS; }
    bool isCompleted() const { return mCompleted; }

    /// A new CacheInputStream (unopened).
    stream::InputStream* getInputStream() override;
    /// The local path of the complete file, fetching every missing range first.
    const char* getLocalPath() override;
    /// The source's size and time: the data file is pre-sized and its time is ours.
    unsigned getSize() override;
    __int64 getLastModified() const override;
    bool exists() const override { return true; }

private:
    friend class CacheFileSystem;
    ::core::SmartPtr<File> mSource;
    ::core::SmartPtr<SharedCacheInfo> mInfo;
    bool mCompleted;
    CacheFileSystem* mCacheFS; ///< null once the cache file system went away
    std::string mSourcePath;
};

} // namespace vfs
} // namespace tarso
