#include <tmain/vfs/FileList.h>

#include <cstring>
#include <tmain/vfs/File.h>

namespace tarso {
namespace vfs {

FileList::FileList(bool ownsFiles) : mOwnsFiles(ownsFiles) {}

FileList::FileList(const FileList& other) : mOwnsFiles(other.mOwnsFiles) {
    copyFrom(other);
}

FileList& FileList::operator=(const FileList& other) {
    if (this != &other) {
        clear();
        mOwnsFiles = other.mOwnsFiles;
        copyFrom(other);
    }
    return *this;
}

FileList::~FileList() {
    clear();
}

void FileList::copyFrom(const FileList& other) {
    for (File* f : other.mFiles)
        add(f);
}

void FileList::add(File* file) {
    if (file && mOwnsFiles)
        file->addRef();
    mFiles.push_back(file);
}

void FileList::clear() {
    std::vector<File*> old;
    old.swap(mFiles);
    if (mOwnsFiles)
        for (File* f : old)
            if (f)
                f->decRef();
}

bool FileList::contains(const char* path) const {
    if (!path)
        return false;
    for (File* f : mFiles)
        if (f && strcmp(f->getPath(), path) == 0)
            return true;
    return false;
}

bool FileList::contains(const File* f) const {
    return f && contains(f->getPath());
}

void FileList::merge(const FileList& other) {
    // Collect first: merging a list with itself must add nothing and must not
    // iterate a vector that grows.
    std::vector<File*> toAdd;
    for (File* f : other.mFiles)
        if (!f || !contains(f->getPath()))
            toAdd.push_back(f);
    for (File* f : toAdd)
        add(f);
}

} // namespace vfs
} // namespace tarso
