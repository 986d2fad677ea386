#pragma once
#include <tmain/vfs/FileSystem.h>

namespace tarso {
namespace vfs {

/// Maps virtual paths onto a directory of the local disk.
class TMAIN_API SimpleFileSystem : public FileSystem {
    TMAIN_TYPE()
public:
    /// The root may be a path or a "file://" URL.
    explicit SimpleFileSystem(const char* root);
    ~SimpleFileSystem() override;

    bool exists(const char* path) const override;
    bool isContainer(const char* path) const override;
    std::string getAbsolutePath(const char* path) override;
    std::string getRelativePath(const char* path) override;
    using FileSystem::lookup;
    void lookup(const char* path, File* file, LookupData* data) override;
    File* lookup(const char* path, LookupData* data) override;
    File* create(const char* path, bool overwrite) override;
    void remove(const char* path, unsigned flags) override;
    void touch(const char* path) override;
    using FileSystem::list;
    void list(const char* path, FileList& out) const override;
    void list(const char* path, const char* pattern, FileList& out) const override;
    bool rename(const char* from, const char* to) override;
    /// Drops a leading "file://" and one trailing "/" or "\".
    void setRootPath(const char* root) override;
    const char* getRootPath() const override { return mRoot.c_str(); }

    /// The local disk's answers, for absolute paths.
    static bool _exists(const char* absolutePath);
    static bool _isContainer(const char* absolutePath);
    /// Deletes a local path; throws stream::IOException "Could not delete file '%s'".
    static void _remove(const char* absolutePath, unsigned flags);
    /// Sets the times of a local path to now; throws stream::IOException
    /// "Could not touch file '%s'".
    static void _setTime(const char* absolutePath);

protected:
    SimpleFileSystem();
    std::string absolute(const char* path) const;

private:
    struct ListContext;
    static void ICCB(const char* name, void* context);
    std::string mRoot;
};

} // namespace vfs
} // namespace tarso
