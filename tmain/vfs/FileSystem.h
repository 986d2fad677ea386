#pragma once
#include <string>
#include <tmain/core/Object.h>
#include <tmain/foundation/Future.h>
#include <tmain/vfs/FileList.h>
#include <tmain/vfs/LookupData.h>

namespace tarso {
namespace vfs {

class File;

/// A tree of files addressed by slash-separated paths relative to a root of
/// its own. Lookups and factories return new objects whose reference the
/// caller takes over.
class TMAIN_API FileSystem : public core::Object {
    TMAIN_TYPE()
public:
    /// Codes of the asynchronous lookup's error record.
    static constexpr int LUA_NOT_FOUND = 1;
    static constexpr int LUA_STREAM_ABORTED = 2;
    static constexpr int LUA_UNKNOWN_ERROR = 3;

    /// Flags of copy().
    static constexpr unsigned COPY_OVERWRITE = 0x1;
    static constexpr unsigned COPY_IF_NEWER = 0x2;
    static constexpr unsigned COPY_APPEND = 0x4;
    static constexpr unsigned COPY_DEEP = 0x80;

    ~FileSystem() override;

    virtual bool exists(const char* path) const = 0;
    virtual bool isContainer(const char* path) const = 0;
    virtual std::string getAbsolutePath(const char* path) = 0;
    virtual std::string getRelativePath(const char* path) = 0;
    /// Re-aims an existing file of this file system at path; throws
    /// FileNotFoundException when the path does not exist.
    virtual void lookup(const char* path, File* file, LookupData* data) = 0;
    /// A new file for an existing path; throws FileNotFoundException otherwise.
    virtual File* lookup(const char* path, LookupData* data) = 0;
    virtual bool supportsLookupData(const ::core::Type& type) const;
    virtual File* create(const char* path, bool overwrite) = 0;
    virtual void remove(const char* path, unsigned flags) = 0;
    /// Removes every child of a container; the container stays.
    virtual void removeContents(const char* path);
    virtual void touch(const char* path) = 0;
    virtual void list(const char* path, FileList& out) const = 0;
    virtual void list(const char* path, const char* pattern, FileList& out) const = 0;
    virtual bool rename(const char* from, const char* to);
    virtual void setRootPath(const char* path);
    virtual const char* getRootPath() const;

    File* lookup(const char* path) { return lookup(path, nullptr); }
    /// True when data is null or supportsLookupData(data->getType()).
    bool supports(const LookupData* data) const;
    /// A new owning list filled by the listing; the caller deletes it.
    FileList* list(const char* path) const;
    FileList* list(const char* path, const char* pattern) const;
    /// Copies a file (or, with COPY_DEEP, a container's children) into this
    /// file system; returns the destination, whose reference the caller takes.
    File* copy(File* source, unsigned flags, File* destination);
    /// Looks the path up on a worker thread of its own.
    ::core::Future<File*> lookupAsync(const char* path, LookupData* data);

    /// Picks a file system for a URL; the caller takes the reference.
    static FileSystem* createFromURL(const char* url);
    /// Pointer to the last "." of the whole path (dot included), or "".
    static const char* getExtension(const char* path);
    static bool checkExtension(const char* path, const char* extension, bool caseSensitive);

protected:
    /// A local path with the file's contents (copied to the temporary file
    /// system when the file is not on the local disk).
    static std::string getTemporaryPath(File* file);
    friend class File;
};

} // namespace vfs
} // namespace tarso
