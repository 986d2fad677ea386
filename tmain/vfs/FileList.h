#pragma once
#include <tmain/Export.h>
#include <vector>

namespace tarso {
namespace vfs {

class File;

/// An ordered list of files. An owning list holds a reference on each entry
/// and releases it on clear() and destruction.
class TMAIN_API FileList {
public:
    typedef std::vector<File*>::const_iterator const_iterator;

    explicit FileList(bool ownsFiles = true);
    FileList(const FileList& other);
    FileList& operator=(const FileList& other);
    ~FileList();

    /// Appends the file (an owning list takes a reference).
    void add(File* file);
    void clear();
    bool ownsFiles() const { return mOwnsFiles; }

    /// Exact, case-sensitive comparison of getPath() with each non-null entry.
    bool contains(const char* path) const;
    /// False for null, else contains(f->getPath()).
    bool contains(const File* f) const;
    /// Appends every entry of `other` whose path is not here yet (null
    /// entries always).
    void merge(const FileList& other);

    unsigned size() const { return (unsigned)mFiles.size(); }
    bool empty() const { return mFiles.empty(); }
    File* operator[](unsigned i) const { return mFiles[i]; }
    const_iterator begin() const { return mFiles.begin(); }
    const_iterator end() const { return mFiles.end(); }

private:
    void copyFrom(const FileList& other);
    std::vector<File*> mFiles;
    bool mOwnsFiles;
};

} // namespace vfs
} // namespace tarso
