#include <tmain/platform/FileOperations.h>
#include <tmain/platform/detail/FileSystemNative.h>

#include <cstring>
#include <string>
#include <windows.h>

#include <shellapi.h>
#include <shlwapi.h>

namespace tarso {
namespace platform {
namespace detail {

namespace {

unsigned long long fromFileTime(const FILETIME& ft) {
    return ((unsigned long long)ft.dwHighDateTime << 32) | ft.dwLowDateTime;
}

FILETIME toFileTime(__int64 seconds) {
    unsigned long long v = unixToFileTime(seconds);
    FILETIME ft;
    ft.dwLowDateTime = (DWORD)v;
    ft.dwHighDateTime = (DWORD)(v >> 32);
    return ft;
}

/// A handle for changing a file's or a directory's times. Attribute-only
/// access takes part in no sharing check, so files others hold open (a log
/// file being written, for one) can be stamped as well.
HANDLE openForTimes(const char* path) {
    return CreateFileA(path, FILE_WRITE_ATTRIBUTES, FILE_SHARE_READ, nullptr, OPEN_EXISTING,
                       FILE_FLAG_BACKUP_SEMANTICS, nullptr);
}

char lower(char c) {
    return c >= 'A' && c <= 'Z' ? (char)(c - 'A' + 'a') : c;
}

std::string lowered(const char* s) {
    std::string out(s);
    for (char& c : out)
        c = lower(c);
    return out;
}

struct FindCloser {
    HANDLE mHandle;
    ~FindCloser() { FindClose(mHandle); }
};

} // namespace

bool queryFileInfo(const char* path, FileInfo& info) {
    WIN32_FILE_ATTRIBUTE_DATA data;
    if (!GetFileAttributesExA(path, GetFileExInfoStandard, &data))
        return false;
    info.isFile = (data.dwFileAttributes & (FILE_ATTRIBUTE_ARCHIVE | FILE_ATTRIBUTE_NORMAL)) != 0;
    info.isDirectory = (data.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
    info.creationTime = fileTimeToUnix(fromFileTime(data.ftCreationTime));
    info.lastAccessTime = fileTimeToUnix(fromFileTime(data.ftLastAccessTime));
    info.lastWriteTime = fileTimeToUnix(fromFileTime(data.ftLastWriteTime));
    return true;
}

bool createDirectory(const char* path) {
    return CreateDirectoryA(path, nullptr) != 0;
}

bool deleteFile(const char* path) {
    return DeleteFileA(path) != 0;
}

bool deleteTree(const char* path) {
    // The shell would take wildcards as a selection of many files.
    if (std::strpbrk(path, "*?"))
        return false;
    // It also wants a full path, with backslashes, in a list ending with an
    // empty name.
    char full[FileOperations::FULL_PATH_SIZE];
    DWORD n = GetFullPathNameA(path, sizeof(full) - 1, full, nullptr);
    if (n == 0 || n >= sizeof(full) - 1)
        return false;
    while (n > 3 && full[n - 1] == '\\')
        full[--n] = 0;
    // Never a whole drive ("C:\") or share, whatever path leads there.
    if (n <= 3 || PathIsRootA(full))
        return false;
    full[n + 1] = 0;
    SHFILEOPSTRUCTA op;
    std::memset(&op, 0, sizeof(op));
    op.wFunc = FO_DELETE;
    op.pFrom = full;
    op.fFlags = FOF_SILENT | FOF_NOCONFIRMATION | FOF_NOERRORUI;
    return SHFileOperationA(&op) == 0 && !op.fAnyOperationsAborted &&
           GetFileAttributesA(full) == INVALID_FILE_ATTRIBUTES;
}

bool isDirectoryEmpty(const char* path) {
    return PathIsDirectoryEmptyA(path) != FALSE;
}

bool moveFile(const char* from, const char* to) {
    return MoveFileA(from, to) != 0;
}

void findEntries(const char* searchSpec, void (*found)(const char* name, void* context), void* context) {
    WIN32_FIND_DATAA data;
    HANDLE h = FindFirstFileA(searchSpec, &data);
    if (h == INVALID_HANDLE_VALUE)
        return;
    FindCloser closer{h};
    // FindFirstFileA also matches the short 8.3 aliases ("*.txt" finds
    // "a.txtx" through "A~1.TXT"): the long names are checked again, ignoring
    // case as Windows file names do.
    const char* slash = std::strrchr(searchSpec, '/');
    const char* backslash = std::strrchr(searchSpec, '\\');
    const char* pattern = slash > backslash ? slash + 1 : backslash ? backslash + 1 : searchSpec;
    std::string lowPattern = std::strcmp(pattern, "*.*") == 0 ? std::string("*") : lowered(pattern);
    do {
        if (FileOperations::match(lowPattern.c_str(), lowered(data.cFileName).c_str()))
            found(data.cFileName, context);
    } while (FindNextFileA(h, &data));
}

__int64 fileSize(const char* path) {
    HANDLE h = CreateFileA(path, GENERIC_READ, FILE_SHARE_READ | FILE_SHARE_WRITE, nullptr, OPEN_EXISTING,
                           FILE_ATTRIBUTE_NORMAL, nullptr);
    if (h == INVALID_HANDLE_VALUE)
        return 0;
    LARGE_INTEGER zero, end;
    zero.QuadPart = 0;
    __int64 size = SetFilePointerEx(h, zero, &end, FILE_END) && end.QuadPart > 0 ? (__int64)end.QuadPart : 0;
    CloseHandle(h);
    return size;
}

bool setFileTimes(const char* path, const __int64* lastAccess, const __int64* creation,
                  const __int64* lastWrite) {
    HANDLE h = openForTimes(path);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    FILETIME a = toFileTime(lastAccess ? *lastAccess : 0), c = toFileTime(creation ? *creation : 0),
             w = toFileTime(lastWrite ? *lastWrite : 0);
    BOOL ok = SetFileTime(h, creation ? &c : nullptr, lastAccess ? &a : nullptr, lastWrite ? &w : nullptr);
    CloseHandle(h);
    return ok != 0;
}

bool touchFile(const char* path) {
    HANDLE h = openForTimes(path);
    if (h == INVALID_HANDLE_VALUE)
        return false;
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    BOOL ok = SetFileTime(h, nullptr, nullptr, &now);
    CloseHandle(h);
    return ok != 0;
}

unsigned tempDirectory(char* buffer, unsigned size) {
    return GetTempPathA(size, buffer);
}

unsigned fullPath(const char* path, char* buffer, unsigned size, char** filePart) {
    if (filePart)
        *filePart = nullptr;
    if (!*path)
        return 0;
    return GetFullPathNameA(path, size, buffer, filePart);
}

} // namespace detail
} // namespace platform
} // namespace tarso
