#pragma once
#include <string>
#include <tmain/core/Object.h>
#include <tmain/platform/Platform.h>

namespace tarso {
namespace stream {
class InputStream;
class OutputStream;
} // namespace stream

namespace vfs {

class FileSystem;
class FileList;

/// A handle on a path of a file system; the path need not exist. The owner
/// must outlive its files.
class TMAIN_API File : public core::Object {
    TMAIN_TYPE()
public:
    ~File() override;

    virtual const char* getPath() const { return mPath.c_str(); }
    /// The part of the absolute path after its last "/", or all of it.
    virtual const char* getFile() const;
    virtual const char* getDirectory() const;
    virtual const char* getAbsolutePath() const { return mAbsolutePath.c_str(); }
    /// A path of the local disk holding the file's contents; a file that is
    /// not local is first copied into the temporary file system.
    virtual const char* getLocalPath();
    virtual bool isContainer() const { return false; }
    /// A new, unopened stream; the caller owns it.
    virtual stream::InputStream* getInputStream() = 0;
    virtual stream::OutputStream* getOutputStream() = 0;
    /// Default: throws core::UnsupportedOperationException "File '%s' is not a container".
    virtual void list(const char* pattern, FileList& out);
    virtual void list(FileList& out);
    virtual bool exists() const = 0;
    virtual __int64 getLastModified() const = 0;
    virtual bool setLastModified(__int64 time);
    virtual __int64 getLastAccessed() const = 0;
    virtual bool setLastAccessed(__int64 time);
    virtual __int64 getCreated() const = 0;
    virtual bool setCreated(__int64 time);
    virtual unsigned getSize() = 0;
    /// A file system rooted at this container; the default throws
    /// core::UnsupportedOperationException "File::asFileSystem()".
    virtual FileSystem* asFileSystem();

    FileSystem* getOwner() const { return mOwner; }

    /// Pointer just after the last "/" of path, or path itself.
    static const char* getFile(const char* path);
    /// Everything before the last "/" (excluded), or the empty string.
    static void getDirectory(const char* path, std::string& out);

protected:
    File(const char* path, FileSystem* owner);
    File(const File& other);
    File& operator=(const File& other);
    /// Re-aims the handle at another path of the owner.
    void setPath(const char* path, FileSystem* owner);

    std::string mPath;
    std::string mAbsolutePath;
    mutable std::string mDirectory;
    std::string mLocalPath;
    FileSystem* mOwner;
};

} // namespace vfs
} // namespace tarso
