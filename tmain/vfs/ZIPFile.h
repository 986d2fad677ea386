#pragma once
#include <tmain/vfs/File.h>
#include <tmain/vfs/ZIPEntry.h>

namespace tarso {
namespace vfs {

class ZIPFileSystem;

/// One entry of a ZIPFileSystem (a file or a directory). Read-only.
class TMAIN_API ZIPFile : public File {
    TMAIN_TYPE()
public:
    ~ZIPFile() override;

    /// A new, unopened ZIPInputStream over the entry.
    stream::InputStream* getInputStream() override;
    /// Throws core::UnsupportedOperationException "ZIPFile::getOutputStream()".
    stream::OutputStream* getOutputStream() override;
    /// An entry is never on the local disk: it is always copied into the
    /// temporary file system, at its path there.
    const char* getLocalPath() override;
    bool isContainer() const override { return mEntry.isDirectory(); }
    bool exists() const override { return mEntry.index >= 0; }
    __int64 getLastModified() const override { return mEntry.modified; }
    __int64 getLastAccessed() const override { return mEntry.accessed; }
    __int64 getCreated() const override { return mEntry.created; }
    /// The uncompressed size; 0xFFFFFFFF for an entry of 4 GiB or more,
    /// which cannot be read.
    unsigned getSize() override;
    using File::list;
    void list(const char* pattern, FileList& out) override;
    void list(FileList& out) override;

    const ZIPEntry& getEntry() const { return mEntry; }

protected:
    friend class ZIPFileSystem;
    explicit ZIPFile(FileSystem* owner);
    /// `entry` is a ZIPEntry*, `archive` the handle it was read from.
    ZIPFile(const void* entry, const void* archive, FileSystem* owner);
    void reset(const void* entry, const void* archive, FileSystem* owner);
    /// Re-aims the file at `path` (kept as given) and its entry.
    void reset(const char* path, const void* entry, const void* archive, FileSystem* owner);

private:
    ZIPEntry mEntry;
    const void* mArchive;
};

} // namespace vfs
} // namespace tarso
