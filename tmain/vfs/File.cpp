#include <tmain/vfs/File.h>

#include <cstring>
#include <tmain/foundation/Exception.h>
#include <tmain/vfs/FileList.h>
#include <tmain/vfs/FileSystem.h>

namespace tarso {
namespace vfs {

const ::core::Type File::TYPE("tarso::vfs::File", &core::Object::TYPE);

File::File(const char* path, FileSystem* owner) : mOwner(nullptr) {
    setPath(path, owner);
}

File::File(const File& other)
    : core::Object(other), mPath(other.mPath), mAbsolutePath(other.mAbsolutePath),
      mDirectory(other.mDirectory), mLocalPath(other.mLocalPath), mOwner(other.mOwner) {}

File& File::operator=(const File& other) {
    if (this != &other) {
        mPath = other.mPath;
        mAbsolutePath = other.mAbsolutePath;
        mDirectory = other.mDirectory;
        mLocalPath = other.mLocalPath;
        mOwner = other.mOwner;
    }
    return *this;
}

File::~File() {}

void File::setPath(const char* path, FileSystem* owner) {
    mPath = path ? path : "";
    mOwner = owner;
    mAbsolutePath = owner ? owner->getAbsolutePath(mPath.c_str()) : mPath;
    mDirectory.clear();
    mLocalPath.clear();
}

const char* File::getFile() const {
    return getFile(mAbsolutePath.c_str());
}

const char* File::getDirectory() const {
    if (mDirectory.empty())
        getDirectory(mPath.c_str(), mDirectory);
    return mDirectory.c_str();
}

const char* File::getLocalPath() {
    if (mLocalPath.empty())
        mLocalPath = FileSystem::getTemporaryPath(this);
    return mLocalPath.c_str();
}

void File::list(const char*, FileList&) {
    throw ::core::UnsupportedOperationException("File '%s' is not a container", getPath());
}

void File::list(FileList&) {
    throw ::core::UnsupportedOperationException("File '%s' is not a container", getPath());
}

bool File::setLastModified(__int64) {
    return false;
}
bool File::setLastAccessed(__int64) {
    return false;
}
bool File::setCreated(__int64) {
    return false;
}

FileSystem* File::asFileSystem() {
    throw ::core::UnsupportedOperationException("File::asFileSystem()");
}

const char* File::getFile(const char* path) {
    if (!path)
        return path;
    const char* slash = strrchr(path, '/');
    return slash ? slash + 1 : path;
}

void File::getDirectory(const char* path, std::string& out) {
    const char* slash = path ? strrchr(path, '/') : nullptr;
    if (slash)
        out.assign(path, (size_t)(slash - path));
    else
        out.clear();
}

} // namespace vfs
} // namespace tarso
