#pragma once
#include <tmain/foundation/CriticalSection.h>
#include <tmain/vfs/FileSystem.h>
#include <vector>

namespace tarso {
namespace vfs {

/// An ordered list of file systems seen as one. Reads find a path in the
/// first member that has it, new files go to the first member that does not
/// have it yet, listings merge all members with earlier ones winning. The
/// order is both the read and the write priority. Members are counted while
/// they belong to the chain; every walk over them holds the chain's lock, so
/// members may be added and removed from other threads at any time.
class TMAIN_API ChainedFileSystem : public FileSystem {
    TMAIN_TYPE()
public:
    ChainedFileSystem();
    ChainedFileSystem(const ChainedFileSystem& other);
    ChainedFileSystem& operator=(const ChainedFileSystem& other);
    ~ChainedFileSystem() override;

    /// Adds a member at the end (takes a reference).
    void append(FileSystem* fs);
    /// Adds a member at the front (takes a reference).
    void prepend(FileSystem* fs);
    /// Removes the first occurrence of that very object and releases it; a
    /// file system not in the chain is ignored.
    void remove(FileSystem* fs);
    unsigned getCount() const;
    /// The member at a position, or null past the end.
    FileSystem* getFileSystem(unsigned index) const;

    bool exists(const char* path) const override;
    /// The answer of the first member that has the path.
    bool isContainer(const char* path) const override;
    /// The first member that has the path answers; when none has it, the
    /// first member (where create() would put it); an empty chain returns the
    /// path unchanged.
    std::string getAbsolutePath(const char* path) override;
    /// The first member whose answer differs from the path; else the path.
    std::string getRelativePath(const char* path) override;
    using FileSystem::lookup;
    void lookup(const char* path, File* file, LookupData* data) override;
    File* lookup(const char* path, LookupData* data) override;
    /// Throws stream::IOException "Requested path not valid for reading/writing: '%s'"
    /// when no member can take the path.
    File* create(const char* path, bool overwrite) override;
    using FileSystem::remove;
    void remove(const char* path, unsigned flags) override;
    /// Throws FileNotFoundException when no member has the path.
    void touch(const char* path) override;
    using FileSystem::list;
    void list(const char* path, FileList& out) const override;
    void list(const char* path, const char* pattern, FileList& out) const override;

protected:
    /// The first member whose exists(path) equals `exists`, or null.
    FileSystem* findFileSystem(const char* path, bool exists) const;
    /// See the class comment: with mustExist, the first member where the
    /// lookup succeeds; without, the first member where it fails. `file` is
    /// looked up anew when null, else re-aimed.
    FileSystem* findFileSystemAndFile(const char* path, bool mustExist, File*& file, LookupData* data);
    bool findFile(const char* path, File*& file, bool mustExist, LookupData* data);
    File* findFile(const char* path, bool mustExist, LookupData* data);

private:
    void copyMembers(const ChainedFileSystem& other);
    void clearMembers();
    std::vector<FileSystem*> mFileSystems;
    mutable ::core::CriticalSection mLock;
};

} // namespace vfs
} // namespace tarso
