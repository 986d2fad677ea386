#include <tmain/vfs/HTTPFile.h>

#include <tmain/stream/HTTPInputStream.h>
#include <tmain/vfs/HTTPFileSystem.h>

namespace tarso {
namespace vfs {

const ::core::Type HTTPFile::TYPE("tarso::vfs::HTTPFile", &File::TYPE);

HTTPFile::HTTPFile(const char* path, HTTPFileSystem* owner, unsigned size, __int64 time, HTTPData* data)
    : File(path, owner), mSize(size), mTime(time), mData(data) {}

HTTPFile::~HTTPFile() {}

HTTPFileSystem* HTTPFile::getHTTPFileSystem() const {
    return static_cast<HTTPFileSystem*>(getOwner());
}

stream::InputStream* HTTPFile::getInputStream() {
    HTTPFileSystem* fs = getHTTPFileSystem();
    return new stream::HTTPInputStream(fs->getConnection(), fs->getServerPath(getPath()).c_str(), fs,
                                       (long)mSize, mData.get());
}

stream::OutputStream* HTTPFile::getOutputStream() {
    throw ::core::UnsupportedOperationException("HTTPFile::getOutputStream()");
}

bool HTTPFile::exists() const {
    return getHTTPFileSystem()->exists(getPath());
}

FileSystem* HTTPFile::asFileSystem() {
    HTTPFileSystem* fs = getHTTPFileSystem();
    return new HTTPFileSystem(getAbsolutePath(), fs->getLookupTimeout(), fs->getReadTimeout());
}

void HTTPFile::reset(const char* path, unsigned size, __int64 time, HTTPData* data) {
    setPath(path, getOwner());
    mSize = size;
    mTime = time;
    mData = data;
}

} // namespace vfs
} // namespace tarso
