#include <tmain/vfs/ChainedFileSystem.h>

#include <tmain/stream/IOException.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/FileNotFoundException.h>

namespace tarso {
namespace vfs {

const ::core::Type ChainedFileSystem::TYPE("tarso::vfs::ChainedFileSystem", &FileSystem::TYPE);

ChainedFileSystem::ChainedFileSystem() {}

ChainedFileSystem::ChainedFileSystem(const ChainedFileSystem& other) : FileSystem(other) {
    copyMembers(other);
}

ChainedFileSystem& ChainedFileSystem::operator=(const ChainedFileSystem& other) {
    if (this != &other) {
        clearMembers();
        copyMembers(other);
    }
    return *this;
}

ChainedFileSystem::~ChainedFileSystem() {
    clearMembers();
}

void ChainedFileSystem::copyMembers(const ChainedFileSystem& other) {
    // One lock at a time: two chains assigned to each other from two threads must not deadlock.
    std::vector<FileSystem*> members;
    {
        ::core::Lock theirs(other.mLock);
        members = other.mFileSystems;
        for (FileSystem* fs : members)
            fs->addRef();
    }
    ::core::Lock ours(mLock);
    mFileSystems.insert(mFileSystems.end(), members.begin(), members.end());
}

void ChainedFileSystem::clearMembers() {
    std::vector<FileSystem*> old;
    {
        ::core::Lock lock(mLock);
        old.swap(mFileSystems);
    }
    for (FileSystem* fs : old)
        fs->decRef();
}

void ChainedFileSystem::append(FileSystem* fs) {
    if (!fs)
        return;
    fs->addRef();
    ::core::Lock lock(mLock);
    mFileSystems.push_back(fs);
}

void ChainedFileSystem::prepend(FileSystem* fs) {
    if (!fs)
        return;
    fs->addRef();
    ::core::Lock lock(mLock);
    mFileSystems.insert(mFileSystems.begin(), fs);
}

void ChainedFileSystem::remove(FileSystem* fs) {
    FileSystem* removed = nullptr;
    {
        ::core::Lock lock(mLock);
        for (auto it = mFileSystems.begin(); it != mFileSystems.end(); ++it)
            if (*it == fs) {
                removed = fs;
                mFileSystems.erase(it);
                break;
            }
    }
    // Released outside the lock: the member's destructor may take locks of its own.
    if (removed)
        removed->decRef();
}

unsigned ChainedFileSystem::getCount() const {
    ::core::Lock lock(mLock);
    return (unsigned)mFileSystems.size();
}

FileSystem* ChainedFileSystem::getFileSystem(unsigned index) const {
    ::core::Lock lock(mLock);
    return index < mFileSystems.size() ? mFileSystems[index] : nullptr;
}

FileSystem* ChainedFileSystem::findFileSystem(const char* path, bool exists) const {
    ::core::Lock lock(mLock);
    for (FileSystem* fs : mFileSystems)
        if (fs->exists(path) == exists)
            return fs;
    return nullptr;
}

FileSystem* ChainedFileSystem::findFileSystemAndFile(const char* path, bool mustExist, File*& file,
                                                     LookupData* data) {
    ::core::Lock lock(mLock);
    for (FileSystem* fs : mFileSystems) {
        bool made = file == nullptr;
        bool found;
        try {
            if (made)
                file = fs->lookup(path, data);
            else
                fs->lookup(path, file, data);
            found = true;
        } catch (const ::core::Exception&) {
            found = false;
        }
        if (found == mustExist)
            return fs;
        if (found && made) {
            // Not wanted here: drop the file this member made and go on.
            ::core::SmartPtr<File> drop(file);
            file = nullptr;
        }
    }
    return nullptr;
}

bool ChainedFileSystem::findFile(const char* path, File*& file, bool mustExist, LookupData* data) {
    return findFileSystemAndFile(path, mustExist, file, data) != nullptr;
}

File* ChainedFileSystem::findFile(const char* path, bool mustExist, LookupData* data) {
    File* file = nullptr;
    findFileSystemAndFile(path, mustExist, file, data);
    return file;
}

bool ChainedFileSystem::exists(const char* path) const {
    return findFileSystem(path, true) != nullptr;
}

bool ChainedFileSystem::isContainer(const char* path) const {
    ::core::Lock lock(mLock);
    FileSystem* fs = findFileSystem(path, true);
    return fs && fs->isContainer(path);
}

std::string ChainedFileSystem::getAbsolutePath(const char* path) {
    ::core::Lock lock(mLock);
    FileSystem* fs = findFileSystem(path, true);
    if (!fs && !mFileSystems.empty())
        fs = mFileSystems.front();
    return fs ? fs->getAbsolutePath(path) : std::string(path ? path : "");
}

std::string ChainedFileSystem::getRelativePath(const char* path) {
    std::string p = path ? path : "";
    ::core::Lock lock(mLock);
    for (FileSystem* fs : mFileSystems) {
        std::string r = fs->getRelativePath(path);
        if (r != p)
            return r;
    }
    return p;
}

void ChainedFileSystem::lookup(const char* path, File* file, LookupData* data) {
    File* f = file;
    if (!findFileSystemAndFile(path, true, f, data))
        throw FileNotFoundException(path ? path : "");
}

File* ChainedFileSystem::lookup(const char* path, LookupData* data) {
    File* file = nullptr;
    if (!findFileSystemAndFile(path, true, file, data))
        throw FileNotFoundException(path ? path : "");
    return file;
}

File* ChainedFileSystem::create(const char* path, bool overwrite) {
    ::core::Lock lock(mLock);
    FileSystem* fs = findFileSystem(path, false);
    if (!fs && overwrite)
        fs = findFileSystem(path, true);
    if (!fs)
        throw stream::IOException("Requested path not valid for reading/writing: '%s'", path ? path : "");
    return fs->create(path, overwrite);
}

void ChainedFileSystem::remove(const char* path, unsigned flags) {
    ::core::Lock lock(mLock);
    FileSystem* fs = findFileSystem(path, true);
    if (!fs)
        throw FileNotFoundException(path ? path : "");
    fs->remove(path, flags);
}

void ChainedFileSystem::touch(const char* path) {
    ::core::Lock lock(mLock);
    FileSystem* fs = findFileSystem(path, true);
    if (!fs)
        throw FileNotFoundException(path ? path : "");
    fs->touch(path);
}

void ChainedFileSystem::list(const char* path, FileList& out) const {
    list(path, "*", out);
}

void ChainedFileSystem::list(const char* path, const char* pattern, FileList& out) const {
    ::core::Lock lock(mLock);
    for (FileSystem* fs : mFileSystems) {
        // A member without the directory has nothing to add.
        if (!fs->isContainer(path))
            continue;
        FileList listed(true);
        fs->list(path, pattern, listed);
        out.merge(listed);
    }
}

} // namespace vfs
} // namespace tarso
