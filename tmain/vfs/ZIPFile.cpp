#include <tmain/vfs/ZIPFile.h>

#include <tmain/foundation/Exception.h>
#include <tmain/stream/ZIPInputStream.h>
#include <tmain/vfs/TemporaryFileSystem.h>
#include <tmain/vfs/ZIPFileSystem.h>

namespace tarso {
namespace vfs {

const ::core::Type ZIPFile::TYPE("tarso::vfs::ZIPFile", &File::TYPE);

ZIPFile::ZIPFile(FileSystem* owner) : File("", owner), mArchive(nullptr) {}

ZIPFile::ZIPFile(const void* entry, const void* archive, FileSystem* owner)
    : File("", owner), mArchive(nullptr) {
    reset(entry, archive, owner);
}

ZIPFile::~ZIPFile() {}

void ZIPFile::reset(const void* entry, const void* archive, FileSystem* owner) {
    const ZIPEntry* e = static_cast<const ZIPEntry*>(entry);
    std::string path = owner ? owner->getRelativePath(e->name.c_str()) : "/" + e->name;
    reset(path.c_str(), entry, archive, owner);
}

void ZIPFile::reset(const char* path, const void* entry, const void* archive, FileSystem* owner) {
    setPath(path, owner);
    mEntry = *static_cast<const ZIPEntry*>(entry);
    mArchive = archive;
    mLocalPath.clear();
}

stream::InputStream* ZIPFile::getInputStream() {
    return new stream::ZIPInputStream(mEntry, mArchive, static_cast<ZIPFileSystem*>(getOwner()));
}

stream::OutputStream* ZIPFile::getOutputStream() {
    throw ::core::UnsupportedOperationException("ZIPFile::getOutputStream()");
}

const char* ZIPFile::getLocalPath() {
    if (mLocalPath.empty()) {
        TemporaryFileSystem* tfs = TemporaryFileSystem::getSingleton();
        unsigned flags = FileSystem::COPY_OVERWRITE | (isContainer() ? FileSystem::COPY_DEEP : 0);
        ::core::SmartPtr<File> copied(tfs->copy(this, flags, nullptr));
        mLocalPath = tfs->getAbsolutePath(getPath());
    }
    return mLocalPath.c_str();
}

unsigned ZIPFile::getSize() {
    return mEntry.uncompressedSize >= 0xFFFFFFFFull ? 0xFFFFFFFFu : (unsigned)mEntry.uncompressedSize;
}

void ZIPFile::list(const char* pattern, FileList& out) {
    getOwner()->list(getPath(), pattern, out);
}

void ZIPFile::list(FileList& out) {
    getOwner()->list(getPath(), out);
}

} // namespace vfs
} // namespace tarso
