// 64-bit sizes and offsets also on 32-bit builds; renameat2 needs _GNU_SOURCE.
#ifndef _FILE_OFFSET_BITS
#define _FILE_OFFSET_BITS 64
#endif
#ifndef _GNU_SOURCE
#define _GNU_SOURCE
#endif

#include <tmain/platform/FileOperations.h>
#include <tmain/platform/detail/FileSystemNative.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dirent.h>
#include <fcntl.h>
#include <memory>
#include <string>
#include <sys/stat.h>
#include <unistd.h>
#include <vector>

namespace tarso {
namespace platform {
namespace detail {

namespace {

struct DirCloser {
    void operator()(DIR* dir) const { closedir(dir); }
};
typedef std::unique_ptr<DIR, DirCloser> DirPtr;

bool isDots(const char* name) {
    return name[0] == '.' && (name[1] == 0 || (name[1] == '.' && name[2] == 0));
}

/// Empties the directory open as fd (which it takes over), depth first. Every
/// entry is examined without following links, and subdirectories are opened
/// with O_NOFOLLOW, so a link swapped in meanwhile is not followed either.
bool clearDirectory(int fd) {
    DirPtr dir(fdopendir(fd));
    if (!dir) {
        close(fd);
        return false;
    }
    bool ok = true;
    while (dirent* entry = readdir(dir.get())) {
        if (isDots(entry->d_name))
            continue;
        struct stat st;
        if (fstatat(fd, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
            ok = ok && errno == ENOENT;
            continue;
        }
        if (S_ISDIR(st.st_mode)) {
            int sub = openat(fd, entry->d_name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (sub < 0 || !clearDirectory(sub) || unlinkat(fd, entry->d_name, AT_REMOVEDIR) != 0)
                ok = false;
        } else if (unlinkat(fd, entry->d_name, 0) != 0 && errno != ENOENT) {
            ok = false;
        }
    }
    return ok;
}

bool writeAll(int fd, const char* data, size_t size) {
    while (size > 0) {
        ssize_t n = write(fd, data, size);
        if (n < 0 && errno == EINTR)
            continue;
        if (n <= 0)
            return false;
        data += n;
        size -= (size_t)n;
    }
    return true;
}

/// Moves a regular file to another file system: a full, synced copy first,
/// then the source goes. Any failure removes the copy and keeps the source.
bool copyAcross(const char* from, const char* to) {
    int src = open(from, O_RDONLY | O_CLOEXEC | O_NOFOLLOW);
    if (src < 0)
        return false;
    struct stat st;
    if (fstat(src, &st) != 0 || !S_ISREG(st.st_mode)) {
        close(src);
        return false;
    }
    int dst = open(to, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, st.st_mode & 07777);
    if (dst < 0) {
        close(src);
        return false;
    }
    bool ok = true;
    std::vector<char> buffer(1 << 16);
    for (;;) {
        ssize_t n = read(src, buffer.data(), buffer.size());
        if (n < 0 && errno == EINTR)
            continue;
        if (n == 0)
            break;
        if (n < 0 || !writeAll(dst, buffer.data(), (size_t)n)) {
            ok = false;
            break;
        }
    }
    struct timespec times[2] = {st.st_atim, st.st_mtim};
    ok = ok && futimens(dst, times) == 0 && fsync(dst) == 0;
    ok = close(dst) == 0 && ok;
    close(src);
    if (ok && unlink(from) == 0)
        return true;
    unlink(to);
    return false;
}

} // namespace

bool queryFileInfo(const char* path, FileInfo& info) {
    struct statx sx;
    if (statx(AT_FDCWD, path, 0, STATX_BASIC_STATS | STATX_BTIME, &sx) != 0)
        return false;
    info.isFile = S_ISREG(sx.stx_mode);
    info.isDirectory = S_ISDIR(sx.stx_mode);
    // Not every file system records a birth time; then there is none to give.
    info.creationTime = (sx.stx_mask & STATX_BTIME) ? (__int64)sx.stx_btime.tv_sec : 0;
    info.lastAccessTime = sx.stx_atime.tv_sec;
    info.lastWriteTime = sx.stx_mtime.tv_sec;
    return true;
}

bool createDirectory(const char* path) {
    return mkdir(path, 0777) == 0;
}

bool deleteFile(const char* path) {
    return unlink(path) == 0;
}

bool deleteTree(const char* path) {
    struct stat st, root;
    if (lstat(path, &st) != 0)
        return false;
    if (!S_ISDIR(st.st_mode))
        return unlink(path) == 0;
    // Never wipe the whole file system, whatever path leads there.
    if (stat("/", &root) == 0 && st.st_dev == root.st_dev && st.st_ino == root.st_ino)
        return false;
    int fd = open(path, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0)
        return false;
    bool ok = clearDirectory(fd);
    return rmdir(path) == 0 && ok;
}

bool isDirectoryEmpty(const char* path) {
    DirPtr dir(opendir(path));
    if (!dir)
        return false;
    while (dirent* entry = readdir(dir.get()))
        if (!isDots(entry->d_name))
            return false;
    return true;
}

bool moveFile(const char* from, const char* to) {
    if (renameat2(AT_FDCWD, from, AT_FDCWD, to, RENAME_NOREPLACE) == 0)
        return true;
    int err = errno;
    if (err == EINVAL || err == ENOSYS) {
        // File systems without RENAME_NOREPLACE: check, then rename.
        struct stat st;
        if (lstat(to, &st) == 0)
            return false;
        if (::rename(from, to) == 0)
            return true;
        err = errno;
    }
    return err == EXDEV && copyAcross(from, to);
}

void findEntries(const char* searchSpec, void (*found)(const char* name, void* context), void* context) {
    const char* slash = std::strrchr(searchSpec, '/');
    std::string dirName = slash ? std::string(searchSpec, slash == searchSpec ? 1 : slash - searchSpec) : ".";
    const char* pattern = slash ? slash + 1 : searchSpec;
    // FindFirstFileA's "*.*" also matches names without a dot.
    if (std::strcmp(pattern, "*.*") == 0)
        pattern = "*";
    DirPtr dir(opendir(dirName.c_str()));
    if (!dir)
        return;
    while (dirent* entry = readdir(dir.get()))
        if (FileOperations::match(pattern, entry->d_name))
            found(entry->d_name, context);
}

__int64 fileSize(const char* path) {
    // Non-blocking, so that a FIFO cannot stall the open.
    int fd = open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0)
        return 0;
    __int64 size = 0;
    struct stat st;
    if (fstat(fd, &st) == 0 && !S_ISDIR(st.st_mode)) {
        off_t end = lseek(fd, 0, SEEK_END);
        if (end > 0)
            size = (__int64)end;
    }
    close(fd);
    return size;
}

bool setFileTimes(const char* path, const __int64* lastAccess, const __int64* creation,
                  const __int64* lastWrite) {
    if (!lastAccess && !lastWrite) {
        struct stat st;
        return stat(path, &st) == 0 && !creation;
    }
    struct timespec times[2];
    times[0].tv_sec = lastAccess ? (time_t)*lastAccess : 0;
    times[0].tv_nsec = lastAccess ? 0 : UTIME_OMIT;
    times[1].tv_sec = lastWrite ? (time_t)*lastWrite : 0;
    times[1].tv_nsec = lastWrite ? 0 : UTIME_OMIT;
    if (utimensat(AT_FDCWD, path, times, 0) != 0)
        return false;
    // Linux offers no way to set a birth time: the rest is set, the call still fails.
    return !creation;
}

bool touchFile(const char* path) {
    struct timespec times[2];
    times[0].tv_sec = 0;
    times[0].tv_nsec = UTIME_OMIT;
    times[1].tv_sec = 0;
    times[1].tv_nsec = UTIME_NOW;
    return utimensat(AT_FDCWD, path, times, 0) == 0;
}

unsigned tempDirectory(char* buffer, unsigned size) {
    const char* dir = std::getenv("TMPDIR");
    if (!dir || !*dir)
        dir = "/tmp";
    size_t length = std::strlen(dir);
    bool addSeparator = dir[length - 1] != '/';
    size_t needed = length + (addSeparator ? 1 : 0);
    if (needed + 1 > size)
        return needed + 1 > UINT_MAX ? UINT_MAX : (unsigned)(needed + 1);
    std::memcpy(buffer, dir, length);
    if (addSeparator)
        buffer[length] = '/';
    buffer[needed] = 0;
    return (unsigned)needed;
}

unsigned fullPath(const char* path, char* buffer, unsigned size, char** filePart) {
    if (filePart)
        *filePart = nullptr;
    if (!*path)
        return 0;
    std::string absolute;
    if (path[0] != '/') {
        char cwd[PATH_MAX];
        if (!getcwd(cwd, sizeof(cwd)))
            return 0;
        absolute = cwd;
        absolute += '/';
    }
    absolute += path;
    if (absolute.size() >= PATH_MAX)
        return 0;
    const bool endsWithSeparator = absolute.back() == '/';

    std::vector<std::string> parts;
    for (size_t start = 0; start < absolute.size();) {
        size_t end = absolute.find('/', start);
        if (end == std::string::npos)
            end = absolute.size();
        if (end > start)
            parts.push_back(absolute.substr(start, end - start));
        start = end + 1;
    }

    // The longest prefix that exists is resolved by the system (links, "..");
    // the last component stays as named, since it may be a link the caller
    // means itself. The missing rest is normalised as text.
    std::string resolved = "/";
    size_t known = parts.empty() || endsWithSeparator ? parts.size() : parts.size() - 1;
    for (; known > 0; --known) {
        std::string prefix;
        for (size_t i = 0; i < known; ++i)
            prefix += '/' + parts[i];
        if (char* real = realpath(prefix.c_str(), nullptr)) {
            resolved = real;
            std::free(real);
            break;
        }
    }
    for (size_t i = known; i < parts.size(); ++i) {
        if (parts[i] == ".")
            continue;
        if (parts[i] == "..") {
            size_t cut = resolved.rfind('/');
            resolved.erase(cut == 0 ? 1 : cut);
            continue;
        }
        if (resolved.back() != '/')
            resolved += '/';
        resolved += parts[i];
    }
    size_t fileOffset = resolved.rfind('/') + 1;
    bool hasFilePart = !endsWithSeparator && fileOffset < resolved.size();
    if (endsWithSeparator && resolved.back() != '/')
        resolved += '/';

    if (resolved.size() + 1 > size)
        return resolved.size() + 1 > UINT_MAX ? UINT_MAX : (unsigned)(resolved.size() + 1);
    std::memcpy(buffer, resolved.c_str(), resolved.size() + 1);
    if (filePart && hasFilePart)
        *filePart = buffer + fileOffset;
    return (unsigned)resolved.size();
}

} // namespace detail
} // namespace platform
} // namespace tarso
