#include <tmain/vfs/FileSystem.h>

#include <cstring>
#include <memory>
#include <tmain/foundation/GenericThread.h>
#include <tmain/foundation/Logger.h>
#include <tmain/foundation/StringUtil.h>
#include <tmain/platform/FileOperations.h>
#include <tmain/stream/IOException.h>
#include <tmain/stream/InputStream.h>
#include <tmain/stream/OutputStream.h>
#include <tmain/vfs/File.h>
#include <tmain/vfs/FileNotFoundException.h>
#include <tmain/vfs/HTTPFileSystem.h>
#include <tmain/vfs/SimpleFileSystem.h>
#include <tmain/vfs/TemporaryFileSystem.h>
#include <tmain/vfs/URLComponents.h>
#include <tmain/vfs/ZIPFileSystem.h>

namespace tarso {
namespace vfs {

const ::core::Type FileSystem::TYPE("tarso::vfs::FileSystem", &core::Object::TYPE);

FileSystem::~FileSystem() {}

bool FileSystem::supportsLookupData(const ::core::Type&) const {
    return false;
}

bool FileSystem::supports(const LookupData* data) const {
    return !data || supportsLookupData(data->getType());
}

bool FileSystem::rename(const char*, const char*) {
    return false;
}

void FileSystem::setRootPath(const char*) {
    throw ::core::UnsupportedOperationException("setRootPath is not available in this filesystem");
}

const char* FileSystem::getRootPath() const {
    throw ::core::UnsupportedOperationException("getRootPath is not available in this filesystem");
}

FileList* FileSystem::list(const char* path) const {
    std::unique_ptr<FileList> out(new FileList(true));
    list(path, *out);
    return out.release();
}

FileList* FileSystem::list(const char* path, const char* pattern) const {
    std::unique_ptr<FileList> out(new FileList(true));
    list(path, pattern, *out);
    return out.release();
}

void FileSystem::removeContents(const char* path) {
    if (!isContainer(path))
        throw ::core::IllegalArgumentException("Invalid directory: %s", path);
    FileList children(true);
    list(path, "*", children);
    for (File* child : children)
        if (child)
            remove(child->getPath(), 1);
}

File* FileSystem::copy(File* source, unsigned flags, File* destination) {
    if (destination && destination->getOwner() != this)
        throw ::core::IllegalArgumentException("Destination file must belong to this file system");
    if (source->isContainer()) {
        if (!(flags & COPY_DEEP))
            return destination;
        FileList children(true);
        source->list(children);
        for (File* child : children) {
            if (!child)
                continue;
            ::core::SmartPtr<File> copied(copy(child, flags, nullptr));
        }
        if (!destination)
            destination = create(source->getPath(), true);
        return destination;
    }
    ::core::SmartPtr<File> keep; // holds a destination made here while we work
    if (!destination) {
        destination = create(source->getPath(), true);
        keep = destination;
    }
    if (!(flags & (COPY_OVERWRITE | COPY_APPEND)) && destination->exists()) {
        if (!(flags & COPY_IF_NEWER) || source->getLastModified() <= destination->getLastModified())
            return keep ? keep.detach() : destination;
    }
    {
        std::unique_ptr<stream::OutputStream> out(destination->getOutputStream());
        std::unique_ptr<stream::InputStream> in(source->getInputStream());
        stream::Stream::EOpenMode outMode = stream::Stream::OM_WRITE | stream::Stream::OM_BINARY;
        outMode = outMode | ((flags & COPY_APPEND) ? stream::Stream::OM_APPEND : stream::Stream::OM_TRUNCATE);
        out->open(outMode);
        in->open(stream::Stream::OM_READ | stream::Stream::OM_BINARY);
        char buffer[4096];
        for (;;) {
            unsigned n = in->read(buffer, 1, sizeof(buffer));
            if (n == 0)
                break;
            if (out->write(buffer, 1, n) != n)
                throw stream::IOException("Error copying file (write count!=read count)");
        }
        in->close();
        out->flush();
        out->close();
    }
    destination->setCreated(source->getCreated());
    destination->setLastModified(source->getLastModified());
    destination->setLastAccessed(source->getLastAccessed());
    return keep ? keep.detach() : destination;
}

namespace {

class LookupProcess : public ::core::Process {
public:
    LookupProcess(FileSystem* fs, const char* path, LookupData* data, ::core::Future<File*> future)
        : mFS(fs), mPath(path ? path : ""), mData(data), mFuture(future) {
        // Keep a counted file system alive while the lookup runs; one that is
        // not counted (not held by a SmartPtr) is the caller's to keep.
        if (mFS->getRefCount() > 0)
            mHeld = mFS;
    }
    void run() override {
        try {
            File* f = mFS->lookup(mPath.c_str(), mData.get());
            ::core::SmartPtr<File> holder(f);
            if (mFuture.complete(f))
                holder.detach(); // the future's reader takes the reference
        } catch (const stream::StreamAbortedException& e) {
            mFuture.fail(FileSystem::LUA_STREAM_ABORTED, e.getMessage());
        } catch (const FileNotFoundException& e) {
            mFuture.fail(FileSystem::LUA_NOT_FOUND, e.getMessage());
        } catch (const ::core::Exception& e) {
            mFuture.fail(FileSystem::LUA_UNKNOWN_ERROR, e.getMessage());
        } catch (...) {
            mFuture.fail(0, "unknown error looking up file");
        }
        mData.reset();
        mHeld.reset();
    }

private:
    FileSystem* mFS;
    ::core::SmartPtr<FileSystem> mHeld;
    std::string mPath;
    ::core::SmartPtr<LookupData> mData;
    ::core::Future<File*> mFuture;
};

} // namespace

namespace {

// A local ".zip" archive, optionally followed by "!" and a root inside it:
// the part before "!" must end in the first ".zip" it holds and name a file.
bool isLocalZIP(const char* url, const std::string& path) {
    std::string archive = path.substr(0, path.find('!'));
    for (char& c : archive)
        c = (char)tolower((unsigned char)c);
    size_t ext = archive.find(".zip");
    if (ext == std::string::npos || ext + 4 != archive.size())
        return false;
    std::string local(url);
    local = local.substr(0, local.find('!'));
    if (local.compare(0, 7, "file://") == 0)
        local.erase(0, 7);
    return platform::FileOperations::exists(local.c_str()) && !platform::FileOperations::isDirectory(local.c_str());
}

} // namespace

::core::Future<File*> FileSystem::lookupAsync(const char* path, LookupData* data) {
    ::core::Future<File*> future;
    ::core::SmartPtr<::core::GenericThread> worker(new ::core::GenericThread("LookupThread", true));
    worker->onPostTask(new LookupProcess(this, path, data, future));
    if (!worker->start())
        future.fail(LUA_UNKNOWN_ERROR, "Unable to start lookup thread");
    return future;
}

FileSystem* FileSystem::createFromURL(const char* url) {
    URLComponents parts;
    if (!URLComponents::crack(url, parts))
        throw ::core::IllegalArgumentException("HTTPFileSystem: Invalid URL");
    if (isLocalZIP(url, parts.path))
        return new ZIPFileSystem(url, false);
    if (text::StringUtil::compareIgnoreCase(parts.scheme.c_str(), "file") == 0)
        return new SimpleFileSystem(url);
    if (text::StringUtil::compareIgnoreCase(parts.scheme.c_str(), "http") == 0 ||
        text::StringUtil::compareIgnoreCase(parts.scheme.c_str(), "https") == 0)
        return new HTTPFileSystem(url, 5000, 5000);
    logging::Logger::mROOT_LOGGER.error(
        "(FileSystem::createFromURL) Unknown URL type '%s'. Assuming SimpleFileSystem", url);
    return new SimpleFileSystem(url);
}

const char* FileSystem::getExtension(const char* path) {
    const char* dot = path ? strrchr(path, '.') : nullptr;
    return dot ? dot : "";
}

bool FileSystem::checkExtension(const char* path, const char* extension, bool caseSensitive) {
    const char* ext = getExtension(path);
    if (!extension)
        return false;
    return caseSensitive ? strcmp(ext, extension) == 0
                         : text::StringUtil::compareIgnoreCase(ext, extension) == 0;
}

std::string FileSystem::getTemporaryPath(File* file) {
    TemporaryFileSystem* tfs = TemporaryFileSystem::getSingleton();
    const char* abs = file->getAbsolutePath();
    if (platform::FileOperations::exists(abs))
        return abs;
    ::core::SmartPtr<File> copied(tfs->copy(file, COPY_OVERWRITE, nullptr));
    return tfs->getAbsolutePath(file->getPath());
}

} // namespace vfs
} // namespace tarso
