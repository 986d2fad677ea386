#pragma once
#include <memory>
#include <string>
#include <tmain/foundation/CriticalSection.h>
#include <tmain/vfs/FileSystem.h>
#include <tmain/vfs/ZIPEntry.h>
#include <vector>

namespace tarso {
namespace stream {
class ZIPInputStream;
}
namespace vfs {

class ZIPFile;

/// The entries of a ZIP archive on the local disk as a read-only file system,
/// optionally rooted at a directory inside the archive ("pack.zip!/textures").
///
/// The archive's central directory is read once, when the archive is opened,
/// into an index: lookups and listings never scan the archive again. Entry
/// names that would leave the archive's top ("../x", "/abs", "a/../../x",
/// "C:x") are left out of the index. Listed paths have the local file
/// system's form ("/textures/noise.bin"). One archive handle serves every
/// file and stream; each use of it happens between syncBegin() and syncEnd().
class TMAIN_API ZIPFileSystem : public FileSystem {
    TMAIN_TYPE()
public:
    /// Reader result codes kept by getEntry().
    static constexpr int ZIP_NOT_OPEN = 0x10000;
    static constexpr int ZIP_WRONG_MODE = 0x80000;

    /// `path` is the archive, or "archive!/root" for a root inside it. A
    /// leading "file://" is dropped. An archive that cannot be opened makes
    /// every entry operation fail with "Could not open ZIP file '%s'".
    explicit ZIPFileSystem(const char* path, bool caseSensitive = false);
    ~ZIPFileSystem() override;
    ZIPFileSystem(const ZIPFileSystem&) = delete;
    ZIPFileSystem& operator=(const ZIPFileSystem&) = delete;

    bool exists(const char* path) const override;
    bool isContainer(const char* path) const override;
    /// The full entry name: the inner root followed by the path.
    std::string getAbsolutePath(const char* path) override;
    /// The inverse of getAbsolutePath, in listing form ("/a/b"); a name
    /// outside the inner root comes back unchanged.
    std::string getRelativePath(const char* path) override;
    using FileSystem::lookup;
    void lookup(const char* path, File* file, LookupData* data) override;
    File* lookup(const char* path, LookupData* data) override;
    /// Throws core::UnsupportedOperationException "ZIPFileSystem::create(...)".
    File* create(const char* path, bool overwrite) override;
    /// Throws core::UnsupportedOperationException "ZIPFileSystem::remove(...)".
    void remove(const char* path, unsigned flags) override;
    /// Throws core::UnsupportedOperationException "ZIPFileSystem::touch(...)".
    void touch(const char* path) override;
    using FileSystem::list;
    void list(const char* path, FileList& out) const override;
    void list(const char* path, const char* pattern, FileList& out) const override;
    /// The archive's path on the local disk.
    const char* getRootPath() const override { return mPath.c_str(); }

    /// The root inside the archive: empty or ending in "/".
    const char* getZIPRoot() const { return mRoot.c_str(); }
    unsigned getZIPRootLength() const { return (unsigned)mRoot.size(); }
    bool isCaseSensitive() const { return mCaseSensitive; }
    /// Times of the archive file itself (0 when unknown).
    __int64 getLastModified() const;
    __int64 getLastAccessed() const;
    __int64 getCreated() const;
    /// Number of entries in the index (synthesised directories included).
    unsigned getEntryCount() const;

    /// Finds the entry for a path below the inner root; `entry` is a
    /// ZIPEntry*. Throws stream::IOException "Could not open ZIP file '%s'"
    /// when the archive is not open.
    bool getEntry(const char* path, void* entry) const;
    /// The entry at an index position.
    bool getEntry(int index, void* entry) const;
    /// The result code of the last getEntry() (0 when found).
    int getLastResult() const { return mLastResult; }

    /// Takes the handle's lock for a stream; syncEnd() releases it.
    void syncBegin(stream::ZIPInputStream* stream);
    void syncEnd();
    /// A 4096-byte buffer shared by users of the handle (under syncBegin).
    unsigned char* getGlobalBuffer() { return mGlobalBuffer; }

    /// Opens the archive and reads its index; false (and logged) on failure.
    bool open();
    /// Closes the archive; files and streams opened before fail afterwards.
    void close();
    bool isOpen() const;

    /// Between syncBegin/syncEnd: positions the reader on the entry, checks
    /// its local header and returns where its data starts in the archive.
    /// Throws stream::IOException "Error opening ZIPInputStream".
    unsigned long long locateData(const ZIPEntry& entry, const void* archive);
    /// Between syncBegin/syncEnd: reads archive bytes at an offset; returns
    /// the count read (short at the end of the archive).
    unsigned readRaw(unsigned long long offset, void* buffer, unsigned size);
    /// The handle entries are read from (files keep it to detect a reopen).
    const void* getArchive() const { return mHandle; }

protected:
    void checkOpen() const;
    /// The index key of a path below the inner root; false when the path
    /// leaves the archive's top.
    bool keyOf(const char* path, std::string& key) const;
    /// The directory entry for a name only implied by other entries' names.
    int ensureMissingDirEntry(const std::string& name);

private:
    struct Index;
    struct IO;
    void buildIndex();
    void fillFile(ZIPFile* file, const char* path, const ZIPEntry& entry) const;

    std::string mPath;
    std::string mRoot;
    bool mCaseSensitive;
    void* mHandle;
    mutable ::core::CriticalSection mLock;
    std::vector<ZIPEntry> mDirEntries;
    mutable ::core::CriticalSection mDirLock;
    unsigned char mGlobalBuffer[4096];
    stream::ZIPInputStream* mCurrent;
    std::unique_ptr<Index> mIndex;
    std::unique_ptr<IO> mIO;
    mutable int mLastResult;
    std::string mRootKey;
};

} // namespace vfs
} // namespace tarso
