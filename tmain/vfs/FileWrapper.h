#pragma once
#include <tmain/foundation/Callback.h>
#include <tmain/foundation/SmartPtr.h>
#include <tmain/vfs/File.h>

namespace tarso {
namespace vfs {

/// A file that forwards every operation to another file and reports its own
/// destruction through a callback.
class TMAIN_API FileWrapper : public File {
    TMAIN_TYPE()
public:
    enum FileEvent { FE_DESTROYED = 2 };
    typedef ::core::Callback<void, FileEvent, File*> EventCallback;

    /// Takes a reference on `wrapped`; with bit 2 in eventMask the callback
    /// hears (FE_DESTROYED, wrapped) when the wrapper goes.
    FileWrapper(File* wrapped, unsigned eventMask, const EventCallback& callback);
    ~FileWrapper() override;

    File* getWrapped() const { return mWrapped.get(); }

    const char* getPath() const override { return mWrapped->getPath(); }
    const char* getFile() const override { return mWrapped->getFile(); }
    const char* getDirectory() const override { return mWrapped->getDirectory(); }
    const char* getAbsolutePath() const override { return mWrapped->getAbsolutePath(); }
    const char* getLocalPath() override { return mWrapped->getLocalPath(); }
    bool isContainer() const override { return mWrapped->isContainer(); }
    stream::InputStream* getInputStream() override { return mWrapped->getInputStream(); }
    stream::OutputStream* getOutputStream() override { return mWrapped->getOutputStream(); }
    void list(const char* pattern, FileList& out) override { mWrapped->list(pattern, out); }
    void list(FileList& out) override { mWrapped->list(out); }
    bool exists() const override { return mWrapped->exists(); }
    __int64 getLastModified() const override { return mWrapped->getLastModified(); }
    bool setLastModified(__int64 t) override { return mWrapped->setLastModified(t); }
    __int64 getLastAccessed() const override { return mWrapped->getLastAccessed(); }
    bool setLastAccessed(__int64 t) override { return mWrapped->setLastAccessed(t); }
    __int64 getCreated() const override { return mWrapped->getCreated(); }
    bool setCreated(__int64 t) override { return mWrapped->setCreated(t); }
    unsigned getSize() override { return mWrapped->getSize(); }
    FileSystem* asFileSystem() override { return mWrapped->asFileSystem(); }

private:
    ::core::SmartPtr<File> mWrapped;
    unsigned mEventMask;
    EventCallback mCallback;
};

} // namespace vfs
} // namespace tarso
