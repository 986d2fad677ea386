#include <tmain/vfs/CacheFile.h>

#include <memory>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/CacheFileSystem.h>
#include <tmain/vfs/CacheInputStream.h>
#include <tmain/vfs/SharedCacheInfo.h>
#include <vector>

namespace tarso {
namespace vfs {

const ::core::Type CacheFile::TYPE("tarso::vfs::CacheFile", &SimpleFile::TYPE);

CacheFile::CacheFile(File* source, CacheFileSystem* owner)
    : SimpleFile(CacheFileSystem::dataPath(source->getPath()).c_str(), owner->getLocalFileSystem()),
      mSource(source), mCompleted(false), mCacheFS(owner), mSourcePath(source->getPath()) {}

CacheFile::~CacheFile() {
    if (mCacheFS)
        mCacheFS->cacheFileDestroyed(mSourcePath.c_str(), this);
}

void CacheFile::setCacheInfo(SharedCacheInfo* info) {
    mInfo = info;
}

stream::InputStream* CacheFile::getInputStream() {
    return new stream::CacheInputStream(this);
}

unsigned CacheFile::getSize() {
    return mInfo ? mInfo->getSize() : SimpleFile::getSize();
}

__int64 CacheFile::getLastModified() const {
    return mSource->getLastModified();
}

const char* CacheFile::getLocalPath() {
    if (!mInfo)
        throw stream::IOException("Unable to get local path for cached file: '%s'", mSourcePath.c_str());
    ::core::Lock lock(mInfo->getCS());
    if (!mCompleted && !mInfo->checkFileCompleted()) {
        // Fetch every missing range by reading the whole file once.
        std::unique_ptr<stream::InputStream> in(getInputStream());
        in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
        std::vector<unsigned char> buffer(mInfo->getBufferSize());
        while (in->read(buffer.data(), 1, (unsigned)buffer.size()) > 0) {
        }
        in->close();
        if (!mInfo->checkFileCompleted())
            throw stream::IOException("Unable to get local path for cached file: '%s'", mSourcePath.c_str());
    }
    if (!mCompleted) {
        reset(mSourcePath.c_str(), getOwner());
        mCompleted = true;
    }
    return getAbsolutePath();
}

} // namespace vfs
} // namespace tarso
