#include <tmain/platform/FileOperations.h>

#include <cstdint>
#include <cstring>
#include <mutex>
#include <tmain/foundation/Logger.h>
#include <tmain/platform/detail/FileSystemNative.h>

namespace tarso {
namespace platform {

namespace {

const char EMPTY[] = "";

bool isSeparator(char c) {
    return c == '/' || c == '\\';
}

/// Last '/' of the text, or when there is none its last '\\'.
const char* lastSeparator(const char* path) {
    const char* slash = std::strrchr(path, '/');
    return slash ? slash : std::strrchr(path, '\\');
}

/// The process-wide temporary path. Constant-initialised, so it is usable
/// from other static initialisers.
struct TemporaryPath {
    std::mutex mMutex;
    char mPath[FileOperations::TEMP_PATH_SIZE] = {0};
    unsigned mLength = 0;
    bool mSet = false;
};
TemporaryPath sTemporaryPath;

/// Second half of ensurePath: dir is a full directory path.
bool ensureDirectory(std::string& dir) {
    if (FileOperations::isDirectory(dir.c_str()))
        return true;
    size_t pos = dir.rfind('/');
    if (pos == std::string::npos)
        pos = dir.rfind('\\');
    if (pos != std::string::npos) {
        // A separator at the start is the root itself, which stays in the parent.
        std::string parent = dir.substr(0, pos == 0 ? 1 : pos);
        if (parent.size() == dir.size() || !ensureDirectory(parent))
            return false;
        dir[pos] = '/';
    }
    // Someone else may have created it meanwhile; that counts as success.
    return detail::createDirectory(dir.c_str()) || FileOperations::isDirectory(dir.c_str());
}

/// Narrows a time to its low 32 bits as a signed value, as the file-time
/// setters always did.
__int64 low32(__int64 value) {
    return (__int64)(int32_t)(uint32_t)(uint64_t)value;
}

struct IterateContext {
    std::string mPath;
    size_t mPrefixLength;
    void* mUser;
    void (*mCallback)(const char*, void*);
};

void reportEntry(const char* name, void* context) {
    if (std::strcmp(name, ".") == 0 || std::strcmp(name, "..") == 0)
        return;
    IterateContext* ctx = static_cast<IterateContext*>(context);
    ctx->mPath.resize(ctx->mPrefixLength);
    ctx->mPath += name;
    ctx->mCallback(ctx->mPath.c_str(), ctx->mUser);
}

} // namespace

const char* FileOperations::getExtension(const char* path) {
    if (!path)
        return EMPTY;
    const char* dot = std::strrchr(path, '.');
    return dot ? dot : path + std::strlen(path);
}

const char* FileOperations::getFile(const char* path) {
    if (!path)
        return EMPTY;
    const char* sep = lastSeparator(path);
    return sep ? sep + 1 : path;
}

const char* FileOperations::getFolder(const char* path, std::string& out) {
    const char* sep = path ? lastSeparator(path) : nullptr;
    if (sep)
        out.assign(path, sep - path);
    else
        out.clear();
    return out.c_str();
}

const char* FileOperations::appendPath(std::string& path, const char* part) {
    if (!path.empty() && !isSeparator(path.back()))
        path += '/';
    if (part) {
        if (isSeparator(*part))
            ++part;
        path += part;
    }
    return path.c_str();
}

const char* FileOperations::appendPath(const std::string& base, const char* part, std::string& out) {
    if (&base != &out)
        out = base;
    return appendPath(out, part);
}

bool FileOperations::exists(const char* path) {
    detail::FileInfo info;
    return path && detail::queryFileInfo(path, info) && (info.isFile || info.isDirectory);
}

bool FileOperations::isDirectory(const char* path) {
    detail::FileInfo info;
    return path && detail::queryFileInfo(path, info) && info.isDirectory;
}

bool FileOperations::isDirectoryEmpty(const char* path) {
    return path && detail::isDirectoryEmpty(path);
}

bool FileOperations::ensurePath(const char* path) {
    if (!path || !*path)
        return false;
    char full[FULL_PATH_SIZE];
    char* filePart = nullptr;
    unsigned n = detail::fullPath(path, full, sizeof(full), &filePart);
    if (n == 0 || n >= sizeof(full))
        return false;
    if (filePart)
        *filePart = 0;
    std::string dir(full);
    // Drop the separator before the cut-off name, but keep a root ("/", "C:\").
    while (dir.size() > 1 && isSeparator(dir.back()) && dir[dir.size() - 2] != ':')
        dir.pop_back();
    return ensureDirectory(dir);
}

bool FileOperations::remove(const char* path, unsigned flags) {
    if (!path || !*path)
        return false;
    if (isDirectory(path)) {
        if (!(flags & REMOVE_RECURSIVE) && !detail::isDirectoryEmpty(path))
            return false;
        return detail::deleteTree(path);
    }
    return detail::deleteFile(path);
}

bool FileOperations::rename(const char* from, const char* to) {
    return from && to && *from && *to && detail::moveFile(from, to);
}

void FileOperations::iterateContents(const char* dir, const char* pattern, void* user,
                                     void (*callback)(const char* name, void* user)) {
    if (!dir || !callback)
        return;
    IterateContext ctx;
    ctx.mPath = dir;
    if (ctx.mPath.empty() || ctx.mPath.back() != '/')
        ctx.mPath += '/';
    ctx.mPrefixLength = ctx.mPath.size();
    ctx.mUser = user;
    ctx.mCallback = callback;
    std::string searchPattern = ctx.mPath + (pattern ? pattern : "*");
    detail::findEntries(searchPattern.c_str(), &reportEntry, &ctx);
}

__int64 FileOperations::getSize(const char* path) {
    return path ? detail::fileSize(path) : 0;
}

__int64 FileOperations::getLastModTime(const char* path) {
    detail::FileInfo info;
    return path && detail::queryFileInfo(path, info) ? info.lastWriteTime : 0;
}

__int64 FileOperations::getLastAccTime(const char* path) {
    detail::FileInfo info;
    return path && detail::queryFileInfo(path, info) ? info.lastAccessTime : 0;
}

__int64 FileOperations::getCreationTime(const char* path) {
    detail::FileInfo info;
    return path && detail::queryFileInfo(path, info) ? info.creationTime : 0;
}

bool FileOperations::setTime(const char* path, __int64* lastAccess, __int64* creation, __int64* lastWrite) {
    if (!path)
        return false;
    __int64 a = lastAccess ? low32(*lastAccess) : 0;
    __int64 c = creation ? low32(*creation) : 0;
    __int64 w = lastWrite ? low32(*lastWrite) : 0;
    return detail::setFileTimes(path, lastAccess ? &a : nullptr, creation ? &c : nullptr,
                                lastWrite ? &w : nullptr);
}

bool FileOperations::setLastModTime(const char* path, __int64 time) {
    return setTime(path, nullptr, nullptr, &time);
}

bool FileOperations::setLastAccTime(const char* path, __int64 time) {
    return setTime(path, &time, nullptr, nullptr);
}

bool FileOperations::setCreationTime(const char* path, __int64 time) {
    return setTime(path, nullptr, &time, nullptr);
}

bool FileOperations::touch(const char* path) {
    return path && detail::touchFile(path);
}

bool FileOperations::match(const char* pattern, const char* text) {
    if (!pattern || !text)
        return false;
    // Same answers as the plain recursive definition, but only the latest '*'
    // is ever retried, which bounds the work by pattern x text.
    const char* star = nullptr;
    const char* retry = nullptr;
    while (*text) {
        if (*pattern == '*') {
            star = ++pattern;
            retry = text;
        } else if (*pattern && (*pattern == '?' || *pattern == *text)) {
            ++pattern;
            ++text;
        } else if (star) {
            pattern = star;
            text = ++retry;
        } else {
            return false;
        }
    }
    while (*pattern == '*')
        ++pattern;
    return *pattern == 0;
}

bool FileOperations::setTemporaryPath(const char* path) {
    if (!path)
        return false;
    size_t length = strnlen(path, TEMP_PATH_SIZE);
    if (length >= TEMP_PATH_SIZE)
        return false;
    std::lock_guard<std::mutex> lock(sTemporaryPath.mMutex);
    std::memcpy(sTemporaryPath.mPath, path, length + 1);
    sTemporaryPath.mLength = (unsigned)length;
    sTemporaryPath.mSet = true;
    return true;
}

bool FileOperations::getTemporaryPath(char* buffer, unsigned size) {
    unsigned r = 0;
    {
        std::lock_guard<std::mutex> lock(sTemporaryPath.mMutex);
        if (!sTemporaryPath.mSet) {
            r = detail::tempDirectory(sTemporaryPath.mPath, TEMP_PATH_SIZE);
            if (r > 0 && r < TEMP_PATH_SIZE) {
                sTemporaryPath.mLength = r;
                sTemporaryPath.mSet = true;
            }
        }
        if (sTemporaryPath.mSet) {
            if (!buffer || sTemporaryPath.mLength >= size)
                return false;
            std::memcpy(buffer, sTemporaryPath.mPath, sTemporaryPath.mLength + 1);
            return true;
        }
    }
    // Logged outside the lock: an appender may itself ask for the temporary path.
    logging::Logger::mROOT_LOGGER.warn("Unable to initialize temporary file system: r=%d", (int)r);
    return false;
}

} // namespace platform
} // namespace tarso
