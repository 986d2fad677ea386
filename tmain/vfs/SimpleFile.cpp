#include <tmain/vfs/SimpleFile.h>

#include <tmain/platform/FileOperations.h>
#include <tmain/stream/FileInputStream.h>
#include <tmain/stream/FileOutputStream.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/FileList.h>
#include <tmain/vfs/SimpleFileSystem.h>

namespace tarso {
namespace vfs {

using platform::FileOperations;

const ::core::Type SimpleFile::TYPE("tarso::vfs::SimpleFile", &File::TYPE);

SimpleFile::SimpleFile(const char* path, FileSystem* owner) : File(path, owner) {}

SimpleFile::~SimpleFile() {}

stream::InputStream* SimpleFile::getInputStream() {
    return new stream::FileInputStream(getAbsolutePath(), 4096);
}

stream::OutputStream* SimpleFile::getOutputStream() {
    if (!FileOperations::ensurePath(getAbsolutePath()))
        throw stream::IOException("Unable to create directory for path");
    return new stream::FileOutputStream(getAbsolutePath());
}

bool SimpleFile::isContainer() const {
    return SimpleFileSystem::_isContainer(getAbsolutePath());
}
bool SimpleFile::exists() const {
    return SimpleFileSystem::_exists(getAbsolutePath());
}

__int64 SimpleFile::getLastModified() const {
    return FileOperations::getLastModTime(getAbsolutePath());
}
bool SimpleFile::setLastModified(__int64 t) {
    return FileOperations::setLastModTime(getAbsolutePath(), t);
}
__int64 SimpleFile::getLastAccessed() const {
    return FileOperations::getLastAccTime(getAbsolutePath());
}
bool SimpleFile::setLastAccessed(__int64 t) {
    return FileOperations::setLastAccTime(getAbsolutePath(), t);
}
__int64 SimpleFile::getCreated() const {
    return FileOperations::getCreationTime(getAbsolutePath());
}
bool SimpleFile::setCreated(__int64 t) {
    return FileOperations::setCreationTime(getAbsolutePath(), t);
}

unsigned SimpleFile::getSize() {
    return (unsigned)FileOperations::getSize(getAbsolutePath());
}

void SimpleFile::list(const char* pattern, FileList& out) {
    getOwner()->list(getPath(), pattern, out);
}
void SimpleFile::list(FileList& out) {
    getOwner()->list(getPath(), out);
}

FileSystem* SimpleFile::asFileSystem() {
    if (!isContainer())
        throw ::core::IllegalArgumentException("Unable to resolve FileSystem for a non-container file (%s)",
                                               getAbsolutePath());
    return new SimpleFileSystem(getAbsolutePath());
}

} // namespace vfs
} // namespace tarso
