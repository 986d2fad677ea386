#pragma once
#include <tmain/foundation/SmartPtr.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/HTTPData.h>

namespace tarso {
namespace vfs {

class HTTPFileSystem;

/// A file of an HTTPFileSystem, with the size and time its lookup found.
class TMAIN_API HTTPFile : public File {
    TMAIN_TYPE()
public:
    HTTPFile(const char* path, HTTPFileSystem* owner, unsigned size, __int64 time, HTTPData* data);
    ~HTTPFile() override;

    /// A new, unopened HTTPInputStream owned by the caller.
    stream::InputStream* getInputStream() override;
    /// Unsupported: "HTTPFile::getOutputStream()".
    stream::OutputStream* getOutputStream() override;
    /// Asks the server (HEAD).
    bool exists() const override;
    __int64 getLastModified() const override { return mTime; }
    __int64 getLastAccessed() const override { return mTime; }
    __int64 getCreated() const override { return mTime; }
    /// The size found at lookup; 0 when unknown.
    unsigned getSize() override { return mSize; }
    /// A new HTTPFileSystem rooted at this file's URL, with the owner's timeouts.
    FileSystem* asFileSystem() override;

    HTTPData* getData() const { return mData.get(); }
    const std::string& getURL() const { return mAbsolutePath; }
    HTTPFileSystem* getHTTPFileSystem() const;

    /// Re-aims this file at another path with new lookup results.
    void reset(const char* path, unsigned size, __int64 time, HTTPData* data);

private:
    unsigned mSize;
    __int64 mTime;
    ::core::SmartPtr<HTTPData> mData;
};

} // namespace vfs
} // namespace tarso
