#pragma once
#include <tmain/vfs/File.h>

namespace tarso {
namespace vfs {

/// A file of a SimpleFileSystem: its absolute path is a path of the local disk.
class TMAIN_API SimpleFile : public File {
    TMAIN_TYPE()
public:
    ~SimpleFile() override;

    /// A new FileInputStream (4096-byte buffer), unopened.
    stream::InputStream* getInputStream() override;
    /// Creates the missing directories, then a new FileOutputStream, unopened.
    stream::OutputStream* getOutputStream() override;
    bool isContainer() const override;
    bool exists() const override;
    __int64 getLastModified() const override;
    bool setLastModified(__int64 time) override;
    __int64 getLastAccessed() const override;
    bool setLastAccessed(__int64 time) override;
    __int64 getCreated() const override;
    bool setCreated(__int64 time) override;
    unsigned getSize() override;
    using File::list;
    void list(const char* pattern, FileList& out) override;
    void list(FileList& out) override;
    /// A SimpleFileSystem rooted at this directory.
    FileSystem* asFileSystem() override;

protected:
    friend class SimpleFileSystem;
    SimpleFile(const char* path, FileSystem* owner);
    /// Re-aims this object at another path.
    void reset(const char* path, FileSystem* owner) { setPath(path, owner); }
};

} // namespace vfs
} // namespace tarso
