#include <tmain/vfs/SimpleFileSystem.h>

#include <cstring>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/IOException.h>
#include <tmain/vfs/FileAlreadyExistsException.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/SimpleFile.h>

namespace tarso {
namespace vfs {

using platform::FileOperations;

const ::core::Type SimpleFileSystem::TYPE("tarso::vfs::SimpleFileSystem", &FileSystem::TYPE);

SimpleFileSystem::SimpleFileSystem() {}

SimpleFileSystem::SimpleFileSystem(const char* root) {
    setRootPath(root);
}

SimpleFileSystem::~SimpleFileSystem() {}

void SimpleFileSystem::setRootPath(const char* root) {
    std::string r = root ? root : "";
    if (r.compare(0, 7, "file://") == 0)
        r.erase(0, 7);
    if (!r.empty() && (r.back() == '/' || r.back() == '\\'))
        r.pop_back();
    mRoot = r;
}

std::string SimpleFileSystem::absolute(const char* path) const {
    if (!path)
        return mRoot;
    std::string out = mRoot;
    if (path[0] != '/' && path[0] != '\\')
        out += '/';
    out += path;
    return out;
}

std::string SimpleFileSystem::getAbsolutePath(const char* path) {
    return absolute(path);
}

std::string SimpleFileSystem::getRelativePath(const char* path) {
    if (!path)
        return std::string();
    if (!mRoot.empty() && strncmp(path, mRoot.c_str(), mRoot.size()) == 0)
        return std::string(path + mRoot.size());
    return path;
}

bool SimpleFileSystem::_exists(const char* absolutePath) {
    return FileOperations::exists(absolutePath);
}

bool SimpleFileSystem::_isContainer(const char* absolutePath) {
    return FileOperations::isDirectory(absolutePath);
}

void SimpleFileSystem::_remove(const char* absolutePath, unsigned flags) {
    if (!FileOperations::remove(absolutePath, flags & 1))
        throw stream::IOException("Could not delete file '%s'", absolutePath);
}

void SimpleFileSystem::_setTime(const char* absolutePath) {
    if (!FileOperations::touch(absolutePath))
        throw stream::IOException("Could not touch file '%s'", absolutePath);
}

bool SimpleFileSystem::exists(const char* path) const {
    return _exists(absolute(path).c_str());
}

bool SimpleFileSystem::isContainer(const char* path) const {
    return _isContainer(absolute(path).c_str());
}

void SimpleFileSystem::lookup(const char* path, File* file, LookupData*) {
    SimpleFile* sf = dynamic_cast<SimpleFile*>(file);
    if (!sf)
        throw ::core::IllegalArgumentException("File does not belong to a SimpleFileSystem");
    sf->reset(path, this);
    if (!exists(path))
        throw FileNotFoundException(path);
}

File* SimpleFileSystem::lookup(const char* path, LookupData*) {
    if (!exists(path))
        throw FileNotFoundException(path);
    return new SimpleFile(path, this);
}

File* SimpleFileSystem::create(const char* path, bool overwrite) {
    if (!overwrite && exists(path))
        throw FileAlreadyExistsException(path);
    return new SimpleFile(path, this);
}

void SimpleFileSystem::remove(const char* path, unsigned flags) {
    if (!exists(path))
        throw FileNotFoundException(path);
    _remove(absolute(path).c_str(), flags);
}

void SimpleFileSystem::touch(const char* path) {
    if (!FileOperations::touch(absolute(path).c_str()))
        throw FileNotFoundException(path);
}

struct SimpleFileSystem::ListContext {
    SimpleFileSystem* fs;
    FileList* out;
};

void SimpleFileSystem::ICCB(const char* name, void* context) {
    ListContext* c = static_cast<ListContext*>(context);
    std::string relative = c->fs->getRelativePath(name);
    c->out->add(new SimpleFile(relative.c_str(), c->fs));
}

void SimpleFileSystem::list(const char* path, FileList& out) const {
    list(path, "*", out);
}

void SimpleFileSystem::list(const char* path, const char* pattern, FileList& out) const {
    SimpleFileSystem* self = const_cast<SimpleFileSystem*>(this);
    ListContext context{self, &out};
    FileOperations::iterateContents(absolute(path).c_str(), pattern ? pattern : "*", &context, &ICCB);
}

bool SimpleFileSystem::rename(const char* from, const char* to) {
    if (!exists(from))
        return false;
    return FileOperations::rename(absolute(from).c_str(), absolute(to).c_str());
}

} // namespace vfs
} // namespace tarso
